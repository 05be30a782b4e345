// BrokenPipeGuard: keeps a write to a connection that is gone from ending the process.
#pragma once

#include <pthread.h>
#include <signal.h>
#include <time.h>

namespace Velmar::Platform {

// While it lives SIGPIPE is blocked in this thread, so such a write fails and nothing more; what it raised meanwhile is
// taken back. A library cannot ignore the signal for the whole process: that is its host's to choose.
// Threads: one thread, the one that made it.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    blocked_ = pthread_sigmask(SIG_BLOCK, &pipe_, &before_) == 0;
  }
  ~BrokenPipeGuard() {
    if (!blocked_) {
      return;
    }
    constexpr timespec kNow = {0, 0};
    if (!wasPending_) {
      sigtimedwait(&pipe_, nullptr, &kNow);
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

 private:
  sigset_t pipe_ = {};
  sigset_t before_ = {};
  bool wasPending_ = false;
  bool blocked_ = false;
};

}  // namespace Velmar::Platform
