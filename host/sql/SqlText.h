// SqlText: looks at SQL as text.
#pragma once

#include <string>
#include <string_view>

namespace Host::Sql {

// Without blanks and line ends around it.
std::string Trimmed(std::string_view text);
// Whether there is nothing but blanks and whole comments.
bool IsBlank(std::string_view sql);

}  // namespace Host::Sql
