// Whole numbers, hex digits and lists in texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Types.h"

namespace Host::Text {

// A number of digits only, at most `limit`. Thread-safe, as all here.
std::optional<u64> ReadCount(std::string_view text, u64 limit);
// "-12" too.
std::optional<i64> ReadSigned(std::string_view text);
// Exactly `size` bytes as hex digits of either case into `out`. False, with `out` untouched, for anything else.
bool ReadHex(std::string_view text, u8* out, std::size_t size);
// Two lower-case digits a byte.
std::string ToHex(const u8* bytes, std::size_t size);
// The parts between separators; an empty text has one empty part. They are views into `text`, which must outlive them.
std::vector<std::string_view> SplitList(std::string_view text, char separator);
// ASCII letters in lower case.
std::string Lowered(std::string_view text);

}  // namespace Host::Text
