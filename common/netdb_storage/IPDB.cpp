#include "common/netdb_storage/IPDB.ipp"

namespace RYL::NetDB {

template class IPDB<IPv4>;
template class IPDB<IPv6>;

}  // namespace RYL::NetDB
