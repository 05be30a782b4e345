// SummaryReport: a summary of one address or process as text.
#pragma once

#include <string>

#include "host/commands/Summary.h"

namespace Host::Commands {

// What was asked for.
struct Subject {
  std::string text;
  bool isAddress = false;  // or a block of them; else a path or a pattern
  bool isOne = true;       // one address, one path
};

inline constexpr std::size_t kShownNames = 10;

// One object: times as epoch milliseconds; each ranking with the number of all its names, and the first of them.
std::string SummaryJson(const Subject& subject, const Summary& summary);

struct SummaryStyle {
  std::size_t width = 0;  // of the terminal; 0: none, nothing is cut
  bool colour = false;
};
std::string SummaryTable(const Subject& subject, const Summary& summary, const SummaryStyle& style);

}  // namespace Host::Commands
