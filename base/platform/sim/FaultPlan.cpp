#include "platform/sim/FaultPlan.h"

namespace Velmar::Sim {

void FaultPlan::Add(std::optional<Operation> kind, u64 n, Fault fault, u64 count) {
  plan_.push_back({kind, Count(kind) + n, count, fault});
}

std::optional<Fault> FaultPlan::Next(Operation kind) {
  u64 number = total_++;
  u64 numberOfKind = byKind_[static_cast<std::size_t>(kind)]++;
  for (const Planned& planned : plan_) {
    u64 at = planned.kind ? numberOfKind : number;
    bool sameKind = !planned.kind || *planned.kind == kind;
    if (sameKind && at >= planned.first && at - planned.first < planned.count) {
      return planned.fault;
    }
  }
  return std::nullopt;
}

u64 FaultPlan::Count(std::optional<Operation> kind) const {
  return kind ? byKind_[static_cast<std::size_t>(*kind)] : total_;
}

}  // namespace Velmar::Sim
