// How the platform writes a file path.
#pragma once

namespace Velmar::OS::PathRules {

#if defined(_WIN32)
inline constexpr char kSeparator = '\\';
// Two separators at the start name a server and are no doubled separator.
inline constexpr bool kKeepsLeadingPair = true;
constexpr bool IsSeparator(char c) {
  return c == '\\' || c == '/';
}
#else
inline constexpr char kSeparator = '/';
inline constexpr bool kKeepsLeadingPair = false;
constexpr bool IsSeparator(char c) {
  return c == '/';
}
#endif

}  // namespace Velmar::OS::PathRules
