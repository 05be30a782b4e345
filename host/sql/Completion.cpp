#include "host/sql/Completion.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace Host::Sql {
namespace {

constexpr const char* kWords[] = {
    ".exit",    ".help",   ".mode",     ".quit",  ".schema",  ".tables",    "ALL",      "AND",    "AS",     "ASC",
    "AVG(",     "BETWEEN", "BY",        "CASE",   "CAST(",    "COALESCE(",  "COUNT(",   "CREATE", "CROSS",  "DESC",
    "DISTINCT", "ELSE",    "END",       "EXCEPT", "EXISTS",   "EXPLAIN",    "FILTER",   "FROM",   "GLOB",   "GROUP",
    "HAVING",   "IFNULL(", "IIF(",      "IN",     "INNER",    "INTERSECT",  "IS",       "JOIN",   "LEFT",   "LENGTH(",
    "LIKE",     "LIMIT",   "LOWER(",    "MAX(",   "MIN(",     "NOT",        "NULL",     "OFFSET", "ON",     "OR",
    "ORDER",    "OVER",    "PARTITION", "PLAN",   "QUERY",    "RECURSIVE",  "REPLACE(", "ROUND(", "SELECT", "STRFTIME(",
    "SUBSTR(",  "SUM(",    "TABLE",     "TEMP",   "THEN",     "TOTAL(",     "UNION",    "USING",  "VALUES", "VIEW",
    "WHEN",     "WHERE",   "WITH",      "date(",  "in_cidr(", "ip_number(", "ts("};

char Lowered(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string Lowered(std::string_view text) {
  std::string lowered(text);
  std::transform(lowered.begin(), lowered.end(), lowered.begin(), [](char c) { return Lowered(c); });
  return lowered;
}

bool IsUpper(char c) {
  return c >= 'A' && c <= 'Z';
}

bool IsLower(char c) {
  return c >= 'a' && c <= 'z';
}

}  // namespace

std::vector<std::string> KnownWords() {
  return {std::begin(kWords), std::end(kWords)};
}

std::string_view WordAtEnd(std::string_view text) {
  std::size_t start = text.size();
  while (start > 0 && (std::isalnum(static_cast<unsigned char>(text[start - 1])) != 0 || text[start - 1] == '_' ||
                       text[start - 1] == '.')) {
    --start;
  }
  return text.substr(start);
}

std::vector<std::string> Completions(const std::vector<std::string>& words, std::string_view prefix) {
  if (prefix.empty()) {
    return {};
  }
  const std::string wanted = Lowered(prefix);
  const bool inLowerCase = std::any_of(prefix.begin(), prefix.end(), IsLower);
  std::set<std::string> found;
  for (const std::string& word : words) {
    const std::string lowered = Lowered(word);
    if (lowered.rfind(wanted, 0) == 0) {
      const bool isKeyword =
          std::none_of(word.begin(), word.end(), IsLower) && std::any_of(word.begin(), word.end(), IsUpper);
      found.insert(isKeyword && inLowerCase ? lowered : word);
    }
  }
  return {found.begin(), found.end()};
}

std::string CommonStart(const std::vector<std::string>& texts) {
  std::string start = texts.front();
  for (const std::string& text : texts) {
    const auto end = std::mismatch(start.begin(), start.end(), text.begin(), text.end()).first;
    start.erase(end, start.end());
  }
  return start;
}

}  // namespace Host::Sql
