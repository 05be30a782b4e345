// HistoryQuery: the SELECT statements of the commands that ask the history. No text from outside becomes SQL: values
// are parameters, names are looked up.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Cell.h"
#include "host/commands/HistoryFilter.h"

namespace Host::Commands {

struct Statement {
  std::string text;
  std::vector<Cell> parameters;
};

// `column` counts in Table::kColumns.
struct SortKey {
  std::size_t column = 0;
  bool descending = false;
};

struct RowQuery {
  HistoryFilter filter = {};
  std::vector<std::size_t> columns = {};  // in Table::kColumns, at least one
  std::vector<SortKey> order = {};        // empty: as stored, day by day
  std::optional<i64> limit = {};
};

// "ip, BYTES_IN"; an empty text is all columns. Nothing, with a sentence, for an unknown name and for one given twice.
std::optional<std::vector<std::size_t>> ReadColumns(const std::string& text, std::string& error);
// Each text is a list of "bytes_out:desc", "-bytes_out", "ip:asc" or "ip".
std::optional<std::vector<SortKey>> ReadOrder(const std::vector<std::string>& texts, std::string& error);
// A number above 0.
std::optional<i64> ReadLimit(const std::string& text, std::string& error);

Statement RowsStatement(const RowQuery& query);

// What the history is summed up by.
enum class GroupBy { kIp, kProcess, kPort, kDay };
enum class Measure { kBytes, kConns, kBytesIn, kBytesOut };
// "ip", "process", "port", "day".
std::optional<GroupBy> GroupByOf(const std::string& name);
// "bytes", "conns", "bytes_in", "bytes_out".
std::optional<Measure> MeasureOf(const std::string& name);

// Columns: the group, conns, bytes_in, bytes_out, bytes; the largest by `measure` first. Rows without a process are no
// process. Sums of bytes are real numbers.
Statement TopStatement(GroupBy groupBy, Measure measure, i64 limit, const TimeRange& range);

// What was first seen at `sinceSeconds` or later. Columns: kind ("ip" or "process"), name, first_seen, last_seen,
// conns, bytes_in, bytes_out; addresses before processes, each from the oldest to the latest.
Statement NewStatement(bool withIps, bool withProcesses, u64 sinceSeconds);

// All columns that a summary counts, in the order of SummaryRow (Summary.h).
Statement SummaryStatement(const HistoryFilter& filter);

}  // namespace Host::Commands
