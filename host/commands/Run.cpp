#include "host/commands/Run.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Velmar/OS/Time.h"
#include "host/agent/DamagedFile.h"
#include "host/agent/DataFolder.h"
#include "host/agent/DiskHashes.h"
#include "host/agent/ModuleSession.h"
#include "host/agent/ProcessRegistry.h"
#include "host/capture/Recorder.h"

namespace Host {
namespace {

using Velmar::u64;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kPartial = 3;

int Fail(const std::string& message) {
  std::fprintf(stderr, "netdb run: %s\n", message.c_str());
  return kFailed;
}

// SIGINT and SIGTERM as a descriptor. They are blocked in this thread and so in all that the module starts later.
int OpenStopDescriptor() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
    return -1;
  }
  return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

void SayWhatIsCaptured() {
  std::fprintf(
      stderr,
      "netdb run: TCP connections of this network namespace, by the kernel's socket diagnosis: a look every %d ms\n"
      "and a notice of each close. Not seen at this level: UDP, other namespaces, and the process of a connection\n"
      "shorter than one look.\n",
      Capture::Recorder::kPollMs);
  if (geteuid() != 0) {
    std::fprintf(stderr, "netdb run: without root only the processes of this user are known.\n");
  }
}

// A single line that is written over, on a terminal only.
class StatusLine {
 public:
  void Show(const Capture::RecorderStatus& status, u64 refused) {
    if (isTerminal_) {
      std::fprintf(stderr, "\r\033[K%zu open, %llu recorded, %llu refused, %llu times closes missed", status.open,
                   static_cast<unsigned long long>(status.recorded), static_cast<unsigned long long>(refused),
                   static_cast<unsigned long long>(status.closesMissed));
      shown_ = true;
    }
    last_ = status;
  }
  void End() const {
    if (shown_) {
      std::fprintf(stderr, "\n");
    }
  }
  [[nodiscard]] const Capture::RecorderStatus& Last() const { return last_; }

 private:
  bool isTerminal_ = isatty(STDERR_FILENO) == 1;
  bool shown_ = false;
  Capture::RecorderStatus last_;
};

int Record(ModuleSession& session, ProcessRegistry& registry, int stopDescriptor) {
  u64 refused = 0;
  u64 sent = 0;
  StatusLine line;
  Capture::Recorder::Callbacks callbacks;
  callbacks.emit = [&](const ConnectionRecord& record) {
    ++sent;
    refused += session.Send(PackConnection(record)) == ModuleSession::Outcome::kTaken ? 0 : 1;
  };
  callbacks.ready = [] { std::fprintf(stderr, "netdb run: recording\n"); };
  callbacks.status = [&](const Capture::RecorderStatus& status) { line.Show(status, refused); };

  std::string error;
  const bool recorded = Capture::Recorder::Run(stopDescriptor, registry, callbacks, error);
  line.End();
  const bool stored = session.Close();
  std::fprintf(stderr, "netdb run: stopped; %llu events sent, %llu refused\n", static_cast<unsigned long long>(sent),
               static_cast<unsigned long long>(refused));
  if (!recorded) {
    return Fail(error);
  }
  if (!stored) {
    return Fail("not everything that was recorded could be stored");
  }
  return refused == 0 && line.Last().closesMissed == 0 ? kDone : kPartial;
}

}  // namespace

int RunCommand(const RunOptions& options) {
  std::string error;
  if (!CheckPathLength(options.dataFolder, error)) {
    return Fail(error);
  }
  DataFolderLock lock;
  if (!lock.Take(options.dataFolder, "run", error)) {
    return Fail(error);
  }
  const bool readable =
      SetAsideDamagedFiles(DatabaseFolder(options.dataFolder), Velmar::OS::Time::GetSystemTime(), error);
  std::fputs(error.c_str(), stderr);
  if (!readable) {
    return Fail("today's file cannot be written");
  }
  const int stopDescriptor = OpenStopDescriptor();
  if (stopDescriptor < 0) {
    return Fail(std::string("cannot receive signals: ") + std::strerror(errno));
  }
  ProcessRegistry registry;
  DiskHashes hashes;
  ModuleSession session({&registry, &hashes});
  if (!session.Open(options.dataFolder, error)) {
    close(stopDescriptor);
    return Fail(error);
  }
  SayWhatIsCaptured();
  const int result = Record(session, registry, stopDescriptor);
  close(stopDescriptor);
  return result;
}

}  // namespace Host
