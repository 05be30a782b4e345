// IPDB: the removal of harmless addresses.
#include "common/netdb_storage/DBManager.h"
#include "common/netdb_storage/IPDB.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

template <class T>
const T* IPDB<T>::UniqIPIterator::Next() {
  while (current + 1 != end && current[1].ip.Compare(current->ip) == 0) {
    ++current;
  }
  return &(current++)->ip;
}

template <class T>
bool IPDB<T>::FilterWhitelisted(CloudStatus<T>* cloud, DBManager* db) {
  if (rows.count == 0) {
    return true;
  }
  if (rows.data == nullptr) {
    RYL_LOG(netdb_storage, RowMissing, rows.count);
    return false;
  }
  UniqIPIterator addresses(rows.data, rows.data + rows.count);
  const bool resolved = cloud->Resolve(&addresses);
  if (!resolved) {
    RYL_LOG(netdb_storage, AddressesNotResolved);
  }
  // A process must not outlive its rows in the file, so none goes unless all may.
  if (!db->PrepareReleases()) {
    return false;
  }
  const u32 removed = rows.count - CompactRows(*cloud, *db);
  RYL_LOG(netdb_storage, RowsFiltered, removed);
  for (u32 i = 0; i < removed; ++i) {
    rows.PopBack();
  }
  return resolved;
}

template <class T>
u32 IPDB<T>::CompactRows(CloudStatus<T>& cloud, DBManager& db) {
  u32 write = 0;
  for (u32 read = 0; read < rows.count;) {
    const T address = rows.data[read].ip;
    const bool harmless = cloud.IsWhitelisted(&address);
    for (; read < rows.count && rows.data[read].ip.Compare(address) == 0; ++read) {
      const u32 process = rows.data[read].proc_index;
      if (!harmless) {
        if (read != write) {
          rows.data[write] = rows.data[read];
        }
        ++write;
      } else if (process != kNone) {
        db.ReleaseProcess(process);
      }
    }
  }
  return write;
}

template const IPv4* IPDB<IPv4>::UniqIPIterator::Next();
template const IPv6* IPDB<IPv6>::UniqIPIterator::Next();
template bool IPDB<IPv4>::FilterWhitelisted(CloudStatus<IPv4>* cloud, DBManager* db);
template bool IPDB<IPv6>::FilterWhitelisted(CloudStatus<IPv6>* cloud, DBManager* db);

}  // namespace RYL::NetDB
