// The indexes for each key type that they serve.
#include "Velmar/Utils/BinarySearch.ipp"
#include "Velmar/Utils/HashMapSearch.ipp"
#include "Velmar/Utils/IndexSearch.ipp"
#include "Velmar/Utils/LinearSearch.ipp"
#include "Velmar/Utils/RBTSearch.ipp"

namespace Velmar::Collections {

template class RedBlackTree<u32, char>;

}  // namespace Velmar::Collections

namespace Velmar::Utils {

template class FlatSearch<u32>;
template class FlatSearch<Types::UInt128>;
template class FlatSearch<const char*>;

template class BinarySearch<u32>;
template class BinarySearch<Types::UInt128>;
template class BinarySearch<const char*>;

template class LinearSearch<u32>;
template class LinearSearch<Types::UInt128>;
template class LinearSearch<const char*>;

template class IndexSearch<u32>;
template class IndexSearch<Types::UInt128>;

template class RBTSearch<u32>;
template class RBTSearch<Types::UInt128>;
template class RBTSearch<const char*>;

template class HashMapSearch<u32>;
template class HashMapSearch<Types::UInt128>;

}  // namespace Velmar::Utils
