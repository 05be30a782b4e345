#include "host/agent/PolicyText.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "host/agent/Policy.h"
#include "host/text/Utf8.h"

namespace Host {
namespace {

// Enough for every mistake that deserves a better message than this one, and a depth that no stack minds.
constexpr u32 kMaxNesting = 64;

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

// Behind the string that starts at `at`, in any of TOML's four forms.
std::size_t PassString(std::string_view document, std::size_t at) {
  constexpr std::size_t kMaxClosingQuotes = 5;  // two of the text and three that close it
  const char quote = document[at];
  const std::string fence(3, quote);
  const bool manyLines = StartsWith(document.substr(at), fence);
  at += manyLines ? 3 : 1;
  while (at < document.size()) {
    if (manyLines && StartsWith(document.substr(at), fence)) {
      const std::size_t end = std::min(document.find_first_not_of(quote, at), document.size());
      return std::min(end, at + kMaxClosingQuotes);
    }
    if (!manyLines && (document[at] == quote || document[at] == '\n')) {
      return document[at] == quote ? at + 1 : at;
    }
    at += quote == '"' && document[at] == '\\' ? 2 : 1;
  }
  return document.size();
}

// Walks over what stands outside of texts and comments.
class Structure {
 public:
  explicit Structure(std::string_view document) : document_(document) {}

  std::optional<TextFault> FindFault() {
    while (at_ < document_.size()) {
      const char c = document_[at_];
      if (c == '[' && isLineStart_ && depth_ == 0) {
        return Fault("a policy has no tables, only lines NAME = VALUE; the names are " + SettingNames());
      }
      Count(c);
      if (nested_ > kMaxNesting) {
        return Fault("too many tables, lists and dots; a policy has lines NAME = VALUE only");
      }
      Pass(c);
    }
    return std::nullopt;
  }

 private:
  [[nodiscard]] TextFault Fault(std::string sentence) const { return {LineAt(document_, at_), std::move(sentence)}; }

  void Count(char c) {
    const bool opens = c == '[' || c == '{';
    nested_ += opens || c == '.' ? 1 : 0;
    depth_ += opens ? 1 : 0;
    depth_ -= (c == ']' || c == '}') && depth_ > 0 ? 1 : 0;
  }

  void Pass(char c) {
    isLineStart_ = c == '\n' || (isLineStart_ && (c == ' ' || c == '\t'));
    if (c == '"' || c == '\'') {
      at_ = PassString(document_, at_);
    } else if (c == '#') {
      at_ = std::min(document_.find('\n', at_), document_.size());
    } else {
      ++at_;
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
