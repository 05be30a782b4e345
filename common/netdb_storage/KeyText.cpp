#include "common/netdb_storage/KeyText.h"

#include <cstdio>

namespace RYL::NetDB {

namespace {

constexpr u8 kMask = 0xA7;
constexpr u32 kCycle = 5;

constexpr u32 RotationAt(u32 position) {
  return 1 + position % kCycle;
}

template <u32 Size>
struct ScrambledText {
  u8 bytes[Size];
};

// Each byte XORed with one constant and rotated right by an amount that follows a short cycle over the position.
template <std::size_t Size>
consteval ScrambledText<Size> Scramble(const char (&plain)[Size]) {
  ScrambledText<Size> scrambled{};
  for (u32 i = 0; i < Size; ++i) {
    const u32 masked = static_cast<u8>(plain[i]) ^ kMask;
    scrambled.bytes[i] = static_cast<u8>(masked >> RotationAt(i) | masked << (8 - RotationAt(i)));
  }
  return scrambled;
}

// Read as volatile, so that no compiler works the plain form out beforehand. The terminator is scrambled with the rest.
constexpr auto kTable = Scramble("ryl-netdb/%04d-%02d-%02d");
const volatile auto kFormat = kTable;
constexpr u32 kFormatSize = sizeof(kTable.bytes);
static_assert(kFormatSize <= 26 + 1 && kFormatSize <= kKeyTextRoom);

void Unscramble(volatile char* format) {
  for (u32 i = 0; i < kFormatSize; ++i) {
    const u32 scrambled = kFormat.bytes[i];
    const u32 masked = scrambled << RotationAt(i) | scrambled >> (8 - RotationAt(i));
    format[i] = static_cast<char>(static_cast<u8>(masked) ^ kMask);
  }
}

}  // namespace

u32 MakeKeyText(char (&text)[kKeyTextRoom], i32 year, i32 month, i32 day) {
  char format[kKeyTextRoom] = {};
  Unscramble(format);
  const int written = std::snprintf(text, sizeof(text), format, year, month, day);
  WipeMemory(format, sizeof(format));
  if (written <= 0 || static_cast<u32>(written) >= sizeof(text)) {
    WipeMemory(text, sizeof(text));
    return 0;
  }
  return static_cast<u32>(written);
}

void WipeMemory(void* area, u32 size) {
  volatile u8* bytes = static_cast<volatile u8*>(area);
  for (u32 i = 0; i < size; ++i) {
    bytes[i] = 0;
  }
}

}  // namespace RYL::NetDB
