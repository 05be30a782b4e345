// The readable side of the release log: names, levels and texts of the messages of all folders.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

#include "Velmar/Log.h"

namespace Host::Render {

// One row of a Messages.def.
struct LogText {
  Velmar::u32 id;
  Velmar::Log::Level level;
  const char* name;  // "velmar.ArrayCeilingReached"
  const char* text;  // with {0}, {1} for the arguments
  // The record's arguments as text, by the types of the row.
  std::vector<std::string> (*decode)(std::va_list arguments);
};

// Null for an identifier that no folder has. Thread-safe.
const LogText* FindLogText(Velmar::u32 messageId);
const std::vector<LogText>& AllLogTexts();

// The row's text with its arguments in place.
std::string FormatLogText(const LogText& row, const std::vector<std::string>& arguments);

}  // namespace Host::Render
