#include "host/sql/InterruptGuard.h"

#include <atomic>

namespace Host::Sql {
namespace {

constexpr int kMostInterrupts = 3;

std::atomic<Table::Database*> current{nullptr};
std::atomic<int> count{0};
static_assert(std::atomic<Table::Database*>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

void Receive(int number) {
  Table::Database* database = current.load();
  if (database == nullptr) {
    return;
  }
  if (++count == kMostInterrupts) {
    std::signal(number, SIG_DFL);
    std::raise(number);
  }
  database->Interrupt();
}

}  // namespace

InterruptGuard::InterruptGuard(Table::Database* database) : previousDatabase_(current.exchange(database)) {
  count = 0;
  struct sigaction action = {};
  action.sa_handler = Receive;
  action.sa_flags = SA_RESTART;  // a line that is being typed, a row that is being written: both go on
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &previousAction_);
}

InterruptGuard::~InterruptGuard() {
  sigaction(SIGINT, &previousAction_, nullptr);
  current = previousDatabase_;
}

}  // namespace Host::Sql
