#include "host/commands/HistoryReader.h"

#include <set>

#include "Velmar/OS/FileSystem.h"
#include "common/netdb_storage/DBManager.h"
#include "host/agent/DataFolder.h"
#include "host/agent/LogWatch.h"
#include "host/text/TimeText.h"

namespace Host::Commands {
namespace {

using RYL::NetDB::DBManager;
using Velmar::OS::FileSystem;

constexpr std::size_t kDateLength = 10;

bool ListDays(const std::string& folder, const TimeRange& range, std::set<u64>& days) {
  return DBManager::ForEachDBFile(
      folder.c_str(), false,
      [&days](const char* /*path*/, u64 day, u64 /*size*/) {
        days.insert(day);
        return true;
      },
      range.since, range.until);
}

// Cuts the rows of one day to the range. `stopped` tells a sink that had enough from a failure.
bool ReadDay(const std::string& folder, u64 day, const TimeRange& range, const HistoryReader::Sink& sink,
             bool& stopped) {
  RYL::NetDB::QueryConstraints constraints(day, day + DBManager::kSecondsPerDay - 1);
  const auto take = [&range, &sink, &stopped](const HistoryReader::Row& row) {
    const bool inRange = row.first_seen <= range.until && row.last_seen >= range.since;
    stopped = inRange && !sink(row);
    return !stopped;
  };
  return DBManager::Query(folder.c_str(), constraints, take);
}

}  // namespace

HistoryReader::Result HistoryReader::Read(const TimeRange& range, const Sink& sink) {
  problems_.clear();
  std::string error;
  if (!HasHistory(dataFolder_, error)) {
    problems_.push_back(error);
    return Result::kNoFolder;
  }
  const std::string folder = DatabaseFolder(dataFolder_);
  const LogWatch watch;
  std::set<u64> days;
  if (!ListDays(folder, range, days)) {
    problems_.push_back("cannot list the folder " + folder);
  }
  bool stopped = false;
  for (const u64 day : days) {
    if (stopped) {
      break;
    }
    if (!ReadDay(folder, day, range, sink, stopped) && !stopped) {
      problems_.push_back("the rows of " + Text::FormatUtc(day).substr(0, kDateLength) +
                          " are damaged; some are missing");
    }
  }
  for (const std::string& path : watch.SkippedFiles()) {
    if (FileSystem::FileExists(path.c_str(), false)) {  // one that was deleted meanwhile is no damage
      problems_.push_back(path + " is damaged or cannot be read; its rows are missing");
    }
  }
  return problems_.empty() ? Result::kDone : Result::kPartial;
}

}  // namespace Host::Commands
