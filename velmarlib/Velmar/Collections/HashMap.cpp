// The one map that this system uses: locations by the hashes of their keys.
#include "Velmar/Collections/HashMap.ipp"

namespace Velmar::Collections {

template class HashMap<u64, u32>;

}  // namespace Velmar::Collections
