// Body of MatchLike, over anything that walks a text as a pointer does, so that a test can count its steps.
#pragma once

#include "Velmar/Types.h"

namespace RYL::NetDB::OSQuery::LikeMatcher {

using Velmar::u32;
using Velmar::u8;

struct FoldTable {
  u8 bytes[256] = {};
};

constexpr FoldTable MakeFoldTable() {
  FoldTable table;
  for (u32 byte = 0; byte < sizeof(table.bytes); ++byte) {
    const bool isUpper = byte >= 'A' && byte <= 'Z';
    table.bytes[byte] = static_cast<u8>(isUpper ? byte - 'A' + 'a' : byte);
  }
  return table;
}

inline constexpr FoldTable kFolded = MakeFoldTable();

constexpr bool MatchesOne(char pattern, char c) {
  return pattern == '_' || kFolded.bytes[static_cast<u8>(pattern)] == kFolded.bytes[static_cast<u8>(c)];
}

// Tried at each place of the text, what stands between two "%" is best taken where it first fits: that leaves the most
// for the rest. So only the last "%" is ever tried again, and each place of the text at most once for each of them.
template <class Text, class Pattern>
constexpr bool Match(Text text, Pattern pattern) {
  bool hasPercent = false;
  Pattern afterPercent = pattern;
  Text retryAt = text;
  while (*text != '\0') {
    if (*pattern == '%') {
      hasPercent = true;
      afterPercent = ++pattern;
      retryAt = text;
      if (*pattern == '\0') {
        return true;
      }
    } else if (*pattern != '\0' && MatchesOne(*pattern, *text)) {
      ++pattern;
      ++text;
    } else if (hasPercent) {
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

}  // namespace RYL::NetDB::OSQuery::LikeMatcher
