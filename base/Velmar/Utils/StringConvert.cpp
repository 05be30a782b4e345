#include <cstring>

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/StreamBuffer.h"
#include "Velmar/Utils/String.h"

namespace Velmar::Utils {

namespace {

constexpr u32 kNoDigit = 0xFF;
constexpr char kNoStop = static_cast<char>(0xFF);

u32 DigitOf(char c) {
  if (c >= '0' && c <= '9') {
    return static_cast<u32>(c - '0');
  }
  if (c >= 'a' && c <= 'z') {
    return static_cast<u32>(c - 'a') + 10;
  }
  if (c >= 'A' && c <= 'Z') {
    return static_cast<u32>(c - 'A') + 10;
  }
  return kNoDigit;
}

// value * base + digit, false on overflow.
bool AppendDigit(u64& value, u32 base, u32 digit) {
  constexpr u64 kLargest = ~u64{0};
  if (value > (kLargest - digit) / base) {
    return false;
  }
  value = value * base + digit;
  return true;
}

}  // namespace

bool String::BufferToHex(const void* data, u32 size, char* out, u32 outSize, bool upperCase, bool separate) {
  const u64 separators = separate && size != 0 ? u64{size} - 1 : 0;
  if (out == nullptr || (data == nullptr && size != 0) || 2 * u64{size} + separators + 1 > outSize) {
    return false;
  }
  const char* digits = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
  const u8* bytes = static_cast<const u8*>(data);
  for (u32 i = 0; i < size; ++i) {
    if (separate && i != 0) {
      *out++ = ' ';
    }
    *out++ = digits[bytes[i] >> 4];
    *out++ = digits[bytes[i] & 0xF];
  }
  *out = '\0';
  return true;
}

bool String::ConvertToUInt16(const char* text, u16& value, u32 textLength, int base) {
  u64 wide = 0;
  if (!ConvertToUInt64(text, wide, textLength, base, kNoStop) || wide > 0xFFFF) {
    return false;
  }
  value = static_cast<u16>(wide);
  return true;
}

bool String::ConvertToUInt64(const char* text, u64& value, u32 textLength, int base, char stop) {
  if (text == nullptr || (base != -1 && (base < 2 || base > 36))) {
    return false;
  }
  const bool toTerminator = textLength == 0 || textLength == kNone;
  const std::size_t length = toTerminator ? std::strlen(text) : textLength;
  std::size_t first = 0;
  if (base == -1) {
    const bool isHex = length > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    base = isHex ? 16 : 10;
    first = isHex ? 2 : 0;
  }
  u64 result = 0;
  std::size_t i = first;
  for (; i < length && (stop == kNoStop || text[i] != stop); ++i) {
    const u32 digit = DigitOf(text[i]);
    if (digit >= static_cast<u32>(base) || !AppendDigit(result, static_cast<u32>(base), digit)) {
      return false;
    }
  }
  if (i == first) {
    return false;
  }
  value = result;
  return true;
}

bool String::Serialize(Collections::Buffer& out, void* /*context*/) const {
  const u32 start = out.size;
  if (out.PushUInt32(static_cast<u32>(length)) == kNone) {
    return false;
  }
  if (out.PushBuffer(text, static_cast<u32>(length)) == kNone) {
    out.Truncate(start);
    return false;
  }
  return true;
}

bool String::Deserialize(Collections::StreamBuffer& in, void* /*context*/) {
  u32 newLength = 0;
  if (!in.Read(newLength) || newLength > 0x7FFFFFFEU) {
    return false;
  }
  const u8* bytes = in.Take(newLength);
  return bytes != nullptr && Set(reinterpret_cast<const char*>(bytes), static_cast<int>(newLength));
}

}  // namespace Velmar::Utils
