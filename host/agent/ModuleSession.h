// ModuleSession: one run of the module inside this program, from loading to unloading.
//
//   ModuleSession session(services);
//   session.UsePolicy(policy);
//   std::string error;
//   if (!session.Open(dataFolder, error)) ...
//   session.Send(PackConnection(record));
//   session.Apply(changedPolicy);
//   if (!session.Close()) ...   // the last dump failed
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "RYL/Events/EventSender.h"
#include "RYL/Events/ExternalData.h"
#include "RYL/Module/EventLookup.h"
#include "RYL/Module/FileHashService.h"
#include "Velmar/Collections/Array.h"
#include "Velmar/Types.h"
#include "Velmar/Utils/TreeContainer.h"
#include "host/agent/Policy.h"

namespace Host {

// What the module may ask of this program. Null: no such service.
struct ModuleServices {
  RYL::Module::EventLookup* eventLookup = nullptr;
  RYL::Module::FileHashService* fileHashes = nullptr;
  // Takes the module's own events, its replies to queries; called on the thread that sends the query.
  RYL::Events::EventSender* receiver = nullptr;
};

// Lifetime: Open once, Close once; the services must outlive it. Only one in a process at a time.
// Threads: Send and SendWaiting, SaveStatistics and GetStatus from any thread between Open and Close, also while Apply
// runs, where the receiver must be thread-safe if queries are sent from several, and each needs an `external` of its
// own; the rest from one thread, the control thread. What GetStatus and SaveStatistics count is taken once, so two
// askers at the same time would share it: they belong on the control thread too.
// Effects on disk: after Open the module writes day files below DIR/netdb.
class ModuleSession {
 public:
  enum class Outcome {
    kTaken,      // also events that the module rightly ignores
    kQueueFull,  // the module's queue is at its ceiling; try again later
    kRefused,    // another failure; the log has the reason
  };

  // `modulePath`: another library than the one that belongs to this program.
  explicit ModuleSession(const ModuleServices& services, std::string modulePath = {});
  ~ModuleSession();
  ModuleSession(const ModuleSession&) = delete;
  ModuleSession& operator=(const ModuleSession&) = delete;

  // The policy to open with; without it every setting has its default.
  void UsePolicy(const Policy& policy);
  // Loads the module that lies beside this program (or in its library folder), points "${P}" at `dataFolder` and
  // starts. False with a sentence in `error`.
  bool Open(const std::string& dataFolder, std::string& error);
  // The same for queries alone: the module is not started, so that it has no worker, which would delete days past the
  // limits of the policy. It takes no other events.
  // Effects on disk: the file of verdicts is written anew; day files stay as they are.
  bool OpenToAsk(const std::string& dataFolder, std::string& error);
  // A query is answered before Send returns: by an event to the receiver, or into `external`, which is used during the
  // call alone. kRefused: no reply came, or none that was kept.
  Outcome Send(const std::vector<Velmar::u8>& event, RYL::Events::ExternalData* external = nullptr);
  // Sends, waiting while the queue is full. False for kRefused.
  bool SendWaiting(const std::vector<Velmar::u8>& event);
  // Gives the running module another policy. Whether it could follow, such as start its worker again, stands in the log
  // and in the "config" of GetStatus. Nothing happens while the session is closed.
  void Apply(const Policy& policy);
  // What the module counted since the last call, into a created tree whose root is a dictionary. False while closed.
  bool SaveStatistics(Velmar::Utils::TreeContainer& tree);
  // The module's report, into a created tree whose root is a dictionary. `history` holds what SaveStatistics gave
  // earlier. False when the report is cut, which then holds what could be told, and while closed.
  bool GetStatus(const Velmar::Collections::Array<Velmar::Utils::TreeContainer>& history,
                 Velmar::Utils::TreeContainer& report);
  // Stops, which stores and dumps everything, and unloads. False when something that was accepted could not be stored
  // or the last dump failed.
  bool Close();
  // Observations that the module reported as lost, and dumps that failed, since Open.
  [[nodiscard]] Velmar::u64 LostMessages() const;
  [[nodiscard]] Velmar::u64 FailedDumps() const;
  // What the libraries reported as errors since Open, the first few as sentences.
  [[nodiscard]] std::vector<std::string> Errors() const;
  // Paths of the day files that queries passed over since Open.
  [[nodiscard]] std::vector<std::string> SkippedFiles() const;

 private:
  // Loads the module and gives it the policy. False with a sentence in `error`.
  bool Initialize(const std::string& dataFolder, const Policy& policy, std::string& error);
  // Closes and puts the reason into `error`. False.
  bool FailToOpen(std::string& error);

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace Host
