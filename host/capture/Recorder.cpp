#include "host/capture/Recorder.h"

#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Velmar/OS/Time.h"
#include "host/capture/ConnectionTracker.h"
#include "host/capture/SockDiag.h"
#include "host/capture/SocketOwners.h"

namespace Host::Capture {
namespace {

using Velmar::u64;

u64 Now() {
  return Velmar::OS::Time::GetEpochTime(nullptr);
}

// A descriptor that becomes readable at a fixed rate.
class PollTimer {
 public:
  PollTimer() = default;
  ~PollTimer() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  PollTimer(const PollTimer&) = delete;
  PollTimer& operator=(const PollTimer&) = delete;

  bool Start(int milliseconds) {
    descriptor_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    itimerspec rate{};
    rate.it_interval.tv_nsec = milliseconds * 1000000L;
    rate.it_value.tv_nsec = 1;
    return descriptor_ >= 0 && timerfd_settime(descriptor_, 0, &rate, nullptr) == 0;
  }
  // True once for each time it was due.
  bool TakeTick() {
    std::uint64_t ticks = 0;
    return read(descriptor_, &ticks, sizeof(ticks)) == static_cast<ssize_t>(sizeof(ticks));
  }
  [[nodiscard]] int Descriptor() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

class Loop {
 public:
  Loop(ProcessRegistry& registry, const Recorder::Callbacks& callbacks)
      : callbacks_(callbacks),
        owners_(registry, "/proc"),
        tracker_(callbacks.emit, [this](Velmar::u32 inode) { return owners_.Find(inode); }) {}

  bool Run(int stopDescriptor, std::string& error) {
    if (!diag_.Open(error)) {
      return false;
    }
    PollTimer timer;
    if (!timer.Start(Recorder::kPollMs)) {
      error = std::string("cannot start a timer: ") + std::strerror(errno);
      return false;
    }
    pollfd descriptors[] = {
        {stopDescriptor, POLLIN, 0}, {timer.Descriptor(), POLLIN, 0}, {diag_.DestroyDescriptor(), POLLIN, 0}};
    while (poll(descriptors, 3, -1) >= 0 || errno == EINTR) {
      const bool stop = (descriptors[0].revents & POLLIN) != 0;
      const bool tick = timer.TakeTick();
      // A last look at a stop: what closed or moved since the last tick still counts.
      if (!TakeDestroyed(error) || ((stop || tick) && !TakeSnapshot(error))) {
        return false;
      }
      if (stop) {
        tracker_.Finish(Now());
        return true;
      }
    }
    error = std::string("cannot wait for events: ") + std::strerror(errno);
    return false;
  }

 private:
  bool TakeDestroyed(std::string& error) {
    sockets_.clear();
    bool lost = false;
    const bool read = diag_.ReadDestroyed(sockets_, lost, error);
    status_.closesMissed += lost ? 1 : 0;
    const u64 now = Now();
    for (const TcpSocket& socket : sockets_) {
      tracker_.Destroyed(socket, now);
    }
    return read;
  }

  bool TakeSnapshot(std::string& error) {
    sockets_.clear();
    if (!diag_.Dump(sockets_, error)) {
      return false;
    }
    const u64 now = Now();
    owners_.Refresh(now);
    tracker_.Snapshot(sockets_, now);
    if (lastStatusMs_ == 0) {
      callbacks_.ready();
    }
    if (now - lastStatusMs_ >= Recorder::kStatusMs) {
      lastStatusMs_ = now;
      status_.open = tracker_.OpenConnections();
      status_.recorded = tracker_.Announced();
      callbacks_.status(status_);
    }
    return true;
  }

  const Recorder::Callbacks& callbacks_;
  SocketOwners owners_;
  ConnectionTracker tracker_;
  SockDiag diag_;
  std::vector<TcpSocket> sockets_;
  RecorderStatus status_;
  u64 lastStatusMs_ = 0;
};

}  // namespace

bool Recorder::Run(int stopDescriptor, ProcessRegistry& registry, const Callbacks& callbacks, std::string& error) {
  return Loop(registry, callbacks).Run(stopDescriptor, error);
}

}  // namespace Host::Capture
