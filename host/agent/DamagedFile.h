// What a recording program does about today's file when it cannot be read.
#pragma once

#include <string>

#include "Velmar/Types.h"

namespace Host {

// A day file that cannot be loaded would refuse every row of its day. Renames each such file of the day that holds
// `now` (epoch seconds) to NAME.damaged (NAME.damaged.1 and so on when that is taken), which is no database name, and
// says so in `report`, a line a file. False when a damaged file could not be renamed.
bool SetAsideDamagedFiles(const std::string& databaseFolder, Velmar::u64 now, std::string& report);

}  // namespace Host
