#include "host/commands/Run.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "Velmar/OS/Time.h"
#include "host/Descriptor.h"
#include "host/agent/DamagedFile.h"
#include "host/agent/DataFolder.h"
#include "host/agent/DiskHashes.h"
#include "host/agent/ModuleSession.h"
#include "host/agent/Policy.h"
#include "host/agent/ProcessRegistry.h"
#include "host/agent/StatisticsState.h"
#include "host/capture/Recorder.h"
#include "host/commands/Daemon.h"
#include "host/commands/RecordingThread.h"
#include "host/control/Client.h"
#include "host/control/Server.h"

namespace Host {
namespace {

using Commands::Daemon;
using Commands::RecordingCounts;
using Commands::RecordingThread;
using Commands::RunMessages;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kPartial = 3;

// Whoever read the messages may be gone; what is recorded must be stored all the same.
void OutliveTheReaderOfMessages() {
  signal(SIGPIPE, SIG_IGN);
}

// SIGINT, SIGTERM and SIGHUP as a descriptor. They are blocked in this thread and so in all that start later.
Descriptor OpenSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
    return {};
  }
  return Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
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

// The control thread's loop: signals, requests, the end of the recording.
class ControlLoop {
 public:
  ControlLoop(const Descriptor& signals, Daemon& daemon, Control::Server& server)
      : signals_(signals), daemon_(daemon), server_(server), onTerminal_(isatty(STDERR_FILENO) == 1) {}

  // Until a signal asks to stop or `endDescriptor` is readable.
  void Run(int endDescriptor) {
    const auto nowMs = Control::Waiting::Real().nowMs;
    std::vector<pollfd> descriptors;
    for (;;) {
      descriptors = {{signals_.Get(), POLLIN, 0}, {endDescriptor, POLLIN, 0}};
      server_.Watch(descriptors, nowMs());
      if (poll(descriptors.data(), descriptors.size(), server_.TimeoutMs(nowMs())) < 0) {
        continue;  // a debugger's signal; what is ready stays ready
      }
      if (TakeSignals() || (descriptors[1].revents & POLLIN) != 0) {
        return;
      }
      server_.Serve(nowMs());
    }
  }

 private:
  // True when one asks to stop.
  bool TakeSignals() {
    signalfd_siginfo signal = {};
    while (read(signals_.Get(), &signal, sizeof(signal)) == static_cast<ssize_t>(sizeof(signal))) {
      // The terminal that is gone says so with a SIGHUP too.
      const bool terminalIsGone = onTerminal_ && isatty(STDERR_FILENO) != 1;
      if (signal.ssi_signo != SIGHUP || terminalIsGone) {
        return true;
      }
      daemon_.Reload();
    }
    return false;
  }

  const Descriptor& signals_;
  Daemon& daemon_;
  Control::Server& server_;
  bool onTerminal_;
};

// What a run needs besides the module, in the order in which it is had.
struct Run {
  RunOptions options;
  RunMessages messages;
  DataFolderLock lock;
  Descriptor signals;
  Policy policy;
  ProcessRegistry registry;
  DiskHashes hashes;

  int Fail(const std::string& sentence) {
    messages.Say(sentence);
    return kFailed;
  }
};

// The folder is ours and today's file can be written.
bool PrepareFolder(Run& run, std::string& error) {
  const std::string& folder = run.options.dataFolder;
  if (!CheckPathLength(folder, error) || !run.lock.Take(folder, "run", error)) {
    return false;
  }
  std::string report;
  const bool writable = SetAsideDamagedFiles(DatabaseFolder(folder), Velmar::OS::Time::GetSystemTime(), report);
  std::fputs(report.c_str(), stderr);
  if (!writable) {
    error = "today's file cannot be written";
  }
  return writable;
}

bool ReadPolicy(Run& run, std::string& error) {
  if (!run.options.policyPath.empty()) {
    // Who asks for it later may stand in another folder.
    run.options.policyPath = std::filesystem::absolute(run.options.policyPath).string();
  }
  const std::optional<Policy> policy = Policy::LoadOrDefault(run.options.policyPath, error);
  if (!policy || !ConfigureCloud(policy->Cloud(), policy->Source(), error)) {
    return false;
  }
  run.policy = *policy;
  return true;
}

int Conclude(Run& run, ModuleSession& session, const RecordingThread& recording, const RecordingCounts& counts) {
  const bool stored = session.Close();
  const u64 refused = counts.refused;
  std::string text =
      "stopped; " + std::to_string(counts.sent) + " events sent, " + std::to_string(refused) + " refused";
  if (counts.leftOut != 0) {
    text += ", " + std::to_string(counts.leftOut) + " left out while netdb_enabled was off";
  }
  run.messages.Say(text);
  if (!recording.Failure().empty()) {
    return run.Fail(recording.Failure());
  }
  if (!stored) {
    for (const std::string& reason : session.Errors()) {
      run.messages.Say(reason);
    }
    return run.Fail("not everything that was recorded could be stored");
  }
  return refused == 0 && recording.ClosesMissed() == 0 ? kDone : kPartial;
}

int RecordAndAnswer(Run& run, ModuleSession& session, StatisticsState& statistics) {
  RecordingCounts counts;
  const auto say = [&run](const std::string& sentence) { run.messages.Say(sentence); };
  Daemon daemon({session, statistics, counts, say, run.options.policyPath, Velmar::OS::Time::GetSystemTime()},
                run.policy);
  if (!daemon.IsRecording()) {
    say("netdb_enabled is off in " + run.policy.Source() + ": connections are left out until it is on again");
  }
  RecordingThread recording(session, run.registry, daemon, counts, run.messages);
  std::string error;
  {
    Control::Server server([&daemon](const Control::Message& request) { return daemon.Answer(request); });
    if (!server.Open(run.options.dataFolder, error) || !recording.Start(error)) {
      return run.Fail(error);
    }
    ControlLoop(run.signals, daemon, server).Run(recording.EndDescriptor());
  }
  recording.Stop();
  daemon.SaveStatistics();
  return Conclude(run, session, recording, counts);
}

}  // namespace

int RunCommand(const RunOptions& options) {
  OutliveTheReaderOfMessages();
  Run run;
  run.options = options;
  std::string error;
  if (!ReadPolicy(run, error) || !PrepareFolder(run, error)) {
    return run.Fail(error);
  }
  run.signals = OpenSignals();
  if (!run.signals.IsOpen()) {
    return run.Fail(std::string("cannot receive signals: ") + std::strerror(errno));
  }
  StatisticsState statistics(run.options.dataFolder);
  if (!statistics.Load(error)) {
    run.messages.Say(error);
  }
  ModuleSession session({&run.registry, &run.hashes});
  session.UsePolicy(run.policy);
  if (!session.Open(run.options.dataFolder, error)) {
    return run.Fail(error);
  }
  SayWhatIsCaptured();
  return RecordAndAnswer(run, session, statistics);
}

}  // namespace Host
