// The private side of CloudStatus, for tests: what the cloud's answers write, and whether there is a cache.
#pragma once

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
  template <class T>
  static void CountRequest(CloudStatus<T>& status, bool successful) {
    ++status.total_requests;
    status.total_successful_requests += successful ? 1 : 0;
  }
};

}  // namespace RYL::NetDB
