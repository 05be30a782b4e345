// PolicyText: what the text of a policy must be before a TOML parser gets it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/Types.h"

namespace Host {

// The most bytes that a policy may have.
inline constexpr std::size_t kMaxPolicySize = 1024 * 1024;

struct TextFault {
  u32 line = 0;
  std::string sentence;
};

// The first of these faults: too long, a byte order mark, not UTF-8, a control character, a table's head but [cloud], a
// text of several lines, other letters than those of ASCII outside of comments, and more brackets and dots than belong
// into lines NAME = VALUE. The last bounds the depth of whatever a parser makes of the document.
std::optional<TextFault> FindTextFault(std::string_view document);

}  // namespace Host
