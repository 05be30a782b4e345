#include "host/text/Numbers.h"

#include <algorithm>
#include <limits>

namespace Host::Text {
namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

std::optional<u64> ReadCount(std::string_view text, u64 limit) {
  u64 value = 0;
  for (const char c : text) {
    const u64 digit = static_cast<u64>(static_cast<u8>(c)) - '0';
    if (digit > 9 || digit > limit || value > (limit - digit) / 10) {
      return std::nullopt;
    }
    value = value * 10 + digit;
  }
  return text.empty() ? std::nullopt : std::optional<u64>(value);
}

std::optional<i64> ReadSigned(std::string_view text) {
  const bool negative = !text.empty() && text[0] == '-';
  const auto magnitude = ReadCount(text.substr(negative ? 1 : 0), static_cast<u64>(std::numeric_limits<i64>::max()));
  if (!magnitude) {
    return std::nullopt;
  }
  return negative ? -static_cast<i64>(*magnitude) : static_cast<i64>(*magnitude);
}

bool ReadHex(std::string_view text, u8* out, std::size_t size) {
  const auto isHex = [](char c) { return HexValue(c) >= 0; };
  if (text.size() != 2 * size || !std::all_of(text.begin(), text.end(), isHex)) {
    return false;
  }
  for (std::size_t i = 0; i < size; ++i) {
    out[i] = static_cast<u8>(HexValue(text[2 * i]) * 16 + HexValue(text[2 * i + 1]));
  }
  return true;
}

std::string ToHex(const u8* bytes, std::size_t size) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

std::vector<std::string_view> SplitList(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) {
      return parts;
    }
    text.remove_prefix(end + 1);
  }
}

std::string Lowered(std::string_view text) {
  std::string lowered(text);
  std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return lowered;
}

}  // namespace Host::Text
