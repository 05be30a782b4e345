#include "host/commands/FilterDays.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>

#include "Velmar/Cloud.h"
#include "common/cloud/filter_job/FilterJob.h"
#include "host/text/TimeText.h"
#include "host/verify/FileName.h"

namespace Host::Commands {
namespace {

using Verify::DayName;
namespace FilterState = RYL::NetDB::FilterState;

constexpr std::chrono::milliseconds kLookEvery(100);

u64 SizeOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? static_cast<u64>(status.st_size) : 0;
}

}  // namespace

std::optional<u64> ReadFilterDay(const std::string& text) {
  const DayName name = Verify::ReadDayName(text);
  if (name.kind == DayName::Kind::kPlain || name.kind == DayName::Kind::kFiltered) {
    return name.day;
  }
  return Text::ParseDate(text);
}

std::vector<StoredFile> UnfilteredDays(std::vector<StoredFile> files, u64 nowSeconds) {
  const u64 today = nowSeconds - nowSeconds % Text::kSecondsPerDay;
  const auto isNoCandidate = [today](const StoredFile& file) {
    return Verify::ReadDayName(file.name).kind != DayName::Kind::kPlain || file.day >= today;
  };
  files.erase(std::remove_if(files.begin(), files.end(), isNoCandidate), files.end());
  std::sort(files.begin(), files.end(), [](const StoredFile& a, const StoredFile& b) { return a.day < b.day; });
  return files;
}

FilteredDay FilterRunner::Run(const StoredFile& file, const std::function<bool(const FilterProgress& progress)>& look) {
  requests_ = 0;
  answers_ = 0;
  watch_.Begin();
  const std::string path = folder_ + "/" + file.name;
  FilteredDay result{.file = file.name, .day = file.day, .sizeBefore = SizeOf(path)};
  const bool filtered = RunJob(path, look);
  CountRequests();
  FilterWatch::Findings findings = watch_.Get();
  result.state = filtered ? FilteredDay::State::kFiltered : FilteredDay::State::kFailed;
  result.file += filtered ? ".f" : "";
  result.sizeAfter = SizeOf(folder_ + "/" + result.file);
  result.rowsRemoved = findings.rowsRemoved;
  result.requests = requests_;
  result.answers = answers_;
  result.cloudMissing = findings.cloudMissing;
  result.reasons = std::move(findings.reasons);
  return result;
}

bool FilterRunner::RunJob(const std::string& path, const std::function<bool(const FilterProgress& progress)>& look) {
  Velmar::Utils::String file;
  if (!file.Set(path.c_str())) {
    return false;
  }
  std::atomic<u8> status{FilterState::kLaunched};
  RYL::NetDB::FilterJobContext context{.file = &file, .cloud = &cloud_, .status = &status};
  const std::future<void> job = std::async(std::launch::async, &RYL::NetDB::FilterJobThread, &context);
  bool stopped = false;
  while (job.wait_for(kLookEvery) != std::future_status::ready) {
    CountRequests();
    if (look({requests_, watch_.Get()}) && !stopped) {
      stopped = Velmar::Cloud::Configure({});
    }
  }
  return status == FilterState::kDone;
}

// Successes first: a request that ends between the two is counted in the next round.
void FilterRunner::CountRequests() {
  answers_ += cloud_.TakeSuccessfulRequests();
  requests_ += cloud_.TakeTotalRequests();
}

}  // namespace Host::Commands
