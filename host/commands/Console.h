// Console: the two streams as people see them: data on one, messages on the other.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>

namespace Host::Commands {

// "netdb: TEXT" on standard error; errors are red where that is a terminal and NO_COLOR is not set.
void PrintError(const std::string& text);
void PrintNote(const std::string& text);

bool IsTerminal(int descriptor);
// Where a terminal is behind the descriptor and NO_COLOR is not set.
bool WantsColour(int descriptor);
// Columns of the terminal, 0 when there is none.
std::size_t TerminalWidth(int descriptor);
// Whether the environment's locale is one of UTF-8.
bool TerminalTakesUtf8();

// Flushes and says whether all data reached standard output; prints the error if not.
bool FinishOutput(std::ostream& out);

}  // namespace Host::Commands
