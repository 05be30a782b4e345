#include "host/agent/PolicyText.h"

#include <algorithm>
#include <cstdio>

#include "host/agent/Policy.h"
#include "host/text/Utf8.h"

namespace Host {
namespace {

// Enough for every mistake that deserves a better message than this one, and a depth that no stack minds.
constexpr u32 kMaxNesting = 64;
// The one head of a table that there may be.
constexpr std::string_view kCloudHead = "[cloud]";

u32 LineAt(std::string_view document, std::size_t at) {
  return 1 + static_cast<u32>(std::count(document.begin(), document.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
}

std::string HexOf(char byte) {
  char text[8];
  std::snprintf(text, sizeof(text), "0x%02X", static_cast<unsigned>(static_cast<u8>(byte)));
  return text;
}

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool HasByteOrderMark(std::string_view document) {
  return StartsWith(document, "\xEF\xBB\xBF") || StartsWith(document, "\xFF\xFE") || StartsWith(document, "\xFE\xFF");
}

// A carriage return belongs to the line end behind it.
bool IsRefusedControl(std::string_view document, std::size_t at) {
  const char c = document[at];
  if (c == '\r') {
    return at + 1 == document.size() || document[at + 1] != '\n';
  }
  return (static_cast<u8>(c) < 0x20 && c != '\t' && c != '\n') || c == 0x7F;
}

std::optional<TextFault> FindBadCharacter(std::string_view document) {
  for (std::size_t at = 0; at < document.size();) {
    const std::size_t length = Text::Utf8Length(document.substr(at, 4));
    if (length == 0) {
      return TextFault{LineAt(document, at), "the byte " + HexOf(document[at]) + " is not part of a UTF-8 text"};
    }
    if (IsRefusedControl(document, at)) {
      return TextFault{LineAt(document, at),
                       "the control character " + HexOf(document[at]) + " has no place in a policy"};
    }
    at += length;
  }
  return std::nullopt;
}

bool IsBeyondAscii(char c) {
  return static_cast<u8>(c) >= 0x80;
}

// Behind the string of one line that starts at `at`; the line's end when nothing closes it.
std::size_t PassString(std::string_view document, std::size_t at) {
  const char quote = document[at++];
  while (at < document.size() && document[at] != '\n') {
    if (document[at] == quote) {
      return at + 1;
    }
    at += quote == '"' && document[at] == '\\' && at + 1 < document.size() && document[at + 1] != '\n' ? 2 : 1;
  }
  return at;
}

// Walks over what stands outside of texts and comments, and refuses what no line NAME = VALUE holds: the parser has
// mistakes in what it does with most of that.
class Structure {
 public:
  explicit Structure(std::string_view document) : document_(document) {}

  std::optional<TextFault> FindFault() {
    while (at_ < document_.size()) {
      const std::string sentence = FaultHere();
      if (!sentence.empty()) {
        return TextFault{LineAt(document_, at_), sentence};
      }
      Pass();
    }
    return std::nullopt;
  }

 private:
  std::string FaultHere() {
    const char c = document_[at_];
    const std::string_view rest = document_.substr(at_);
    if (c == '[' && isLineStart_ && depth_ == 0 && !StartsWith(rest, kCloudHead)) {
      return "a policy has no table but [cloud], only lines NAME = VALUE; the names are " + SettingNames();
    }
    if (StartsWith(rest, "\"\"\"") || StartsWith(rest, "'''")) {
      return "a policy has no texts of several lines";
    }
    const std::string_view passed = document_.substr(at_, Next() - at_);
    if (c != '#' && std::any_of(passed.begin(), passed.end(), IsBeyondAscii)) {
      return "outside of comments a policy is ASCII";
    }
    Count(c);
    return nested_ > kMaxNesting ? "too many tables, lists and dots; a policy has lines NAME = VALUE only" : "";
  }

  void Count(char c) {
    const bool opens = c == '[' || c == '{';
    nested_ += opens || c == '.' ? 1 : 0;
    depth_ += opens ? 1 : 0;
    depth_ -= (c == ']' || c == '}') && depth_ > 0 ? 1 : 0;
  }

  void Pass() {
    const char c = document_[at_];
    isLineStart_ = c == '\n' || (isLineStart_ && (c == ' ' || c == '\t'));
    at_ = Next();
  }

  // Behind the text, the comment or the character that is here.
  [[nodiscard]] std::size_t Next() const {
    switch (document_[at_]) {
      case '"':
      case '\'':
        return PassString(document_, at_);
      case '#':
        return std::min(document_.find('\n', at_), document_.size());
      default:
        return at_ + 1;
    }
  }

  std::string_view document_;
  std::size_t at_ = 0;
  bool isLineStart_ = true;
  u32 nested_ = 0;  // openings and dots so far
  u32 depth_ = 0;   // openings that are not closed
};

}  // namespace

std::optional<TextFault> FindTextFault(std::string_view document) {
  if (document.size() > kMaxPolicySize) {
    return TextFault{1, "a policy may have 1 MiB (" + std::to_string(kMaxPolicySize) + " bytes) at most"};
  }
  if (HasByteOrderMark(document)) {
    return TextFault{1, "it starts with a byte order mark; a policy is UTF-8 without one"};
  }
  if (auto fault = FindBadCharacter(document)) {
    return fault;
  }
  return Structure(document).FindFault();
}

}  // namespace Host
