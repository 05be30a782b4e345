#include "common/libryl_netdb/FormatDateTime.h"

#include "Velmar/OS/DateTime.h"
#include "common/libryl_netdb/ModuleLog.h"

namespace RYL::Module {

bool FormatDateTime(u64 seconds, Velmar::Utils::String& out) {
  constexpr u64 kSignBit = u64{1} << 63;
  Velmar::OS::DateTime time;
  time.utc = true;
  if ((seconds & kSignBit) != 0 || !time.SetDateTime(static_cast<i64>(seconds))) {
    RYL_LOG(ryl_netdb, NoSuchTime, seconds);
    return false;
  }
  return out.SetFormat("%d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour, time.minute,
                       time.second);
}

}  // namespace RYL::Module
