// State: the one simulated machine of the process.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/sim/Disk.h"
#include "platform/sim/FaultPlan.h"
#include "platform/sim/Scheduler.h"
#include "platform/sim/Sim.h"

namespace Velmar::Sim {

// What becomes of one file operation.
enum class Outcome { kProceed, kFail, kTear, kDrop };

// Threads: every member is guarded by `mutex`.
struct State {
  State();
  // Counts a file operation and applies the plan.
  Outcome Begin(Operation kind);

  std::mutex mutex;
  Scheduler scheduler;
  Disk disk;
  FaultPlan faults;
  bool dead = false;      // the process or the machine died; no file operation works until the next boot
  bool powerCut = false;  // what is not durable will be lost
  u64 boot = 0;           // a file opened in an earlier boot is gone
  u64 diskLimit = 0;
  bool caseSensitive = true;
  u64 listingSeed = 0;  // 0: sorted
  bool noFrequency = false;
  std::vector<u32> sleeps;
  std::vector<std::string> ipv4;
  std::vector<std::string> ipv6;
  CloudService cloud;
  u32 failThreadStarts = 0;
  u32 failMutexCreates = 0;
  u32 failEventCreates = 0;
  u32 failEventSignals = 0;
};

// Never destroyed: threads may outlive the end of main.
State& GetState();

// Lowers a count of planned failures; true when this call is to fail.
bool TakeFailure(u32 State::*planned);

// The plan of Memory::Allocate.
void ResetAllocations();

}  // namespace Velmar::Sim
