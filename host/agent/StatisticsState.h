// StatisticsState: the module's counters of earlier times, kept in a file between runs.
//
//   StatisticsState state(dataFolder);
//   if (!state.Load(error)) ...   // it was damaged; counting starts anew
//   session.SaveStatistics(tree); state.Add(tree);
//   state.Store(error);
//   state.FillHistory(history); session.GetStatus(history, report);
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Velmar/Collections/Array.h"
#include "Velmar/Utils/TreeContainer.h"
#include "host/Types.h"

namespace Host {

// Threads: thread-compatible. Errors: false with a sentence.
// Effects on disk: DIR/netdb-statistics.json, mode 0600, rewritten whole by way of a file ".temp" beside it. The data
// folder's lock must be held.
class StatisticsState {
 public:
  // Beyond this the oldest are added up, as 32-bit numbers that wrap, like the module does itself.
  static constexpr std::size_t kMaxTrees = 32;
  static constexpr std::size_t kMaxFileSize = 64 * 1024;

  explicit StatisticsState(const std::string& dataFolder);

  // No file is no error. After a false nothing is known of earlier times.
  bool Load(std::string& error);
  // Takes the whole numbers at the tree's root. One in which nothing was counted changes nothing.
  void Add(const Velmar::Utils::TreeContainer& tree);
  // Writes the file if something came since it was read or written. After a false the old file stands, and the next
  // call tries again.
  bool Store(std::string& error);
  // False without memory.
  bool FillHistory(Velmar::Collections::Array<Velmar::Utils::TreeContainer>& history) const;

 private:
  using Counters = std::map<std::string, u32>;

  bool Parse(const std::string& text);
  [[nodiscard]] std::string Text() const;
  void FoldOldest();

  std::string path_;
  std::vector<Counters> trees_;  // the oldest first
  bool changed_ = false;
};

}  // namespace Host
