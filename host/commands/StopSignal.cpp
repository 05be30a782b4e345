#include "host/commands/StopSignal.h"

#include <csignal>

namespace Host::Commands {
namespace {

volatile std::sig_atomic_t requested = 0;

void Receive(int /*number*/) {
  requested = 1;
}

void Install(void (*handler)(int), int flags) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

StopSignal::StopSignal() {
  requested = 0;
  Install(&Receive, static_cast<int>(SA_RESETHAND));
}

StopSignal::~StopSignal() {
  Install(SIG_DFL, 0);
}

bool StopSignal::IsRequested() {
  return requested != 0;
}

}  // namespace Host::Commands
