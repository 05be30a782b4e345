// UTF-8 as texts from outside have it: valid or not.
#pragma once

#include <string>
#include <string_view>

#include "host/Types.h"

namespace Host::Text {

// Bytes of the well-formed character (Unicode, table 3-7) that `text` starts with; 0 when it does not start with one.
std::size_t Utf8Length(std::string_view text);

// U+FFFD in place of each byte that is no part of a well-formed character.
std::string ToValidUtf8(std::string_view text);

// The same, and control characters as "\x1B", so that a text cannot steer a terminal; those that turn the order of
// writing or break a line as "\u202E", so that one name cannot look like another.
std::string ToPrintable(std::string_view text);

// Characters of a valid text.
std::size_t CountCharacters(std::string_view text);
// Its first or last `count` characters.
std::string FirstCharacters(std::string_view text, std::size_t count);
std::string LastCharacters(std::string_view text, std::size_t count);

// A JSON string with its quotes, valid UTF-8 whatever `text` is.
std::string ToJsonString(std::string_view text);

}  // namespace Host::Text
