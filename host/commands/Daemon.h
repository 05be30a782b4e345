// Daemon: what a running `netdb run` does when it is asked: reports, and changes its policy.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "Velmar/Utils/TreeContainer.h"
#include "host/Types.h"
#include "host/agent/ModuleSession.h"
#include "host/agent/Policy.h"
#include "host/agent/StatisticsState.h"
#include "host/commands/PolicyReport.h"
#include "host/control/Message.h"

namespace Host::Commands {

// What the recorder counted so far. Threads: each number is atomic.
struct RecordingCounts {
  std::atomic<u64> sent{0};
  std::atomic<u64> refused{0};
  std::atomic<u64> leftOut{0};  // came while netdb_enabled was off
};

// Lifetime: over an open session, which must outlive it, like the rest that it is given.
// Threads: IsRecording from any thread; the rest is the control thread's.
// Effects on disk: StatisticsState's.
class Daemon {
 public:
  using Say = std::function<void(const std::string& sentence)>;

  struct Parts {
    ModuleSession& session;
    StatisticsState& statistics;
    const RecordingCounts& counts;
    Say say;                 // to whoever looks at the daemon's messages
    std::string policyPath;  // empty: wherever the policy usually is
    u64 startedSeconds;      // since 1970
  };

  // `policy` is what the session was opened with.
  Daemon(const Parts& parts, const Policy& policy);

  // One request of the control socket.
  Control::Message Answer(const Control::Message& request);
  // Reads the policy document again and gives it to the module. A bad one changes nothing. The reply is that of a
  // reload request.
  Control::Message Reload();
  // Keeps what the module counted. At the end of the session at the latest.
  void SaveStatistics();
  // Whether the module takes connections now.
  [[nodiscard]] bool IsRecording() const { return recording_; }

 private:
  // A created tree, or null without memory. `complete`: false for a report that is cut.
  std::unique_ptr<Velmar::Utils::TreeContainer> Report(bool& complete);
  // What is in force: the module's own word where its report has it, else what it was given.
  SettingValues InForce();
  std::string StatusText();
  // Tells the daemon's own messages what a reload did.
  void SayChanges(const nlohmann::ordered_json& report);

  Parts parts_;
  Policy policy_;
  std::atomic<bool> recording_{true};
};

}  // namespace Host::Commands
