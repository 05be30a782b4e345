// PolicyKeys: the numbers under which a host gives the module its policy.
#pragma once

#include "Velmar/Types.h"

namespace RYL::Module::PolicyKey {

inline constexpr u32 kNetdbEnabled = 0xD9C2B241;
inline constexpr u32 kCloudQueryEnabled = 0x558350A9;
inline constexpr u32 kKeepPrivateAddresses = 0x5CA94F63;
inline constexpr u32 kJitterFirstFilter = 0x31A4214F;
inline constexpr u32 kMaxDbSize = 0xE175E104;
inline constexpr u32 kMaxDbDays = 0x6F09981C;
inline constexpr u32 kMaxQueryBytes = 0xADB4BD19;
inline constexpr u32 kMaxQueryRows = 0xEF380598;

}  // namespace RYL::Module::PolicyKey
