// Summary: rows of the history added up.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/Cell.h"

namespace Host::Commands {

// A number that is not negative: whole, real (numbers past those of SQL) or as the digits of a text; 0 for anything
// else.
u64 NumberOf(const Cell& cell);
// A text as it is, a number as its digits.
std::string TextOf(const Cell& cell);

struct Tally {
  u64 conns = 0;
  u64 bytes = 0;
};

// How much each name has.
class Ranking {
 public:
  struct Entry {
    std::string name;
    Tally tally;
  };

  void Add(const std::string& name, const Tally& tally);
  [[nodiscard]] std::size_t Count() const { return tallies_.size(); }
  // The `count` names with the most connections, of equals those with the most bytes.
  [[nodiscard]] std::vector<Entry> Top(std::size_t count) const;

 private:
  std::map<std::string, Tally> tallies_;
};

// Sums stay at the most that 64 bits hold. Memory grows with the names, not with the rows. Threads: thread-compatible.
struct Summary {
  u64 firstSeenMs = ~u64{0};
  u64 lastSeenMs = 0;
  std::set<u64> days;  // since 1970
  u64 connsTotal = 0;
  u64 connsIn = 0;
  u64 connsOut = 0;
  u64 bytesIn = 0;
  u64 bytesOut = 0;
  Ranking ports;
  Ranking protocols;  // a row counts for each of its protocols
  Ranking processes;  // "" are rows without one
  Ranking peers;

  // The cells of a row of SummaryStatement.
  void Add(const std::vector<Cell>& cells);
  [[nodiscard]] bool IsEmpty() const { return days.empty(); }
};

}  // namespace Host::Commands
