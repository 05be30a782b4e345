// The stores that this system uses, each with both kinds of stream.
#include "Velmar/Collections/DB/MapDB.ipp"
#include "Velmar/Collections/DB/MapDBPersistence.ipp"
#include "Velmar/Collections/DB/MapDBPools.ipp"
#include "Velmar/Collections/DB/StoreFile.ipp"

namespace Velmar::Collections::DB {

#define RYL_STORE(K, V)                                                                       \
  template class MapDB<K, V>;                                                                 \
  template bool MapDB<K, V>::WriteStoreFile<OS::File>(OS::File&);                             \
  template bool MapDB<K, V>::ReadStoreFile<OS::File>(OS::File&);                              \
  template bool MapDB<K, V>::WriteStoreFile<Utils::DatabaseManager>(Utils::DatabaseManager&); \
  template bool MapDB<K, V>::ReadStoreFile<Utils::DatabaseManager>(Utils::DatabaseManager&);

RYL_STORE(u32, Caches::TimeCacheValue)
RYL_STORE(Types::UInt128, Caches::TimeCacheValue)
RYL_STORE(const char*, Buffer)
RYL_STORE(const char*, Utils::String)
#undef RYL_STORE

}  // namespace Velmar::Collections::DB
