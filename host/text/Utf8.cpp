#include "host/text/Utf8.h"

#include <algorithm>
#include <cstdio>

#include "Velmar/Utils/Utf8.h"

namespace Host::Text {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";

u8 ByteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<u8>(text[at]) : 0;
}

bool IsContinuation(u8 byte) {
  return (byte & 0xC0) == 0x80;
}

// C0, DEL, and the C1 range of two-byte characters.
bool IsControl(std::string_view character) {
  const u8 first = ByteAt(character, 0);
  return first < 0x20 || first == 0x7F || (first == 0xC2 && ByteAt(character, 1) < 0xA0);
}

// U+061C, U+200E, U+200F, U+2028 to U+202E and U+2066 to U+2069: they break lines, or turn the order of what follows.
bool IsInvisibleOrder(std::string_view character) {
  const u8 first = ByteAt(character, 0);
  const u8 second = ByteAt(character, 1);
  const u8 third = ByteAt(character, 2);
  if (first != 0xE2) {
    return character == "\xD8\x9C";
  }
  return second == 0x80 ? third == 0x8E || third == 0x8F || (third >= 0xA8 && third <= 0xAE)
                        : second == 0x81 && third >= 0xA6 && third <= 0xA9;
}

// Of a character of two or three bytes.
std::string CodeEscape(std::string_view character) {
  const unsigned lead = character.size() == 2 ? ByteAt(character, 0) & 0x1FU : ByteAt(character, 0) & 0x0FU;
  unsigned code = lead;
  for (std::size_t i = 1; i < character.size(); ++i) {
    code = code << 6U | (ByteAt(character, i) & 0x3FU);
  }
  char text[16];
  std::snprintf(text, sizeof(text), "\\u%04X", code);
  return text;
}

std::string HexEscape(std::string_view bytes, const char* format) {
  char text[16];
  std::snprintf(text, sizeof(text), format, ByteAt(bytes, bytes.size() - 1));
  return text;
}

// Gives each well-formed character, or the replacement for a byte, to `take`.
template <class Take>
void ForEachCharacter(std::string_view text, Take take) {
  while (!text.empty()) {
    const std::size_t length = Utf8Length(text);
    take(length == 0 ? std::string_view(kReplacement) : text.substr(0, length));
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
}

}  // namespace

std::size_t Utf8Length(std::string_view text) {
  return Velmar::Utils::Utf8Length(text.data(), text.size());
}

std::string ToValidUtf8(std::string_view text) {
  std::string result;
  ForEachCharacter(text, [&result](std::string_view character) { result += character; });
  return result;
}

std::string ToPrintable(std::string_view text) {
  std::string result;
  ForEachCharacter(text, [&result](std::string_view character) {
    result += IsControl(character)          ? HexEscape(character, "\\x%02X")
              : IsInvisibleOrder(character) ? CodeEscape(character)
                                            : std::string(character);
  });
  return result;
}

std::size_t CountCharacters(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return !IsContinuation(static_cast<u8>(c)); }));
}

std::string FirstCharacters(std::string_view text, std::size_t count) {
  std::size_t end = 0;
  for (; end < text.size() && (count > 0 || IsContinuation(static_cast<u8>(text[end]))); ++end) {
    count -= IsContinuation(static_cast<u8>(text[end])) ? 0 : 1;
  }
  return std::string(text.substr(0, end));
}

std::string LastCharacters(std::string_view text, std::size_t count) {
  const std::size_t all = CountCharacters(text);
  const std::size_t dropped = FirstCharacters(text, all - std::min(count, all)).size();
  return std::string(text.substr(dropped));
}

std::string ToJsonString(std::string_view text) {
  std::string result = "\"";
  ForEachCharacter(text, [&result](std::string_view character) {
    if (character == "\"" || character == "\\") {
      result += '\\';
      result += character;
    } else if (static_cast<u8>(character[0]) < 0x20) {
      result += HexEscape(character, "\\u%04x");
    } else {
      result += character;
    }
  });
  return result + '"';
}

}  // namespace Host::Text
