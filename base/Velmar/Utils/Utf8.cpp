#include "Velmar/Utils/Utf8.h"

namespace Velmar::Utils {
namespace {

bool IsContinuation(u8 byte) {
  return (byte & 0xC0) == 0x80;
}

}  // namespace

u32 Utf8Length(const char* text, u64 size) {
  const auto byteAt = [text, size](u64 at) { return at < size ? static_cast<u8>(text[at]) : u8{0}; };
  const u8 first = byteAt(0);
  const u8 second = byteAt(1);
  if (size == 0 || first < 0x80) {
    return size == 0 ? 0 : 1;
  }
  const bool tail2 = IsContinuation(byteAt(2));
  const bool tail3 = tail2 && IsContinuation(byteAt(3));
  if (first < 0xC2 || first > 0xF4 || !IsContinuation(second)) {
    return 0;
  }
  if (first < 0xE0) {
    return 2;
  }
  // No overlong forms, no surrogates, nothing beyond U+10FFFF.
  if (first < 0xF0) {
    const bool good = tail2 && !(first == 0xE0 && second < 0xA0) && !(first == 0xED && second >= 0xA0);
    return good ? 3 : 0;
  }
  const bool good = tail3 && !(first == 0xF0 && second < 0x90) && !(first == 0xF4 && second >= 0x90);
  return good ? 4 : 0;
}

}  // namespace Velmar::Utils
