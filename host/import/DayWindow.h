// DayWindow: puts events of the same UTC day next to each other, within a bound.
#pragma once

#include <utility>
#include <vector>

#include "host/events/ConnectionRecord.h"
#include "host/import/EventBuilder.h"

namespace Host::Import {

// Each change of the day makes the module write one day's file and read another's, so a log that jumps between days is
// handed over a window at a time: in ascending days, and within a day in the order of the log.
// Threads: thread-compatible.
class DayWindow {
 public:
  static constexpr std::size_t kCapacity = 131072;

  explicit DayWindow(EventSink sink) : sink_(std::move(sink)) {}

  // Delivers when the window is full. False when the sink said so; what was not delivered is gone.
  bool Add(const ConnectionRecord& event);
  bool Flush();

 private:
  EventSink sink_;
  std::vector<ConnectionRecord> events_;
};

}  // namespace Host::Import
