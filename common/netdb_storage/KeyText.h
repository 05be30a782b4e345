// KeyText: the text that the cipher key of a day is made of.
#pragma once

#include "Velmar/Types.h"

namespace RYL::NetDB {

inline constexpr u32 kKeyTextRoom = 32;

// Writes the text of a calendar day, NUL-terminated. Its length, or 0 and a zeroed `text` when it cannot be formatted.
// The format lies scrambled in the program; it stands plain on the stack for the time of the call only.
u32 MakeKeyText(char (&text)[kKeyTextRoom], i32 year, i32 month, i32 day);

// Zeroes `area` in a way that the optimiser keeps although nothing reads it afterwards.
void WipeMemory(void* area, u32 size);

}  // namespace RYL::NetDB
