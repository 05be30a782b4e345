// CloudStatus: what the cloud said about remote addresses, kept for 48 hours each.
#pragma once

#include <atomic>

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"
#include "Velmar/Utils/TreeContainer.h"
#include "common/Address.h"

namespace Velmar::Collections {
template <class T>
class Array;
}
namespace Velmar::Collections::Caches::Base {
template <class K, class V>
class TimeCacheBasicTypeWrapper;
}

namespace RYL::NetDB {

// The verdicts of one address family, in memory and, when persistent, in a file of the database folder.
//
// Lifetime: knows nothing until Open or SetPersistent. The file is written when the cache is destroyed or switched, and
// at no other moment.
// Threads: thread-safe, but Resolve, which one thread at a time may run; Open comes first.
// Errors: false after a record of level 5.
template <class T>
class CloudStatus {
 public:
  static constexpr u64 kTimeToLiveMs = 172800000;
  // What the service was promised: addresses in a request, and milliseconds from an answered request to the next.
  static constexpr u32 kBatchSize = 50;
  static constexpr u64 kPaceMs = 1000;
  // Limit of one request.
  static constexpr u32 kRequestTimeoutMs = 100000;

  // Gives addresses one by one, each good until the next call.
  class IPIterator {
   public:
    virtual bool HasNext() = 0;
    virtual const T* Next() = 0;

   protected:
    ~IPIterator() = default;
  };

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

  // Asks the cloud about the addresses that are not known, and keeps its verdicts. Blocks: a request a second. False
  // when a request failed, with the rest not asked about; what was answered until then is kept. No lock is held while
  // the cloud is asked.
  bool Resolve(IPIterator* iterator);

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

  using Batch = Velmar::Collections::Array<typename T::Raw>;

  bool SetPath(const char* folder, bool needed);
  bool CreateTrees();
  bool DeleteFile();
  bool CreateCache();
  bool OpenCache();
  // A verdict that is there already, expired or not, stays. False, too, while there is no cache.
  bool StoreVerdict(const T& address, bool isWhitelisted);

  // True when the batch was empty or all reply texts were taken over.
  bool QueryBatch(Batch& batch);
  void Pace() const;
  bool BuildRequest(const Batch& batch);
  // Answer i is that of address i.
  bool TakeReply(const Batch& batch, const char* text);

  Cache* cache = nullptr;
  void* mutex = nullptr;
  Velmar::Utils::String path;
  bool persistent = true;
  // Made once, emptied for each batch.
  Velmar::Utils::TreeContainer request_tree;
  Velmar::Utils::TreeContainer response_tree;
  bool has_trees = false;
  u64 last_request_time = 0;  // of the last answered request, epoch milliseconds
  std::atomic<u32> total_requests{0};
  std::atomic<u32> total_successful_requests{0};
};

}  // namespace RYL::NetDB
