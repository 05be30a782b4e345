// Completion: what a word that is being typed may become.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Host::Sql {

// SQL's words, SQLite's and our functions, and the dot commands, in order; keywords in upper case.
std::vector<std::string> KnownWords();

// The end of `text` that a completion would replace: letters, digits, underscores and dots.
std::string_view WordAtEnd(std::string_view text);

// Those of `words` that start with `prefix`, whatever the case of either, each once and in order. A keyword follows a
// prefix in lower case. None for an empty prefix.
std::vector<std::string> Completions(const std::vector<std::string>& words, std::string_view prefix);

// What all have in common at their start. `texts` must not be empty.
std::string CommonStart(const std::vector<std::string>& texts);

}  // namespace Host::Sql
