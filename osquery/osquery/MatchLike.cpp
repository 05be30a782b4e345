#include "osquery/osquery/MatchLike.h"

namespace RYL::NetDB::OSQuery {

namespace {

constexpr char Folded(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool MatchesOne(char pattern, char c) {
  return pattern == '_' || Folded(pattern) == Folded(c);
}

}  // namespace

// Where a later "%" is reached, the earliest text for what stood before it leaves the most for the rest, so only the
// last "%" is ever tried again.
bool MatchLike(const char* text, const char* pattern) {
  const char* afterPercent = nullptr;
  const char* retryAt = nullptr;
  while (*text != '\0') {
    if (*pattern == '%') {
      afterPercent = ++pattern;
      retryAt = text;
    } else if (*pattern != '\0' && MatchesOne(*pattern, *text)) {
      ++pattern;
      ++text;
    } else if (afterPercent != nullptr) {
      pattern = afterPercent;
      text = ++retryAt;
    } else {
      return false;
    }
  }
  while (*pattern == '%') {
    ++pattern;
  }
  return *pattern == '\0';
}

}  // namespace RYL::NetDB::OSQuery
