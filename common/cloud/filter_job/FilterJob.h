// FilterJob: takes one finished day, asks the cloud about its addresses, and writes it again without the harmless ones.
#pragma once

#include <atomic>

#include "Velmar/Utils/String.h"
#include "common/Address.h"
#include "common/cloud/CloudStatus.h"

namespace RYL::NetDB {

// Values of the status byte that the worker and its job share.
namespace FilterState {
inline constexpr u8 kLaunched = 0;  // set before the thread is created
inline constexpr u8 kRunning = 1;   // set by the job on entry
inline constexpr u8 kDone = 2;      // set by the job
inline constexpr u8 kFailed = 3;    // set by the job, or when it got no thread
inline constexpr u8 kIdle = 4;
}  // namespace FilterState

// What a job gets. Whoever starts it keeps all of it as it is until the job ends.
struct FilterJobContext {
  Velmar::Utils::String* file;  // full path of a ".db"
  CloudStatus<IPv4>* cloud;
  std::atomic<u8>* status;
};

// Entry of the job's thread; `context` is a FilterJobContext. At its end the status is kDone (the file is filtered and
// has its ".db.f" name) or kFailed. A job that the cloud left half way has removed what it knew, under the old name;
// the next one takes the file up again. Threads: any, one job at a time. Blocks: a request a second for each 50 unknown
// addresses. Effects on disk: writes and renames the file.
void FilterJobThread(void* context);

}  // namespace RYL::NetDB
