#include "host/commands/HistoryQuery.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>

#include "host/table/Columns.h"
#include "host/text/Numbers.h"

namespace Host::Commands {
namespace {

using Table::kColumns;

constexpr i64 kMsPerSecond = 1000;
// Hides a column from the search of the table: an OR of two searches would give its rows search by search, not day by
// day.
constexpr char kUnsearched[] = "+";

// Epoch milliseconds; times that the form does not hold are later than any row.
i64 ToMs(u64 seconds) {
  constexpr i64 kMax = std::numeric_limits<i64>::max() / kMsPerSecond;
  return std::min(static_cast<i64>(std::min(seconds, static_cast<u64>(kMax))), kMax) * kMsPerSecond;
}

// The alternatives of one part of a filter, with their values.
struct AnyOf {
  std::vector<std::string> alternatives;
  std::vector<Cell> parameters;

  // `before` and `behind` stand around the value, such as "ip = " and "".
  template <class Value>
  void AddEach(const std::string& before, const std::vector<Value>& values, const char* behind = "") {
    for (const Value& value : values) {
      alternatives.push_back(before + "?" + behind);
      parameters.emplace_back(value);
    }
  }
  // One of the values: a single search, however many there are.
  template <class Value>
  void AddEquals(const std::string& column, const std::vector<Value>& values) {
    if (values.size() < 2) {
      AddEach(column + " = ", values);
      return;
    }
    std::string text = column + " IN (";
    for (const Value& value : values) {
      text += text.back() == '(' ? "?" : ", ?";
      parameters.emplace_back(value);
    }
    alternatives.push_back(text + ')');
  }
};

// `count` alternatives from `first` on, at least one. SQL limits the depth of an expression, and in a plain row of ORs
// each is one deeper than the next.
std::string AnyText(const std::vector<std::string>& alternatives, std::size_t first, std::size_t count) {
  constexpr std::size_t kPlainRow = 100;
  std::string text;
  if (count <= kPlainRow) {
    for (std::size_t i = first; i < first + count; ++i) {
      text += (text.empty() ? "" : " OR ") + alternatives[i];
    }
    return text;
  }
  const std::size_t half = count / 2;
  return '(' + AnyText(alternatives, first, half) + ") OR (" + AnyText(alternatives, first + half, count - half) + ')';
}

void AddPart(const AnyOf& part, Statement& statement, bool& first) {
  if (part.alternatives.empty()) {
    return;
  }
  statement.text += (first ? " WHERE (" : " AND (") + AnyText(part.alternatives, 0, part.alternatives.size()) + ')';
  statement.parameters.insert(statement.parameters.end(), part.parameters.begin(), part.parameters.end());
  first = false;
}

template <class Value>
void AddValues(const char* column, const std::vector<Value>& values, Statement& statement, bool& first) {
  AnyOf part;
  part.AddEquals(column, values);
  AddPart(part, statement, first);
}

void AddRange(const TimeRange& range, Statement& statement, bool& first) {
  const TimeRange all;
  AnyOf since;
  AnyOf until;
  if (range.since != all.since) {
    since.AddEach("last_seen >= ", std::vector<i64>{ToMs(range.since)});
  }
  if (range.until != all.until) {
    until.AddEach("first_seen <= ", std::vector<i64>{ToMs(range.until)});
  }
  AddPart(since, statement, first);
  AddPart(until, statement, first);
}

void AddPaths(const HistoryFilter& filter, Statement& statement, bool& first) {
  const bool isOneSearch = filter.pathPatterns.empty() || (filter.pathPatterns.size() == 1 && filter.paths.empty());
  const std::string column = std::string(isOneSearch ? "" : kUnsearched) + "proc_fpath";
  AnyOf paths;
  paths.AddEquals(column, filter.paths);
  paths.AddEach(column + " LIKE ", filter.pathPatterns);
  AddPart(paths, statement, first);
}

void AddFilter(const HistoryFilter& filter, Statement& statement) {
  bool first = true;
  AddRange(filter.range, statement, first);

  AnyOf addresses;
  addresses.AddEquals(std::string(filter.blocks.empty() ? "" : kUnsearched) + "ip", filter.addresses);
  addresses.AddEach("in_cidr(ip, ", filter.blocks, ")");
  AddPart(addresses, statement, first);

  AddPaths(filter, statement, first);
  AddValues("port", filter.ports, statement, first);

  std::vector<std::string> protocols;
  for (const std::string& name : filter.protocols) {
    protocols.push_back("," + name + ",");
  }
  AnyOf spoken;
  spoken.AddEach("instr(',' || protos || ',', ", protocols, ") > 0");
  AddPart(spoken, statement, first);
  AddValues("proc_md5", filter.md5s, statement, first);
  AddValues("proc_qid", filter.qids, statement, first);
}

// The items of a list with commas, without the blanks around them.
std::vector<std::string> ItemsOf(const std::string& list) {
  std::vector<std::string> items;
  for (const std::string_view part : Text::SplitList(list, ',')) {
    const std::size_t start = std::min(part.find_first_not_of(' '), part.size());
    items.emplace_back(part.substr(start, part.find_last_not_of(' ') + 1 - start));
  }
  return items;
}

std::optional<std::size_t> FindColumn(const std::string& name, std::string& error) {
  const std::string wanted = Text::Lowered(name);
  const auto* found =
      std::find_if(kColumns.begin(), kColumns.end(), [&](const auto& column) { return wanted == column.name; });
  if (found != kColumns.end()) {
    return static_cast<std::size_t>(found - kColumns.begin());
  }
  error = "\"" + name + "\" is no column; the columns are ";
  for (const auto& column : kColumns) {
    error += (&column == kColumns.data() ? "" : ", ") + std::string(column.name);
  }
  return std::nullopt;
}

std::optional<SortKey> ReadSortKey(const std::string& text, std::string& error) {
  const bool isMarked = !text.empty() && text[0] == '-';
  const std::size_t colon = text.find(':');
  const std::string direction = colon == std::string::npos ? "" : Text::Lowered(text.substr(colon + 1));
  const bool isKnown = colon == std::string::npos || (!isMarked && (direction == "asc" || direction == "desc"));
  if (!isKnown) {
    error = "\"" + text + "\" is no order; give a column, COLUMN:asc, COLUMN:desc or -COLUMN";
    return std::nullopt;
  }
  const std::size_t start = isMarked ? 1 : 0;
  const auto column = FindColumn(text.substr(start, colon == std::string::npos ? colon : colon - start), error);
  return column ? std::optional<SortKey>({*column, isMarked || direction == "desc"}) : std::nullopt;
}

// What is a number to people but a text in SQL sorts as a number.
std::string SortTerms(const SortKey& key) {
  const std::string direction = key.descending ? " DESC" : "";
  const std::string name = kColumns[key.column].name;
  if (name == "ip") {
    return "ip_number(ip)" + direction;
  }
  const bool isDigits =
      kColumns[key.column].kind == Render::ColumnKind::kNumber && std::string(kColumns[key.column].type) == "TEXT";
  return (isDigits ? "length(" + name + ")" + direction + ", " : "") + name + direction;
}

const char* GroupExpression(GroupBy groupBy) {
  switch (groupBy) {
    case GroupBy::kProcess:
      return "proc_fpath";
    case GroupBy::kPort:
      return "port";
    case GroupBy::kDay:
      return "strftime('%Y-%m-%d', first_seen / 1000, 'unixepoch')";
    default:
      return "ip";
  }
}

// The place of the measure among the columns of TopStatement, as ORDER BY counts.
std::string MeasurePlace(Measure measure) {
  switch (measure) {
    case Measure::kConns:
      return "2";
    case Measure::kBytesIn:
      return "3";
    case Measure::kBytesOut:
      return "4";
    default:
      return "5";
  }
}

// A sum of real numbers is exact up to 2^53, and does not fail where whole numbers of SQL end.
constexpr char kSums[] = "sum(conns_total), total(bytes_in), total(bytes_out)";
constexpr char kKnownProcess[] = "proc_fpath <> ''";

std::string NewOf(const char* kind, const char* column, const char* condition) {
  return std::string("SELECT '") + kind + "' AS kind, " + column +
         " AS name, min(first_seen) AS since, max(last_seen), " + kSums + " FROM edr_netdb" + condition + " GROUP BY " +
         column + " HAVING min(first_seen) >= ?";
}

}  // namespace

std::optional<std::vector<std::size_t>> ReadColumns(const std::string& text, std::string& error) {
  std::vector<std::size_t> columns;
  if (text.empty()) {
    for (std::size_t i = 0; i < kColumns.size(); ++i) {
      columns.push_back(i);
    }
    return columns;
  }
  for (const std::string& name : ItemsOf(text)) {
    const auto column = FindColumn(name, error);
    if (!column) {
      return std::nullopt;
    }
    if (std::find(columns.begin(), columns.end(), *column) != columns.end()) {
      error = "the column " + std::string(kColumns[*column].name) + " is named twice";
      return std::nullopt;
    }
    columns.push_back(*column);
  }
  return columns;
}

std::optional<std::vector<SortKey>> ReadOrder(const std::vector<std::string>& texts, std::string& error) {
  std::vector<SortKey> order;
  for (const std::string& text : texts) {
    for (const std::string& item : ItemsOf(text)) {
      const auto key = ReadSortKey(item, error);
      if (!key) {
        return std::nullopt;
      }
      order.push_back(*key);
    }
  }
  return order;
}

std::optional<i64> ReadLimit(const std::string& text, std::string& error) {
  const auto limit = Text::ReadCount(text, static_cast<u64>(std::numeric_limits<i64>::max()));
  if (!limit || *limit == 0) {
    error = "\"" + text + "\" is no limit; give a number above 0";
    return std::nullopt;
  }
  return static_cast<i64>(*limit);
}

Statement RowsStatement(const RowQuery& query) {
  Statement statement;
  for (const std::size_t column : query.columns) {
    statement.text += (statement.text.empty() ? "SELECT " : ", ") + std::string(kColumns[column].name);
  }
  statement.text += " FROM edr_netdb";
  AddFilter(query.filter, statement);
  for (std::size_t i = 0; i < query.order.size(); ++i) {
    statement.text += (i == 0 ? " ORDER BY " : ", ") + SortTerms(query.order[i]);
  }
  if (query.limit) {
    statement.text += " LIMIT ?";
    statement.parameters.emplace_back(*query.limit);
  }
  return statement;
}

std::optional<GroupBy> GroupByOf(const std::string& name) {
  constexpr const char* kNames[] = {"ip", "process", "port", "day"};
  const auto* found = std::find(std::begin(kNames), std::end(kNames), name);
  return found == std::end(kNames) ? std::nullopt
                                   : std::optional<GroupBy>(static_cast<GroupBy>(found - std::begin(kNames)));
}

std::optional<Measure> MeasureOf(const std::string& name) {
  constexpr const char* kNames[] = {"bytes", "conns", "bytes_in", "bytes_out"};
  const auto* found = std::find(std::begin(kNames), std::end(kNames), name);
  return found == std::end(kNames) ? std::nullopt
                                   : std::optional<Measure>(static_cast<Measure>(found - std::begin(kNames)));
}

Statement TopStatement(GroupBy groupBy, Measure measure, i64 limit, const TimeRange& range) {
  const std::string group = GroupExpression(groupBy);
  Statement statement;
  statement.text = "SELECT " + group + ", " + kSums + ", total(bytes_in) + total(bytes_out) FROM edr_netdb";
  bool first = true;
  AddRange(range, statement, first);
  if (groupBy == GroupBy::kProcess) {
    statement.text += std::string(first ? " WHERE " : " AND ") + kKnownProcess;
  }
  statement.text += " GROUP BY 1 ORDER BY " + MeasurePlace(measure) + " DESC, 1 LIMIT ?";
  statement.parameters.emplace_back(limit);
  return statement;
}

Statement NewStatement(bool withIps, bool withProcesses, u64 sinceSeconds) {
  Statement statement;
  if (withIps) {
    statement.text = NewOf("ip", "ip", "");
    statement.parameters.emplace_back(ToMs(sinceSeconds));
  }
  if (withProcesses) {
    const std::string condition = std::string(" WHERE ") + kKnownProcess;
    statement.text += (withIps ? " UNION ALL " : "") + NewOf("process", "proc_fpath", condition.c_str());
    statement.parameters.emplace_back(ToMs(sinceSeconds));
  }
  statement.text += " ORDER BY kind, since, name";
  return statement;
}

Statement SummaryStatement(const HistoryFilter& filter) {
  Statement statement;
  statement.text =
      "SELECT ip, first_seen, last_seen, port, protos, conns_total, conns_in, conns_out, bytes_in, bytes_out, "
      "proc_fpath FROM edr_netdb";
  AddFilter(filter, statement);
  return statement;
}

}  // namespace Host::Commands
