// CellText: one cell as text, for people and for programs.
#pragma once

#include <string>

#include "host/Cell.h"
#include "host/render/Results.h"

namespace Host::Render {

enum class TimeStyle { kEpochMs, kUtc };

// The cell as it is: nothing for NULL, the bytes of a text, the fewest digits that give a real number again, and "Inf",
// "-Inf" or "NaN" for one without digits. A whole number of kTimeMs that is no negative one follows `times`.
std::string TextOf(const Cell& cell, ColumnKind kind, TimeStyle times);

// A JSON value: null for NULL and for a real number that JSON has no form for. A text is a string, but for one that is
// a whole number in a column of kNumber.
std::string JsonOf(const Cell& cell, ColumnKind kind);

}  // namespace Host::Render
