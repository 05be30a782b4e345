// Bodies of CommonArraySpecifications.
#pragma once

#include "Velmar/Collections/CommonArraySpecifications.h"
#include "VelmarLog.h"

namespace Velmar::Collections {

template <class T>
bool CommonArraySpecifications<T>::Get(u32 index, T& out) const {
  OS::ScopedLock lock(mutex);
  if (index >= count) {
    RYL_LOG(velmar, ArrayIndexOutOfRange, index, count);
    return false;
  }
  if (!CopyElement(out, data[index])) {
    RYL_LOG(velmar, ArrayElementNotCopied, index);
    return false;
  }
  return true;
}

template <class T>
bool CommonArraySpecifications<T>::PopBack() {
  OS::ScopedLock lock(mutex);
  if (data == nullptr) {
    RYL_LOG(velmar, ArrayWithoutData);
    return false;
  }
  if (count == 0) {
    return false;
  }
  --count;
  return true;
}

template <class T>
u32 CommonArraySpecifications<T>::GetCount() const {
  OS::ScopedLock lock(mutex);
  return count;
}

template <class T>
void CommonArraySpecifications<T>::Empty() {
  OS::ScopedLock lock(mutex);
  count = 0;
}

}  // namespace Velmar::Collections
