#include "host/sql/SqlText.h"

#include <algorithm>

namespace Host::Sql {
namespace {

constexpr char kBlanks[] = " \t\r\n\f\v";

// The size of the comment that `sql` starts with; 0 when there is none, or no end of it.
std::size_t CommentSize(std::string_view sql) {
  if (sql.rfind("--", 0) == 0) {
    return std::min(sql.find('\n'), sql.size());
  }
  const std::size_t end = sql.rfind("/*", 0) == 0 ? sql.find("*/", 2) : std::string_view::npos;
  return end == std::string_view::npos ? 0 : end + 2;
}

}  // namespace

std::string Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == std::string_view::npos ? std::string()
                                         : std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

bool IsBlank(std::string_view sql) {
  for (;;) {
    sql.remove_prefix(std::min(sql.find_first_not_of(kBlanks), sql.size()));
    const std::size_t comment = CommentSize(sql);
    if (comment == 0) {
      return sql.empty();
    }
    sql.remove_prefix(comment);
  }
}

}  // namespace Host::Sql
