// RecordingThread: the recorder of this machine's connections on a thread of its own.
#pragma once

#include <mutex>
#include <string>
#include <thread>

#include "host/Descriptor.h"
#include "host/agent/ModuleSession.h"
#include "host/agent/ProcessRegistry.h"
#include "host/capture/Recorder.h"
#include "host/commands/Daemon.h"

namespace Host::Commands {

// Messages of `netdb run` on standard error, with a status line that is written over where that is a terminal.
// Thread-safe.
class RunMessages {
 public:
  RunMessages();
  // "netdb run: SENTENCE", below the status line.
  void Say(const std::string& sentence);
  void ShowStatus(const Capture::RecorderStatus& status, u64 refused);

 private:
  std::mutex mutex_;
  bool isTerminal_;
  bool lineIsOpen_ = false;
};

// Lifetime: Start once; Stop, or the destructor, ends it. What it is given must outlive it.
// Threads: all from one thread.
class RecordingThread {
 public:
  RecordingThread(ModuleSession& session, ProcessRegistry& processes, const Daemon& daemon, RecordingCounts& counts,
                  RunMessages& messages);
  ~RecordingThread() { Stop(); }
  RecordingThread(const RecordingThread&) = delete;
  RecordingThread& operator=(const RecordingThread&) = delete;

  // False with a sentence in `error`.
  bool Start(std::string& error);
  // Readable when recording ended, by itself or by Stop.
  [[nodiscard]] int EndDescriptor() const { return end_.Get(); }
  void Stop();

  // After Stop. Empty: recording did not fail.
  [[nodiscard]] const std::string& Failure() const { return failure_; }
  [[nodiscard]] u64 ClosesMissed() const { return closesMissed_; }

 private:
  void Run();
  void Send(const ConnectionRecord& record);

  ModuleSession& session_;
  ProcessRegistry& processes_;
  const Daemon& daemon_;
  RecordingCounts& counts_;
  RunMessages& messages_;
  Descriptor stop_;
  Descriptor end_;
  std::thread thread_;
  std::string failure_;
  u64 closesMissed_ = 0;
};

}  // namespace Host::Commands
