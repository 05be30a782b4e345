// QueryFilters: what a history query asks for, as constraints of the query engine.
#pragma once

#include "Velmar/Collections/Array.h"
#include "Velmar/Types.h"
#include "common/libryl_netdb/ProtocolTable.h"
#include "common/libryl_netdb/QueryEventReader.h"
#include "common/netdb_storage/QueryConstraints.h"

namespace RYL::Module {

// Lifetime: one query; the event and the table must outlive it, and it the constraints that AddTo filled, whose filters
// look into its lists. Threads: AddTo once, on the owner's thread; the filters are thread-safe.
class QueryFilters {
 public:
  // Most ports, file hashes or identities of a query; the constraints take as many addresses or paths.
  static constexpr u32 kMaxValues = 128;

  QueryFilters(const QueryEventReader& query, const NetDB::ProtocolTable& protocols)
      : event(query), protocolTable(protocols) {}
  QueryFilters(const QueryFilters&) = delete;
  QueryFilters& operator=(const QueryFilters&) = delete;

  // Takes the values of the event by its kind. False after a record of level 5: unknown kind, no values, a value that
  // is missing, cannot be read or finds no room, and a filter that finds none. `constraints` then hold a part.
  bool AddTo(NetDB::QueryConstraints& constraints);

 private:
  using Md5 = Velmar::Types::UInt128;
  using Identity = Velmar::Types::UInt256;
  struct Kind;

  bool AddAddresses(NetDB::QueryConstraints& constraints);
  bool AddPaths(NetDB::QueryConstraints& constraints);
  bool AddPorts(NetDB::QueryConstraints& constraints);
  bool AddProtocols(NetDB::QueryConstraints& constraints);
  bool AddFileHashes(NetDB::QueryConstraints& constraints);
  bool AddIdentities(NetDB::QueryConstraints& constraints);

  // Gives each value to `take`, whose false ends it.
  template <class Take>
  bool ForEachValue(Take take) const;
  // Fills `list` with what convert(text, value) makes of each value.
  template <class T, class Convert>
  bool FillSorted(Velmar::Collections::Array<T>& list, Convert convert) const;

  const QueryEventReader& event;
  const NetDB::ProtocolTable& protocolTable;
  Velmar::Collections::Array<u16> ports;
  Velmar::Collections::Array<Md5> fileHashes;
  Velmar::Collections::Array<Identity> identities;
};

}  // namespace RYL::Module
