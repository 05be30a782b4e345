// DayFileName: how the name of a day file tells its day.
#pragma once

#include "Velmar/Types.h"

namespace RYL::NetDB {

// Reads the decimal digits at the start of `name` as a number, which stops at all ones. The result is how many there
// are.
u32 ReadLeadingDigits(const char* name, u64& number);

// Whether `name` is that of a database file: 10 digits, and ".f" or ".db", in any case, at the end. `day` gets the
// number.
bool IsDayFileName(const char* name, u64& day);

}  // namespace RYL::NetDB
