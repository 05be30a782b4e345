#include "host/commands/PurgePlan.h"

#include <algorithm>

#include "Velmar/OS/Path.h"
#include "common/netdb_storage/DBManager.h"
#include "host/text/Numbers.h"
#include "host/text/TimeText.h"

namespace Host::Commands {
namespace {

using RYL::NetDB::DayFile;
using RYL::NetDB::DBManager;
using RYL::NetDB::FootprintLimits;
using RYL::NetDB::OldestFiles;

constexpr u64 kNoLimit = ~u64{0};

std::optional<u64> ReadFirstDayKept(const std::string& text, u64 nowSeconds, std::string& error) {
  auto first = Text::ParseDate(text);
  if (const auto age = Text::ParseAge(text); age && !first) {
    first = nowSeconds - std::min(*age, nowSeconds);
  }
  if (!first) {
    error = "--before: \"" + text + "\" is no date; give one such as 2024-05-01, or an age such as 90d";
    return std::nullopt;
  }
  const u64 tomorrow = nowSeconds / Text::kSecondsPerDay + 1;
  const u64 day = *first / Text::kSecondsPerDay;
  if (day > tomorrow) {
    error = "--before: " + text + " lies beyond tomorrow; days to come are not deleted by their age, and " +
            Text::FormatUtc(tomorrow * Text::kSecondsPerDay).substr(0, 10) + " takes all until today";
    return std::nullopt;
  }
  return day * Text::kSecondsPerDay;
}

bool IsFiltered(const std::string& name) {
  return name.size() >= 2 && name.compare(name.size() - 2, 2, ".f") == 0;
}

std::vector<StoredFile>::iterator FindFileOf(const DayFile& day, std::vector<StoredFile>& files) {
  Velmar::Utils::String name;
  return std::find_if(files.begin(), files.end(),
                      [&](const StoredFile& file) { return day.FormatName(name) && file.name == name.text; });
}

std::vector<std::string> FindStrays(std::vector<StoredFile>& files, u64 lastDay) {
  std::vector<std::string> strays;
  for (const StoredFile& file : files) {
    const auto named = FindFileOf({file.day, file.size, IsFiltered(file.name)}, files);
    if (file.day <= lastDay && (named == files.end() || named->name != file.name)) {
      strays.push_back(file.name);
    }
  }
  return strays;
}

// One pass of the deletion. True when another one follows.
bool PlanPass(std::vector<StoredFile>& files, const FootprintLimits& limits, PurgePlan& plan) {
  OldestFiles list;
  for (const StoredFile& file : files) {
    list.Take({file.day, file.size, IsFiltered(file.name)});
  }
  const std::size_t planned = plan.files.size();
  u32 tried = 0;
  for (; tried < list.count && !limits.AreMet(list.files[tried].day, list.total); ++tried) {
    const auto found = FindFileOf(list.files[tried], files);
    if (found != files.end()) {
      plan.files.push_back(*found);
      files.erase(found);
    }
    list.total -= list.files[tried].size;
  }
  if (tried > 0 && plan.files.size() == planned) {
    plan.strays = FindStrays(files, list.files[tried - 1].day);
    return false;
  }
  return tried > 0 && tried == list.count;
}

}  // namespace

FootprintLimits PurgeRequest::LimitsAt(u64 epochMs) const {
  u64 maxDays = kNoLimit;
  if (before) {
    const u64 tomorrow = epochMs / 1000 / Text::kSecondsPerDay + 1;
    // The day at the cut-off goes too, so the cut-off is the day before the first one that stays.
    maxDays = tomorrow - std::min(tomorrow, *before / Text::kSecondsPerDay);
  }
  return {toSize.value_or(kNoLimit), maxDays, epochMs};
}

std::optional<u64> ReadSize(const std::string& text) {
  std::string digits = Text::Lowered(text);
  u64 unit = 1;
  for (const char* suffix = "kmg"; *suffix != '\0'; ++suffix) {
    unit *= 1024;
    if (!digits.empty() && digits.back() == *suffix) {
      digits.pop_back();
      const auto count = Text::ReadCount(digits, ~u64{0} / unit);
      return count ? std::optional<u64>(*count * unit) : std::nullopt;
    }
  }
  return Text::ReadCount(digits, ~u64{0});
}

std::optional<PurgeRequest> ReadPurgeRequest(const std::string& before, const std::string& toSize, u64 nowSeconds,
                                             std::string& error) {
  PurgeRequest request;
  if (before.empty() && toSize.empty()) {
    error = "nothing says what is to go; give --before DATE, --to-size SIZE or both";
    return std::nullopt;
  }
  if (!before.empty()) {
    request.before = ReadFirstDayKept(before, nowSeconds, error);
    if (!request.before) {
      return std::nullopt;
    }
  }
  if (!toSize.empty()) {
    request.toSize = ReadSize(toSize);
    if (!request.toSize) {
      error = "--to-size: \"" + toSize + "\" is no size; give bytes, or a number with K, M or G (1024 of each other)";
      return std::nullopt;
    }
  }
  return request;
}

bool ListStoredFiles(const std::string& folder, std::vector<StoredFile>& files) {
  files.clear();
  const auto add = [&files](const char* path, u64 day, u64 size) {
    files.push_back({Velmar::OS::Path::GetFileName(path), day, size});
    return true;
  };
  return DBManager::ForEachDBFile(folder.c_str(), false, add, 0, ~u64{0});
}

PurgePlan PlanPurge(std::vector<StoredFile> files, const FootprintLimits& limits) {
  PurgePlan plan;
  while (PlanPass(files, limits, plan)) {
  }
  return plan;
}

}  // namespace Host::Commands
