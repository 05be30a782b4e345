#include "common/libryl_netdb/QueryFilters.h"

#include <cstring>

#include "Velmar/OS/Network.h"
#include "Velmar/Utils/String.h"
#include "common/HashKind.h"
#include "common/HexText.h"
#include "common/libryl_netdb/ModuleLog.h"

namespace RYL::Module {
namespace {

using NetDB::IPv4;
using NetDB::Process;
using NetDB::ProcessFilter;
using NetDB::QueryConstraints;
using Velmar::Collections::Array;
using Velmar::Collections::GrowType;
using Velmar::Utils::String;
using IPFilter = NetDB::IPDB<IPv4>::Filter;
using IPRow = NetDB::IPDB<IPv4>::IPRecord;

constexpr u32 kListGrowth = 64;

// Asks for all rows of the range; its values are not looked at.
constexpr u32 kEverything = 0x81998A35;

// False after a record that names the value.
bool CheckRead(bool read, const char* value) {
  if (!read) {
    RYL_LOG(ryl_netdb, QueryValueRefused, value);
  }
  return read;
}

bool CheckKept(bool kept, const char* value) {
  if (!kept) {
    RYL_LOG(ryl_netdb, QueryValueNotKept, value);
  }
  return kept;
}

template <class Filter>
bool AddFilter(Array<Filter>& filters, const Filter& filter) {
  if (filter && filters.Add(filter)) {
    return true;
  }
  RYL_LOG(ryl_netdb, QueryFilterNotAdded);
  return false;
}

// A digest as the words that lie in memory, the form in which a process keeps it.
template <class Words, std::size_t Size>
Words WordsOf(const u8 (&digest)[Size]) {
  static_assert(sizeof(Words) == Size);
  Words words;
  std::memcpy(&words, digest, Size);
  return words;
}

template <class Words>
bool ParseDigest(const char* text, Words& digest) {
  u8 bytes[sizeof(Words)];
  if (!NetDB::ParseHex(text, bytes, sizeof(bytes))) {
    return false;
  }
  digest = WordsOf<Words>(bytes);
  return true;
}

bool ParsePort(const char* text, u16& port) {
  constexpr u32 kToTerminator = 0;
  constexpr int kDecimal = 10;
  return String::ConvertToUInt16(text, port, kToTerminator, kDecimal);
}

}  // namespace

// Kinds are known by the hash of their text only.
struct QueryFilters::Kind {
  u32 hash;
  bool (QueryFilters::*add)(QueryConstraints& constraints);
};

bool QueryFilters::AddTo(QueryConstraints& constraints) {
  static constexpr Kind kKinds[] = {
      {0x2C457A39, &QueryFilters::AddAddresses},  {0x1AD02EE8, &QueryFilters::AddPaths},
      {0x1EDFDC12, &QueryFilters::AddPorts},      {0xF65CAED9, &QueryFilters::AddProtocols},
      {0x1556E329, &QueryFilters::AddFileHashes}, {0xBB8B66B7, &QueryFilters::AddIdentities},
  };
  const u32 hash = NetDB::HashKind(event.GetKind());
  if (hash == kEverything) {
    return true;
  }
  for (const Kind& kind : kKinds) {
    if (kind.hash != hash) {
      continue;
    }
    if (event.GetValueCount() == 0) {
      RYL_LOG(ryl_netdb, QueryWithoutValues, event.GetKind());
      return false;
    }
    return (this->*kind.add)(constraints);
  }
  RYL_LOG(ryl_netdb, QueryKindUnknown, event.GetKind());
  return false;
}

template <class Take>
bool QueryFilters::ForEachValue(Take take) const {
  const u32 count = event.GetValueCount();
  for (u32 index = 0; index < count; ++index) {
    const char* value = event.GetValue(index);
    if (value == nullptr) {
      RYL_LOG(ryl_netdb, QueryValueMissing, index, count);
      return false;
    }
    if (!take(value)) {
      return false;
    }
  }
  return true;
}

template <class T, class Convert>
bool QueryFilters::FillSorted(Array<T>& list, Convert convert) const {
  if (!list.Create(0, kMaxValues, kListGrowth, true, GrowType::kFixedStep)) {
    RYL_LOG(ryl_netdb, QueryListNotCreated);
    return false;
  }
  const bool filled = ForEachValue([&list, convert](const char* text) {
    T value{};
    return CheckRead(convert(text, value), text) && CheckKept(list.Add(value), text);
  });
  if (filled) {
    list.Sort(true);
  }
  return filled;
}

bool QueryFilters::AddAddresses(QueryConstraints& constraints) {
  return ForEachValue([&constraints](const char* text) {
    u32 raw = 0;
    return CheckRead(Velmar::OS::Network::ConvertIPv4StringToBinary(text, raw), text) &&
           CheckKept(constraints.ips_wanted.Add(IPv4::FromRaw(raw)), text);
  });
}

bool QueryFilters::AddPaths(QueryConstraints& constraints) {
  return ForEachValue([&constraints](const char* text) {
    constexpr int kPathArea = 512;
    char area[kPathArea];
    String path;
    path.Create(area, kPathArea, true, true);
    return CheckKept(path.Set(text) && constraints.paths_wanted.Add(path), text);
  });
}

bool QueryFilters::AddPorts(QueryConstraints& constraints) {
  return FillSorted(ports, ParsePort) && AddFilter<IPFilter>(constraints.ip_filters, [&list = ports](const IPRow& row) {
           return list.BinarySearch(row.port, nullptr, nullptr);
         });
}

bool QueryFilters::AddProtocols(QueryConstraints& constraints) {
  u16 mask = 0;
  const bool known = ForEachValue([this, &mask](const char* name) {
    u16 bits = 0;
    const bool found = CheckRead(protocolTable.LookupProtocol(name, bits), name);
    mask = static_cast<u16>(mask | bits);
    return found;
  });
  return known &&
         AddFilter<IPFilter>(constraints.ip_filters, [mask](const IPRow& row) { return (row.protos & mask) != 0; });
}

bool QueryFilters::AddFileHashes(QueryConstraints& constraints) {
  return FillSorted(fileHashes, ParseDigest<Md5>) &&
         AddFilter<ProcessFilter>(constraints.process_filters, [&list = fileHashes](const Process& process) {
           return list.BinarySearch(WordsOf<Md5>(process.proc_md5), nullptr, nullptr);
         });
}

bool QueryFilters::AddIdentities(QueryConstraints& constraints) {
  return FillSorted(identities, ParseDigest<Identity>) &&
         AddFilter<ProcessFilter>(constraints.process_filters, [&list = identities](const Process& process) {
           return list.BinarySearch(WordsOf<Identity>(process.proc_qid), nullptr, nullptr);
         });
}

}  // namespace RYL::Module
