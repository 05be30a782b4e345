#include "common/netdb_storage/IPRecord.ipp"

namespace RYL::NetDB {

template struct IPRecord<IPv4>;
template struct IPRecord<IPv6>;

}  // namespace RYL::NetDB
