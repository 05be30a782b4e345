// The private side of CloudStatus, for tests: what the cloud's answers write, and whether there is a cache.
#pragma once

#include "Velmar/Collections/Caches/TimeCacheBasicTypeWrapper.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "common/cloud/CloudStatus.h"

namespace RYL::NetDB {

struct CloudStatusTestAccess {
  template <class T>
  static bool StoreVerdict(CloudStatus<T>& status, const T& address, bool isWhitelisted) {
    return status.StoreVerdict(address, isWhitelisted);
  }
  template <class T>
  static bool HasCache(const CloudStatus<T>& status) {
    return status.cache != nullptr;
  }
  // As after a switch that failed.
  template <class T>
  static void GiveUpCache(CloudStatus<T>& status) {
    Velmar::Collections::Delete(status.cache);
    status.cache = nullptr;
  }
  template <class T>
  static void CountRequest(CloudStatus<T>& status, bool successful) {
    ++status.total_requests;
    status.total_successful_requests += successful ? 1 : 0;
  }
};

}  // namespace RYL::NetDB
