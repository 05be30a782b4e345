#include "host/agent/ModuleSession.h"

#include <algorithm>
#include <utility>

#include "RYL/Module/Interface.h"
#include "Velmar/OS/Path.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/OS/Time.h"
#include "host/Types.h"
#include "host/agent/LogWatch.h"
#include "host/agent/ModuleLoader.h"

namespace Host {
namespace {

// For a session whose replies nobody takes.
class NoReceiver final : public RYL::Events::EventSender {
 public:
  bool Dispatch(u32 /*kind*/, Velmar::Utils::TreeContainer* /*tree*/, u32 /*reserved1*/, u32 /*reserved2*/,
                u32 /*reserved3*/) override {
    return false;
  }
};

class SessionHost final : public RYL::Module::ModuleHost {
 public:
  explicit SessionHost(const ModuleServices& services) : services_(services) {}

  void* GetInterface(u32 number) override {
    switch (number) {
      case RYL::Module::kEventLookupServiceNumber:
        return services_.eventLookup;
      case RYL::Module::kFileHashServiceNumber:
        return services_.fileHashes;
      default:
        return nullptr;
    }
  }
  RYL::Events::EventSender* GetEventSender() override {
    return services_.receiver != nullptr ? services_.receiver : &noReceiver_;
  }
  void* CreateThread(u32 /*moduleNumber*/, void (*entry)(void*), void* context, const char* label) override {
    return Velmar::OS::Threading::StartThread(entry, context, label);
  }

 private:
  ModuleServices services_;
  NoReceiver noReceiver_;
};

constexpr u32 kFirstWaitMs = 1;
constexpr u32 kLongestWaitMs = 64;

}  // namespace

struct ModuleSession::State {
  State(const ModuleServices& services, std::string path) : modulePath(std::move(path)), host(services) {}

  std::string modulePath;
  SessionHost host;
  Policy policy;
  std::unique_ptr<LogWatch> watch;
  ModuleLoader loader;
  u64 lostMessages = 0;
  u64 failedDumps = 0;
  std::vector<std::string> errors;
  std::vector<std::string> skippedFiles;
};

ModuleSession::ModuleSession(const ModuleServices& services, std::string modulePath)
    : state_(std::make_unique<State>(services, std::move(modulePath))) {}

ModuleSession::~ModuleSession() {
  Close();
}

void ModuleSession::UsePolicy(const Policy& policy) {
  state_->policy = policy;
}

bool ModuleSession::Open(const std::string& dataFolder, std::string& error) {
  if (!Initialize(dataFolder, state_->policy, error)) {
    return false;
  }
  return state_->loader.Module()->Start() || FailToOpen(error);
}

bool ModuleSession::OpenToAsk(const std::string& dataFolder, std::string& error) {
  Policy policy = state_->policy;
  // A small one would delete the file of verdicts.
  policy.Widen(Setting::kMaxDbSize);
  return Initialize(dataFolder, policy, error);
}

bool ModuleSession::Initialize(const std::string& dataFolder, const Policy& policy, std::string& error) {
  if (state_->modulePath.empty()) {
    state_->modulePath = FindModule(error);
    if (state_->modulePath.empty()) {
      return false;
    }
  }
  if (!Velmar::OS::Path::SetVariable("P", dataFolder.c_str())) {
    error = "no memory for the name of the data folder";
    return false;
  }
  state_->watch = std::make_unique<LogWatch>();
  if (!state_->loader.Load(state_->modulePath, error)) {
    state_->watch.reset();
    return false;
  }
  PolicySource settings(policy);
  return state_->loader.Module()->Initialize(&state_->host, &settings) || FailToOpen(error);
}

bool ModuleSession::FailToOpen(std::string& error) {
  Close();
  error = state_->errors.empty() ? "the module does not start" : "the module does not start: " + state_->errors[0];
  return false;
}

ModuleSession::Outcome ModuleSession::Send(const std::vector<u8>& event, RYL::Events::ExternalData* external) {
  RYL::Module::Interface* module = state_->loader.Module();
  if (module == nullptr) {
    return Outcome::kRefused;
  }
  LogWatch::ForgetThread();
  if (module->HandleEvent(event.data(), external) || LogWatch::QueuedWithoutWakeUp()) {
    return Outcome::kTaken;
  }
  return LogWatch::QueueWasFull() ? Outcome::kQueueFull : Outcome::kRefused;
}

bool ModuleSession::SendWaiting(const std::vector<u8>& event) {
  u32 waitMs = kFirstWaitMs;
  Outcome outcome = Send(event);
  // A queue whose worker is gone never empties.
  while (outcome == Outcome::kQueueFull && !state_->watch->WorkerEnded()) {
    Velmar::OS::Time::Sleep(waitMs);
    waitMs = std::min(2 * waitMs, kLongestWaitMs);
    outcome = Send(event);
  }
  return outcome == Outcome::kTaken;
}

void ModuleSession::Apply(const Policy& policy) {
  if (state_->loader.Module() != nullptr) {
    PolicySource settings(policy);
    state_->loader.Module()->ApplySettings(&settings);
  }
}

bool ModuleSession::SaveStatistics(Velmar::Utils::TreeContainer& tree) {
  return state_->loader.Module() != nullptr && state_->loader.Module()->SaveStatistics(&tree);
}

bool ModuleSession::GetStatus(const Velmar::Collections::Array<Velmar::Utils::TreeContainer>& history,
                              Velmar::Utils::TreeContainer& report) {
  return state_->loader.Module() != nullptr && state_->loader.Module()->GetStatus(history, &report);
}

bool ModuleSession::Close() {
  if (state_->loader.Module() == nullptr) {
    return true;
  }
  const bool stopped = state_->loader.Module()->Stop();
  state_->loader.Unload();
  const LogWatch& watch = *state_->watch;
  const bool complete = watch.LostMessages() == 0 && watch.LostDumps() == 0 && !watch.WorkerEnded();
  state_->lostMessages = watch.LostMessages();
  state_->failedDumps = watch.FailedDumps();
  state_->errors = watch.Errors();
  state_->skippedFiles = watch.SkippedFiles();
  state_->watch.reset();
  return stopped && complete;
}

u64 ModuleSession::LostMessages() const {
  return state_->watch != nullptr ? state_->watch->LostMessages() : state_->lostMessages;
}

u64 ModuleSession::FailedDumps() const {
  return state_->watch != nullptr ? state_->watch->FailedDumps() : state_->failedDumps;
}

std::vector<std::string> ModuleSession::Errors() const {
  return state_->watch != nullptr ? state_->watch->Errors() : state_->errors;
}

std::vector<std::string> ModuleSession::SkippedFiles() const {
  return state_->watch != nullptr ? state_->watch->SkippedFiles() : state_->skippedFiles;
}

}  // namespace Host
