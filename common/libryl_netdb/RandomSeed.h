// DrawRandomSeed: one number from the system's random device.
#pragma once

#include "Velmar/Types.h"

namespace RYL::Module {

// Throws a standard exception when the system has no random device.
Velmar::u32 DrawRandomSeed();

}  // namespace RYL::Module
