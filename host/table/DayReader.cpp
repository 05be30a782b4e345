#include "host/table/DayReader.h"

#include <limits>
#include <set>

#include "Velmar/OS/FileSystem.h"
#include "common/netdb_storage/DBManager.h"
#include "host/agent/LogWatch.h"
#include "host/text/TimeText.h"
#include "osquery/osquery/TableQuery.h"

namespace Host::Table {
namespace {

using RYL::NetDB::DBManager;
using Velmar::OS::FileSystem;
namespace OSQuery = RYL::NetDB::OSQuery;

constexpr u32 kNoLimit = std::numeric_limits<u32>::max();
constexpr std::size_t kDateLength = 10;
// A filter job renames a file between the walk's look at the folder and its opening: the next look finds it.
constexpr int kLooks = 3;

std::string Unread(const std::string& path) {
  return path + " is damaged or cannot be read; its rows are missing";
}

std::string DateOf(u64 day) {
  return Text::FormatUtc(day).substr(0, kDateLength);
}

}  // namespace

// The buffer of one day.
struct DayReader::Answer {
  OSQuery::SelectorArray selectors;
  OSQuery::OSQueryOutput output{nullptr, &selectors, kNoLimit};
  u32 offset = 0;
};

std::vector<u64> ListDays(const std::string& folder, Problems& problems) {
  std::set<u64> days;
  std::vector<std::string> misnamed;
  const auto take = [&days, &misnamed](const char* path, u64 day, u64 /*size*/) {
    if (day % Text::kSecondsPerDay == 0) {
      days.insert(day);
    } else {
      misnamed.emplace_back(path);
    }
    return true;
  };
  if (!DBManager::ForEachDBFile(folder.c_str(), false, take, 0, ~u64{0})) {
    problems.Add("cannot list the folder " + folder);
  }
  for (const std::string& path : misnamed) {
    problems.Add(Unread(path));
  }
  return {days.begin(), days.end()};
}

DayReader::DayReader(std::string folder, Problems& problems) : folder_(std::move(folder)), problems_(problems) {}

DayReader::~DayReader() = default;

std::vector<std::string> DayReader::Ask(const std::string& columns, const std::string& constraints, bool& vanished) {
  answer_.reset();
  answer_ = std::make_unique<Answer>();
  vanished = false;
  if (!answer_->output.Init(kNoLimit)) {
    answer_->output.error = OSQuery::kBufferFull;
    return {};
  }
  const LogWatch watch;
  OSQuery::RunTableQuery(folder_.c_str(), columns.c_str(), constraints.c_str(), answer_->selectors, answer_->output);
  std::vector<std::string> skipped;
  for (const std::string& path : watch.SkippedFiles()) {
    if (FileSystem::FileExists(path.c_str(), false)) {
      skipped.push_back(path);
    } else {
      vanished = true;
    }
  }
  return skipped;
}

bool DayReader::Read(u64 day, const std::string& columns, const std::string& constraints) {
  day_ = day;
  bool vanished = true;
  std::vector<std::string> skipped;
  for (int look = 0; look < kLooks && vanished; ++look) {
    skipped = Ask(columns, constraints, vanished);
  }
  for (const std::string& path : skipped) {
    problems_.Add(Unread(path));
  }
  Report();
  return answer_->output.error != OSQuery::kBadQuery;
}

void DayReader::Report() {
  switch (answer_->output.error) {
    case OSQuery::kNoError:
    case OSQuery::kBadQuery:
      return;
    case OSQuery::kRowLimit:
    case OSQuery::kBufferFull:
      return problems_.Add("the rows of " + DateOf(day_) + " do not fit into memory; some are missing");
    default:
      return problems_.Add("the rows of " + DateOf(day_) + " are damaged; some are missing");
  }
}

bool DayReader::Next() {
  const u8* message = nullptr;
  u32 size = 0;
  if (answer_ == nullptr || !answer_->output.NextMessage(answer_->offset, message, size)) {
    return false;
  }
  if (!row_.ParseFromArray(message, static_cast<int>(size))) {
    problems_.Add("the rows of " + DateOf(day_) + " cannot be read; some are missing");
    return false;
  }
  return true;
}

void DayReader::Clear() {
  answer_.reset();
}

}  // namespace Host::Table
