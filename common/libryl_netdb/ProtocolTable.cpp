#include "common/libryl_netdb/ProtocolTable.h"

#include "Velmar/OS/Threading.h"
#include "common/libryl_netdb/ModuleLog.h"

namespace RYL::NetDB {
namespace {

struct KnownName {
  const char* name;
  u16 mask;
};

constexpr KnownName kNames[ProtocolTable::kKnownNames] = {
    {"tcp", 0x0800},    {"ssl", 0x0040},  {"https", 0x0001}, {"http(s)", 0x0001}, {"http", 0x0001},
    {"ftp", 0x0004},    {"ftps", 0x0004}, {"smb", 0x0002},   {"ssh", 0x0020},     {"rdp", 0x0010},
    {"telnet", 0x0008}, {"wmi", 0x0080},  {"rpc", 0x0100},
};

constexpr u32 kFirstMultiplier = 63689;
constexpr u32 kMultiplierFactor = 378551;
constexpr u32 kCaseDistance = 'a' - 'A';

}  // namespace

bool ProtocolTable::Create(u32 capacity, u32 ceiling, u32 growStep, bool threadSafe,
                           Velmar::Collections::GrowType growType) {
  if (created) {
    RYL_LOG(ryl_netdb, ProtocolTableExists);
    return false;
  }
  created = entries.Create(capacity, ceiling, growStep, threadSafe, growType);
  return created;
}

bool ProtocolTable::Insert(const char* name, u16 mask) {
  const Velmar::OS::ScopedLock lock(entries.mutex);
  const u32 hash = HashProtocolName(name);
  const u32 index = LowerBound(hash);
  if (index < entries.count && entries.data[index].hash == hash) {
    RYL_LOG(ryl_netdb, ProtocolNameTwice, name);
    return false;
  }
  return entries.InsertAt(index, Entry{hash, mask});
}

bool ProtocolTable::InsertKnownNames() {
  for (const KnownName& known : kNames) {
    if (!Insert(known.name, known.mask)) {
      return false;
    }
  }
  return true;
}

u32 ProtocolTable::HashProtocolName(const char* name) const {
  u32 hash = 0;
  u32 multiplier = kFirstMultiplier;
  for (; *name != '\0'; ++name) {
    const char c = *name;
    hash = hash * multiplier + static_cast<u32>(static_cast<signed char>(c));
    if (caseFold && c >= 'A' && c <= 'Z') {
      hash += kCaseDistance;
    }
    multiplier *= kMultiplierFactor;
  }
  return hash;
}

bool ProtocolTable::LookupProtocol(const char* name, u16& mask) const {
  if (name == nullptr) {
    RYL_LOG(ryl_netdb, NoProtocolName);
    return false;
  }
  const u32 hash = HashProtocolName(name);
  const Velmar::OS::ScopedLock lock(entries.mutex);
  const u32 index = LowerBound(hash);
  if (index == entries.count || entries.data[index].hash != hash) {
    return false;
  }
  mask = entries.data[index].mask;
  return true;
}

u32 ProtocolTable::LowerBound(u32 hash) const {
  u32 low = 0;
  u32 high = entries.count;
  while (low < high) {
    const u32 middle = low + (high - low) / 2;
    if (entries.data[middle].hash < hash) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

}  // namespace RYL::NetDB
