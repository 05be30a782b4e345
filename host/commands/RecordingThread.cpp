#include "host/commands/RecordingThread.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/events/ConnectionRecord.h"
#include "host/text/Utf8.h"

namespace Host::Commands {

RunMessages::RunMessages() : isTerminal_(isatty(STDERR_FILENO) == 1) {}

void RunMessages::Say(const std::string& sentence) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (lineIsOpen_) {
    std::fputs("\n", stderr);
    lineIsOpen_ = false;
  }
  std::fputs(("netdb run: " + Text::ToPrintable(sentence) + "\n").c_str(), stderr);
}

void RunMessages::ShowStatus(const Capture::RecorderStatus& status, u64 refused) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (isTerminal_) {
    std::fprintf(stderr, "\r\033[K%zu open, %llu recorded, %llu refused, %llu times closes missed", status.open,
                 static_cast<unsigned long long>(status.recorded), static_cast<unsigned long long>(refused),
                 static_cast<unsigned long long>(status.closesMissed));
    lineIsOpen_ = true;
  }
}

RecordingThread::RecordingThread(ModuleSession& session, ProcessRegistry& processes, const Daemon& daemon,
                                 RecordingCounts& counts, RunMessages& messages)
    : session_(session), processes_(processes), daemon_(daemon), counts_(counts), messages_(messages) {}

bool RecordingThread::Start(std::string& error) {
  stop_ = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  end_ = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!stop_.IsOpen() || !end_.IsOpen()) {
    error = std::string("cannot make an event: ") + std::strerror(errno);
    return false;
  }
  thread_ = std::thread(&RecordingThread::Run, this);
  return true;
}

void RecordingThread::Stop() {
  if (thread_.joinable()) {
    eventfd_write(stop_.Get(), 1);
    thread_.join();
  }
}

void RecordingThread::Run() {
  Capture::Recorder::Callbacks callbacks;
  callbacks.emit = [this](const ConnectionRecord& record) { Send(record); };
  callbacks.ready = [this] { messages_.Say("recording"); };
  callbacks.status = [this](const Capture::RecorderStatus& status) {
    closesMissed_ = status.closesMissed;
    messages_.ShowStatus(status, counts_.refused);
  };
  std::string error;
  if (!Capture::Recorder::Run(stop_.Get(), processes_, callbacks, error)) {
    failure_ = error.empty() ? "recording failed" : error;
  }
  eventfd_write(end_.Get(), 1);
}

void RecordingThread::Send(const ConnectionRecord& record) {
  if (!daemon_.IsRecording()) {
    ++counts_.leftOut;
    return;
  }
  ++counts_.sent;
  counts_.refused += session_.Send(PackConnection(record)) == ModuleSession::Outcome::kTaken ? 0 : 1;
}

}  // namespace Host::Commands
