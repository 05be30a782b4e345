// HistoryFilter: which rows of the history a command is asked for, read from the texts of its options.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/commands/TimeRange.h"

namespace Host::Commands {

// As the options have them, each as often as it was given.
struct FilterTexts {
  std::vector<std::string> ips = {};
  std::vector<std::string> processes = {};
  std::vector<std::string> ports = {};
  std::vector<std::string> protocols = {};
  std::vector<std::string> md5s = {};
  std::vector<std::string> qids = {};
};

// A row passes when it passes each part; an empty part lets all pass, a list those that have any of it. Texts are in
// the form in which rows have them.
struct HistoryFilter {
  TimeRange range = {};                        // of which a row's time from first to last seen has a part
  std::vector<std::string> addresses = {};     // these and blocks are one part
  std::vector<std::string> blocks = {};        // "10.0.0.0/8"
  std::vector<std::string> paths = {};         // these and pathPatterns are one part
  std::vector<std::string> pathPatterns = {};  // LIKE patterns
  std::vector<i64> ports = {};
  std::vector<std::string> protocols = {};  // one name each
  std::vector<std::string> md5s = {};
  std::vector<std::string> qids = {};
};

// Nothing, with a sentence in `error`, for a value that no row can have.
std::optional<HistoryFilter> ReadFilter(const FilterTexts& texts, const TimeRange& range, std::string& error);

// Takes an address or a block of addresses into `filter`. False with a sentence for anything else.
bool AddIp(const std::string& text, HistoryFilter& filter, std::string& error);
// Takes a path, which is a LIKE pattern when it holds "%".
bool AddProcess(const std::string& text, HistoryFilter& filter, std::string& error);

}  // namespace Host::Commands
