#include "host/table/DayReader.h"

#include <limits>

#include "Velmar/OS/FileSystem.h"
#include "host/agent/LogWatch.h"
#include "host/text/TimeText.h"
#include "osquery/osquery/TableQuery.h"

namespace Host::Table {
namespace {

using Velmar::OS::FileSystem;
namespace OSQuery = RYL::NetDB::OSQuery;

constexpr u32 kNoLimit = std::numeric_limits<u32>::max();
constexpr std::size_t kDateLength = 10;

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

DayReader::DayReader(std::string folder, Problems& problems, const Pause& pause)
    : folder_(std::move(folder)), problems_(problems), pause_(pause) {}

DayReader::~DayReader() = default;

bool DayReader::Ask(const std::string& columns, const std::string& constraints, std::vector<std::string>& skipped) {
  skipped.clear();
  answer_.reset();
  answer_ = std::make_unique<Answer>();
  OSQuery::OSQueryOutput& output = answer_->output;
  if (!output.Init(kNoLimit)) {
    output.error = OSQuery::kBufferFull;
    return true;
  }
  const LogWatch watch;
  OSQuery::RunTableQuery(folder_.c_str(), columns.c_str(), constraints.c_str(), answer_->selectors, output);
  bool whole = output.error != OSQuery::kNoError || watch.QueriedFiles() != 0;
  for (const std::string& path : watch.SkippedFiles()) {
    if (FileSystem::FileExists(path.c_str(), false)) {
      skipped.push_back(path);
    } else {
      whole = false;
    }
  }
  return whole;
}

// A dump takes the old file away before it gives the new one its name, and a filter job renames. A file that stays away
// was deleted, which is no problem.
bool DayReader::Read(u64 day, const std::string& columns, const std::string& constraints) {
  day_ = day;
  std::vector<std::string> skipped;
  bool whole = Ask(columns, constraints, skipped);
  for (int look = 0; look < kLooks && !whole; ++look) {
    pause_();
    whole = Ask(columns, constraints, skipped);
  }
  for (const std::string& path : skipped) {
    problems_.Add(path + " is damaged or cannot be read; its rows are missing");
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
      return problems_.Add("the rows of " + DateOf(day_) + " are damaged or cannot be read; some are missing");
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
