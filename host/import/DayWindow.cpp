#include "host/import/DayWindow.h"

#include <algorithm>
#include <utility>

#include "host/Types.h"

namespace Host::Import {

bool DayWindow::Add(const ConnectionRecord& event) {
  events_.push_back(event);
  return events_.size() < kCapacity || Flush();
}

bool DayWindow::Flush() {
  constexpr u64 kMsPerDay = 86'400'000;
  std::stable_sort(events_.begin(), events_.end(), [](const ConnectionRecord& a, const ConnectionRecord& b) {
    return a.timeMs / kMsPerDay < b.timeMs / kMsPerDay;
  });
  const std::vector<ConnectionRecord> events = std::exchange(events_, {});
  return std::all_of(events.begin(), events.end(), sink_);
}

}  // namespace Host::Import
