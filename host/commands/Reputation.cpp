// netdb reputation serve.
#include <pthread.h>
#include <signal.h>

#include <memory>
#include <utility>
#include <vector>

#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/reputation/ListFiles.h"
#include "host/reputation/ReputationService.h"

namespace Host::Commands {
namespace {

using Reputation::AddressList;
using Reputation::ListenAddress;
using Reputation::ReputationService;

constexpr char kExamples[] =
    "  netdb reputation serve --lists harmless.txt\n"
    "  netdb reputation serve --lists /etc/ryl/lists mine.json --listen 127.0.0.1:8088\n"
    "  kill -HUP PID   reads the lists again; a set of lists that cannot be read changes nothing\n"
    "The policy names the service for `netdb run`:  [cloud]  endpoint = \"http://127.0.0.1:8088\"\n";

struct Arguments {
  std::string action;
  std::vector<std::string> lists;
  std::string listen = "127.0.0.1:8088";
};

// The signals that this command waits for, blocked in this thread and so in all that start later.
sigset_t BlockSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

// What was in use stays when this fails. Who reads the note may rely on it: the lists are in use by then.
bool Load(const Arguments& arguments, ReputationService& service, std::string& error) {
  auto lists = Reputation::LoadLists(arguments.lists, &PrintNote, error);
  if (!lists) {
    return false;
  }
  const std::string summary = std::to_string(lists->addresses.Count()) + " harmless networks out of " +
                              std::to_string(lists->files) + (lists->files == 1 ? " file" : " files");
  service.Use(std::make_shared<const AddressList>(std::move(lists->addresses)));
  PrintNote(summary);
  return true;
}

// Until a signal asks to stop.
void WaitAndReload(const Arguments& arguments, const sigset_t& signals, ReputationService& service) {
  int signal = 0;
  while (sigwait(&signals, &signal) == 0 && signal == SIGHUP) {
    std::string error;
    if (!Load(arguments, service, error)) {
      PrintError("the lists stay as they are: " + error);
    }
  }
}

int Serve(const Arguments& arguments) {
  std::string error;
  const auto where = ListenAddress::Parse(arguments.listen, error);
  if (!where) {
    PrintError(error);
    return kUsage;
  }
  const sigset_t signals = BlockSignals();
  ReputationService service;
  if (!Load(arguments, service, error) || !service.Start(*where, error)) {
    PrintError(error);
    return kFailed;
  }
  PrintNote("listening on " + service.Url());
  WaitAndReload(arguments, signals, service);
  return kDone;
}

}  // namespace

Command AddReputation(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("reputation", "Serve verdicts on addresses from lists of harmless networks");
  options.Text("ACTION", arguments->action, "What to do").Required().OneOf({"serve"});
  options.Texts("--lists", arguments->lists, "Files with a network a line or JSON lists, or folders of such")
      .Required()
      .Named("DIR|FILE");
  options.Text("--listen", arguments->listen, "Loopback address and port; port 0 takes a free one")
      .Named("ADDRESS:PORT")
      .ShowDefault();
  return {options.Name(), [arguments] { return Serve(*arguments); }, kExamples};
}

}  // namespace Host::Commands
