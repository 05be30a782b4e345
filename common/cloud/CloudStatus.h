// CloudStatus: what the cloud said about remote addresses, kept for 48 hours each.
#pragma once

#include <atomic>

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"
#include "common/Address.h"

namespace Velmar::Collections::Caches::Base {
template <class K, class V>
class TimeCacheBasicTypeWrapper;
}

namespace RYL::NetDB {

// The verdicts of one address family, in memory and, when persistent, in a file of the database folder.
//
// Lifetime: knows nothing until Open or SetPersistent. The file is written when the cache is destroyed or switched, and
// at no other moment.
// Threads: thread-safe; Open comes first.
// Errors: false after a record of level 5.
template <class T>
class CloudStatus {
 public:
  static constexpr u64 kTimeToLiveMs = 172800000;

  CloudStatus();
  ~CloudStatus();
  CloudStatus(const CloudStatus&) = delete;
  CloudStatus& operator=(const CloudStatus&) = delete;

  // `folder` must exist; null or empty only together with `startPersistent` false.
  bool Open(const char* folder, bool startPersistent);
  // Switches between a cache with a file and one in memory, which deletes the file. No change costs nothing.
  bool SetPersistent(bool wanted);
  // True when the address is known; the verdict goes to `verdict`, which may be null. Private addresses are known and
  // not harmless.
  bool Lookup(const T* address, u8* verdict);
  // Known and harmless.
  bool IsWhitelisted(const T* address);

  // Cloud requests since the last call.
  u32 TakeTotalRequests() { return total_requests.exchange(0); }
  u32 TakeSuccessfulRequests() { return total_successful_requests.exchange(0); }
  // Bytes; 0 without a file.
  u64 GetCacheSizeOnDisk();
  // Entries, expired ones included until they are met.
  u32 GetItemCount();

 private:
  friend struct CloudStatusTestAccess;

  using Cache = Velmar::Collections::Caches::Base::TimeCacheBasicTypeWrapper<typename T::Raw, bool>;

  bool SetPath(const char* folder, bool needed);
  bool DeleteFile();
  bool CreateCache();
  bool OpenCache();
  // A verdict that is there already, expired or not, stays. False, too, while there is no cache.
  bool StoreVerdict(const T& address, bool isWhitelisted);

  Cache* cache = nullptr;
  void* mutex = nullptr;
  Velmar::Utils::String path;
  bool persistent = true;
  std::atomic<u32> total_requests{0};
  std::atomic<u32> total_successful_requests{0};
};

}  // namespace RYL::NetDB
