// What the name of a file in the folder of day files says.
#pragma once

#include <string>

#include "host/Types.h"

namespace Host::Verify {

struct DayName {
  enum class Kind {
    kOther,       // no day file
    kPlain,       // "1699920000.db"
    kFiltered,    // "1699920000.db.f"
    kUnusual,     // taken for a day file, though the module gives none such a name: "1699920000.DB", "1699920000.x.f"
    kNineDigits,  // a day before 2001-09-10, which no query finds by its name
  };
  Kind kind = Kind::kOther;
  u64 day = 0;  // the number at its start
};

// `name` is the bare name. Thread-safe.
DayName ReadDayName(const std::string& name);

}  // namespace Host::Verify
