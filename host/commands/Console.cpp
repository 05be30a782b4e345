#include "host/commands/Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "host/text/Numbers.h"
#include "host/text/Utf8.h"

namespace Host::Commands {
namespace {

// Texts may hold names from outside.
void PrintMessage(const std::string& text, bool red) {
  std::cerr << (red ? "\x1B[31mnetdb:\x1B[0m " : "netdb: ") + Text::ToPrintable(text) + "\n";
}

}  // namespace

void PrintError(const std::string& text) {
  PrintMessage(text, WantsColour(STDERR_FILENO));
}

void PrintNote(const std::string& text) {
  PrintMessage(text, false);
}

bool IsTerminal(int descriptor) {
  return isatty(descriptor) == 1;
}

bool WantsColour(int descriptor) {
  const char* noColour = std::getenv("NO_COLOR");
  return IsTerminal(descriptor) && (noColour == nullptr || noColour[0] == '\0');
}

std::size_t TerminalWidth(int descriptor) {
  constexpr std::size_t kUsual = 80;
  winsize size = {};
  if (!IsTerminal(descriptor)) {
    return 0;
  }
  return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

bool TerminalTakesUtf8() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* locale = std::getenv(name);
    if (locale != nullptr && locale[0] != '\0') {
      const std::string lowered = Text::Lowered(locale);
      return lowered.find("utf-8") != std::string::npos || lowered.find("utf8") != std::string::npos;
    }
  }
  return false;
}

bool FinishOutput(std::ostream& out) {
  out.flush();
  if (out.good()) {
    return true;
  }
  PrintError("cannot write to standard output");
  return false;
}

}  // namespace Host::Commands
