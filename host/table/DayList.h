// DayList: the days that a folder has files of, also while a file is being replaced.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/Types.h"
#include "host/table/Problems.h"

namespace Host::Table {

// Waits as long as a save takes from removing the old file to giving the new one its name.
using Pause = std::function<void()>;
void PauseForSave();
// Pauses before what is missing is taken to be gone.
inline constexpr int kLooks = 5;

// Threads: thread-compatible.
class DayList {
 public:
  // `problems` and `pause` must outlive it.
  DayList(std::string folder, Problems& problems, const Pause& pause)
      : folder_(std::move(folder)), problems_(problems), pause_(pause) {}

  // Epoch seconds of the days' starts, ascending. What of the folder has no place in them becomes a problem, also a
  // complete save that never got its name.
  std::vector<u64> List();

 private:
  void Look(std::set<u64>& days);
  // Paths of the saves of days that are not in `days`.
  [[nodiscard]] std::vector<std::string> LoneSaves(const std::set<u64>& days) const;
  [[nodiscard]] bool HasUnknown(const std::vector<std::string>& saves) const;
  // Whether the save holds all of its day.
  bool IsComplete(const std::string& save);

  std::string folder_;
  Problems& problems_;
  const Pause& pause_;
  std::map<std::string, bool> known_;  // lone saves that stayed, and whether they are complete
};

}  // namespace Host::Table
