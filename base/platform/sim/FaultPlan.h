// FaultPlan: which of the file operations to come fail, and how; counts them all.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "platform/sim/Sim.h"

namespace Velmar::Sim {

// Threads: thread-compatible; the state's mutex guards it.
class FaultPlan {
 public:
  void Add(std::optional<Operation> kind, u64 n, Fault fault, u64 count);
  void Clear() { plan_.clear(); }
  // Counts one operation and gives its fault. When several are planned for it, the first planned one holds.
  std::optional<Fault> Next(Operation kind);
  [[nodiscard]] u64 Count(std::optional<Operation> kind) const;

 private:
  struct Planned {
    std::optional<Operation> kind;
    u64 first;
    u64 count;
    Fault fault;
  };
  std::vector<Planned> plan_;
  u64 total_ = 0;
  std::array<u64, static_cast<std::size_t>(Operation::kSize) + 1> byKind_ = {};
};

}  // namespace Velmar::Sim
