#include "common/netdb_storage/DayFileName.h"

#include "Velmar/Utils/String.h"

namespace RYL::NetDB {

namespace {
constexpr u32 kDigits = 10;
}

u32 ReadLeadingDigits(const char* name, u64& number) {
  number = 0;
  u32 digits = 0;
  for (; name[digits] >= '0' && name[digits] <= '9'; ++digits) {
    const auto digit = static_cast<u64>(name[digits] - '0');
    if (__builtin_mul_overflow(number, u64{10}, &number) || __builtin_add_overflow(number, digit, &number)) {
      number = ~u64{0};
    }
  }
  return digits;
}

bool IsDayFileName(const char* name, u64& day) {
  using Velmar::Utils::String;
  return ReadLeadingDigits(name, day) == kDigits &&
         (String::EndsWith(name, ".f", true, -1, -1) || String::EndsWith(name, ".db", true, -1, -1));
}

}  // namespace RYL::NetDB
