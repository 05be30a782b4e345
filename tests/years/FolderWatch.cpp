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

bool IsVerdictFile(const std::string& name) {
  return name == "cache.4.db";
}

bool TakeEntry(const char* /*path*/, const char* name, u64 size, bool /*isDirectory*/, Velmar::OS::FileTimes& /*times*/,
               void* context) {
  if (!IsVerdictFile(name)) {
    static_cast<FolderWatch::Files*>(context)->emplace_back(DayOf(name), size);
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

void FolderWatch::SetVerdictBytes(u64 length) {
  NoteAddition(length > verdictBytes ? length - verdictBytes : 0);
  verdictBytes = length;
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
  const u64 before = std::exchange(SizeOf(DayOf(name)), size);
  bytes += size - before;
  NoteAddition(size > before ? size - before : 0);
  const u64 folder = bytes + verdictBytes;
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
  EXPECT_EQ(going, TakeTooMuch(allowance)) << "not the oldest, or not as many as there have to go";
  EXPECT_EQ(List(), files) << "the folder is not what dumps and deletions leave";
  EXPECT_LE(bytes, allowance);
  gone.insert(gone.end(), going.begin(), going.end());
  going.clear();
  lastCheckMs = now;
  bytesAtCheck = std::max(limits.maxBytes, verdictBytes);
  added = 0;
}

std::vector<u64> FolderWatch::TakeTooMuch(u64 allowance) {
  const u64 today = Time::GetEpochTime(nullptr) / 1000 / kSecondsPerDay;
  std::vector<u64> days;
  auto kept = files.begin();
  for (; kept != files.end(); ++kept) {
    if (kept->first / kSecondsPerDay + limits.maxDays > today && bytes <= allowance) {
      break;
    }
    days.push_back(kept->first);
    bytes -= kept->second;
  }
  files.erase(files.begin(), kept);
  return days;
}

u64& FolderWatch::SizeOf(u64 day) {
  auto place = std::lower_bound(files.begin(), files.end(), std::pair<u64, u64>(day, 0));
  if (place == files.end() || place->first != day) {
    place = files.insert(place, {day, 0});
  }
  return place->second;
}

void FolderWatch::NoteAddition(u64 more) {
  added += more;
  totals.largestAddition = std::max(totals.largestAddition, added);
}

FolderWatch::Files FolderWatch::List() const {
  Files found;
  Velmar::Utils::String folder;
  EXPECT_TRUE(folder.Set(path.c_str()));
  EXPECT_TRUE(Velmar::OS::FileSystem::EnumerateFiles(folder, false, &TakeEntry, &found, true, true, false));
  std::sort(found.begin(), found.end());
  return found;
}
