#include "Velmar/OS/Network.h"

#include <cstring>

namespace Velmar::OS {

namespace {

constexpr u32 kIPv4Size = 4;
constexpr u32 kIPv6Size = 16;
constexpr u32 kIPv6Groups = 8;
constexpr u32 kIPv4TextSize = 16;  // terminators included
constexpr u32 kIPv6TextSize = 40;

// Both writers return the end of what they wrote, which they do not terminate.

char* WriteDottedDecimal(const u8* bytes, char* out) {
  for (u32 i = 0; i < kIPv4Size; ++i) {
    if (i != 0) {
      *out++ = '.';
    }
    if (bytes[i] >= 100) {
      *out++ = static_cast<char>('0' + bytes[i] / 100);
    }
    if (bytes[i] >= 10) {
      *out++ = static_cast<char>('0' + bytes[i] / 10 % 10);
    }
    *out++ = static_cast<char>('0' + bytes[i] % 10);
  }
  return out;
}

char* WriteHexGroup(u32 group, char* out) {
  bool started = false;
  for (int shift = 12; shift >= 0; shift -= 4) {
    const u32 digit = (group >> shift) & 0xF;
    started = started || digit != 0 || shift == 0;
    if (started) {
      *out++ = "0123456789abcdef"[digit];
    }
  }
  return out;
}

struct Run {
  u32 first = kIPv6Groups;
  u32 count = 0;
};

// The longest run of two or more zero groups, the first of equals.
Run FindLongestZeroRun(const u32 (&groups)[kIPv6Groups]) {
  Run best;
  Run current;
  for (u32 i = 0; i < kIPv6Groups; ++i) {
    if (groups[i] != 0) {
      current.count = 0;
      continue;
    }
    current.first = current.count == 0 ? i : current.first;
    ++current.count;
    if (current.count >= 2 && current.count > best.count) {
      best = current;
    }
  }
  return best;
}

char* WriteGroups(const u32 (&groups)[kIPv6Groups], char* out) {
  const Run zeroes = FindLongestZeroRun(groups);
  bool needsColon = false;
  for (u32 i = 0; i < kIPv6Groups;) {
    if (i == zeroes.first) {
      *out++ = ':';
      *out++ = ':';
      i += zeroes.count;
      needsColon = false;
      continue;
    }
    if (needsColon) {
      *out++ = ':';
    }
    out = WriteHexGroup(groups[i], out);
    needsColon = true;
    ++i;
  }
  return out;
}

bool IsIPv4Mapped(const u8 (&bytes)[kIPv6Size]) {
  static constexpr u8 kPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  return std::memcmp(bytes, kPrefix, sizeof(kPrefix)) == 0;
}

// Copies the text between `begin` and `end` with a terminator; false if that does not fit.
bool CopyText(const char* begin, const char* end, char* out, u32 size) {
  const std::size_t length = static_cast<std::size_t>(end - begin);
  if (out == nullptr || length >= size) {
    return false;
  }
  std::memcpy(out, begin, length);
  out[length] = '\0';
  return true;
}

// The whole of `text` up to its terminator must be an address.
bool ParseDottedDecimal(const char* text, u8* out) {
  for (u32 part = 0; part < kIPv4Size; ++part) {
    if (part != 0 && *text++ != '.') {
      return false;
    }
    const char* const first = text;
    u32 value = 0;
    while (*text >= '0' && *text <= '9' && text - first < 3) {
      value = value * 10 + static_cast<u32>(*text++ - '0');
    }
    const bool hasLeadingZero = *first == '0' && text - first > 1;
    if (text == first || hasLeadingZero || value > 255) {
      return false;
    }
    out[part] = static_cast<u8>(value);
  }
  return *text == '\0';
}

bool HexDigitOf(char c, u32& digit) {
  if (c >= '0' && c <= '9') {
    digit = static_cast<u32>(c - '0');
  } else if (c >= 'a' && c <= 'f') {
    digit = static_cast<u32>(c - 'a') + 10;
  } else if (c >= 'A' && c <= 'F') {
    digit = static_cast<u32>(c - 'A') + 10;
  } else {
    return false;
  }
  return true;
}

// Reads an address from left to right into `bytes`, remembering where "::" stood.
class IPv6Parser {
 public:
  bool Parse(const char* text) {
    if (text[0] == ':' && text[1] != ':') {
      return false;
    }
    text_ = text;
    while (*text_ != '\0') {
      if (!ParseElement()) {
        return false;
      }
    }
    return Expand();
  }

  [[nodiscard]] const u8* GetBytes() const { return bytes_; }

 private:
  // "::", or a group or dotted tail with the one colon that leads on from it.
  bool ParseElement() {
    if (text_[0] == ':' && text_[1] == ':') {
      if (gap_ != kNone) {
        return false;
      }
      gap_ = used_;
      text_ += 2;
      return *text_ != ':';
    }
    if (used_ != 0 && used_ != gap_) {
      ++text_;  // the colon that AppendGroup saw
    }
    const char* const element = text_;
    u32 group = 0;
    if (used_ == kIPv6Size || !ParseGroup(group)) {
      return false;
    }
    return *text_ == '.' ? ParseTail(element) : AppendGroup(group);
  }

  bool ParseGroup(u32& group) {
    u32 digit = 0;
    u32 digits = 0;
    for (; digits < 4 && HexDigitOf(*text_, digit); ++digits) {
      group = group << 4 | digit;
      ++text_;
    }
    return digits != 0;
  }

  bool AppendGroup(u32 group) {
    bytes_[used_++] = static_cast<u8>(group >> 8);
    bytes_[used_++] = static_cast<u8>(group);
    return *text_ == ':' || *text_ == '\0';
  }

  bool ParseTail(const char* element) {
    if (used_ + kIPv4Size > kIPv6Size || !ParseDottedDecimal(element, bytes_ + used_)) {
      return false;
    }
    used_ += kIPv4Size;
    text_ = element + std::strlen(element);
    return true;
  }

  // Moves what stood behind "::" to the end. The gap stands for at least one group.
  bool Expand() {
    if (gap_ == kNone) {
      return used_ == kIPv6Size;
    }
    if (used_ == kIPv6Size) {
      return false;
    }
    const u32 behind = used_ - gap_;
    std::memmove(bytes_ + kIPv6Size - behind, bytes_ + gap_, behind);
    std::memset(bytes_ + gap_, 0, kIPv6Size - used_);
    return true;
  }

  const char* text_ = nullptr;
  u8 bytes_[kIPv6Size] = {};
  u32 used_ = 0;
  u32 gap_ = kNone;
};

}  // namespace

bool Network::ConvertIPv4BinaryToString(u32 address, char* out, u32 size) {
  u8 bytes[kIPv4Size];
  std::memcpy(bytes, &address, sizeof(bytes));
  char text[kIPv4TextSize];
  return CopyText(text, WriteDottedDecimal(bytes, text), out, size);
}

bool Network::ConvertIPv6BinaryToString(Types::UInt128 address, char* out, u32 size) {
  u8 bytes[kIPv6Size];
  std::memcpy(bytes, address.words, sizeof(bytes));
  char text[kIPv6TextSize];
  if (IsIPv4Mapped(bytes)) {
    std::memcpy(text, "::ffff:", 7);
    return CopyText(text, WriteDottedDecimal(bytes + kIPv6Size - kIPv4Size, text + 7), out, size);
  }
  u32 groups[kIPv6Groups];
  for (u32 i = 0; i < kIPv6Groups; ++i) {
    groups[i] = static_cast<u32>(bytes[2 * i]) << 8 | bytes[2 * i + 1];
  }
  return CopyText(text, WriteGroups(groups, text), out, size);
}

bool Network::ConvertIPv4StringToBinary(const char* text, u32& address) {
  u8 bytes[kIPv4Size];
  if (text == nullptr || !ParseDottedDecimal(text, bytes)) {
    return false;
  }
  std::memcpy(&address, bytes, sizeof(bytes));
  return true;
}

bool Network::ConvertIPv6StringToBinary(const char* text, Types::UInt128& address) {
  IPv6Parser parser;
  if (text == nullptr || !parser.Parse(text)) {
    return false;
  }
  std::memcpy(address.words, parser.GetBytes(), kIPv6Size);
  return true;
}

}  // namespace Velmar::OS
