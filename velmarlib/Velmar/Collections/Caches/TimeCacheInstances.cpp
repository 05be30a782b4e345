// The time caches that this system uses.
#include "Velmar/Collections/Caches/TimeCacheBasicTypeWrapper.ipp"

namespace Velmar::Collections::Caches::Base {

template class TimeCacheBasicTypeWrapper<u32, bool>;
template class TimeCacheBasicTypeWrapper<Types::UInt128, bool>;

}  // namespace Velmar::Collections::Caches::Base
