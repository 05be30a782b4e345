#include "tests/years/FolderWatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "Velmar/OS/File.h"
#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Time.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "common/netdb_storage/StorageLog.h"
#include "host/render/LogText.h"

namespace {

using Velmar::u64;
using Velmar::OS::Time;

constexpr u64 kSecondsPerDay = 86400;

FolderWatch* current = nullptr;

u64 DayOf(const char* name) {
  return std::strtoull(name, nullptr, 10);
}

u64 SizeOf(const FolderWatch::Files& files) {
  u64 total = 0;
  for (const auto& [day, size] : files) {
    total += size;
  }
  return total;
}

bool IsVerdictFile(const std::string& name) {
  return name == "cache.4.db";
}

bool TakeEntry(const char* /*path*/, const char* name, u64 size, bool /*isDirectory*/, Velmar::OS::FileTimes& /*times*/,
               void* context) {
  if (!IsVerdictFile(name)) {
    EXPECT_TRUE(static_cast<FolderWatch::Files*>(context)->emplace(DayOf(name), size).second) << name;
  }
  return true;
}

}  // namespace

FolderWatch::FolderWatch(const std::string& folder) : path(folder) {
  current = this;
  Velmar::Log::fnLogCallback = &FolderWatch::Receive;
}

FolderWatch::~FolderWatch() {
  Velmar::Log::fnLogCallback = nullptr;
  current = nullptr;
}

void FolderWatch::SetVerdictBytes(u64 bytes) {
  NoteAddition(bytes > verdictBytes ? bytes - verdictBytes : 0);
  verdictBytes = bytes;
}

void FolderWatch::ExpectCheckedInTime() const {
  EXPECT_LE(Time::GetEpochTime(nullptr) - lastCheckMs, kHourMs) << "a check is overdue";
}

std::vector<u64> FolderWatch::TakeDeleted() {
  return std::exchange(gone, {});
}

void FolderWatch::Receive(const Velmar::Log::Record& record, std::va_list arguments) {
  namespace Module = RYL::Messages::ryl_netdb;
  namespace Storage = RYL::Messages::netdb_storage;
  // Other records come from the test's thread, too, at the same time.
  if (record.messageId == Storage::DayDumped::kId) {
    current->OnDump(va_arg(arguments, const char*));
  } else if (record.messageId == Storage::DayFileDeleted::kId) {
    current->OnDelete(va_arg(arguments, const char*));
  } else if (record.messageId == Module::FootprintChecked::kId) {
    const u64 allowance = va_arg(arguments, u64);
    current->OnCheck(allowance, va_arg(arguments, u64));
  } else if (record.level >= 5) {
    ADD_FAILURE() << Host::Render::FindLogText(record.messageId)->name;
  }
}

void FolderWatch::OnDump(const char* name) {
  ++totals.dumps;
  const u64 size = Velmar::OS::File::GetFileSize((path + "/" + name).c_str());
  const u64 before = std::exchange(files[DayOf(name)], size);
  NoteAddition(size > before ? size - before : 0);
  const u64 folder = SizeOf(files) + verdictBytes;
  EXPECT_LE(folder, bytesAtCheck + added) << "more than what came since the last check";
  totals.largestFolder = std::max(totals.largestFolder, folder);
}

void FolderWatch::OnDelete(const char* name) {
  ++totals.deleted;
  going.push_back(DayOf(name));
}

void FolderWatch::OnCheck(u64 allowance, u64 days) {
  ++totals.checks;
  const u64 now = Time::GetEpochTime(nullptr);
  EXPECT_GT(now - lastCheckMs, kHourMs) << "a check that is not due yet";
  EXPECT_EQ(allowance, limits.maxBytes - std::min(limits.maxBytes, verdictBytes));
  EXPECT_EQ(days, limits.maxDays);
  EXPECT_EQ(going, TakeTooMuch(files, allowance)) << "not the oldest, or not as many as there have to go";
  EXPECT_EQ(List(), files) << "the folder is not what dumps and deletions leave";
  EXPECT_LE(SizeOf(files), allowance);
  gone.insert(gone.end(), going.begin(), going.end());
  going.clear();
  lastCheckMs = now;
  bytesAtCheck = std::max(limits.maxBytes, verdictBytes);
  added = 0;
}

std::vector<u64> FolderWatch::TakeTooMuch(Files& kept, u64 allowance) const {
  const u64 today = Time::GetEpochTime(nullptr) / 1000 / kSecondsPerDay;
  std::vector<u64> days;
  u64 total = SizeOf(kept);
  while (!kept.empty() && (kept.begin()->first / kSecondsPerDay + limits.maxDays <= today || total > allowance)) {
    days.push_back(kept.begin()->first);
    total -= kept.begin()->second;
    kept.erase(kept.begin());
  }
  return days;
}

void FolderWatch::NoteAddition(u64 bytes) {
  added += bytes;
  totals.largestAddition = std::max(totals.largestAddition, added);
}

FolderWatch::Files FolderWatch::List() const {
  Files found;
  Velmar::Utils::String folder;
  EXPECT_TRUE(folder.Set(path.c_str()));
  EXPECT_TRUE(Velmar::OS::FileSystem::EnumerateFiles(folder, false, &TakeEntry, &found, true, true, false));
  return found;
}
