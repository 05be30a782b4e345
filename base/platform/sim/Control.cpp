#include "platform/sim/Sim.h"
#include "platform/sim/State.h"

namespace Velmar::Sim {

namespace {

constexpr u64 kFirstEpochMs = 1700000000000;

using Lock = std::unique_lock<std::mutex>;

}  // namespace

State::State() {
  scheduler.SetEpoch(kFirstEpochMs);
}

Outcome State::Begin(Operation kind) {
  if (dead) {
    return Outcome::kFail;
  }
  std::optional<Fault> fault = faults.Next(kind);
  if (!fault) {
    return Outcome::kProceed;
  }
  switch (*fault) {
    case Fault::kTear:
      return Outcome::kTear;
    case Fault::kDrop:
      return Outcome::kDrop;
    case Fault::kKill:
    case Fault::kPowerCut:
      dead = true;
      powerCut = *fault == Fault::kPowerCut;
      return Outcome::kFail;
    case Fault::kFail:
      break;
  }
  return Outcome::kFail;
}

State& GetState() {
  static State* const state = new State;
  return *state;
}

bool TakeFailure(u32 State::*planned) {
  State& state = GetState();
  Lock lock(state.mutex);
  if (state.*planned == 0) {
    return false;
  }
  --(state.*planned);
  return true;
}

void Reset() {
  State& state = GetState();
  Lock lock(state.mutex);
  state.scheduler.SetEpoch(kFirstEpochMs);
  state.disk = Disk();
  state.faults = FaultPlan();
  state.dead = false;
  state.powerCut = false;
  ++state.boot;
  state.diskLimit = 0;
  state.caseSensitive = true;
  state.listingSeed = 0;
  state.noFrequency = false;
  state.sleeps.clear();
  state.ipv4.clear();
  state.ipv6.clear();
  state.cloud = nullptr;
  state.failThreadStarts = 0;
  state.failMutexCreates = 0;
  state.failEventCreates = 0;
  state.failEventSignals = 0;
  ResetAllocations();
}

void SetEpochTime(u64 milliseconds) {
  Lock lock(GetState().mutex);
  GetState().scheduler.SetEpoch(milliseconds);
}

void AdvanceTime(u64 milliseconds) {
  Lock lock(GetState().mutex);
  GetState().scheduler.Advance(milliseconds);
}

bool WaitUntilWaiting(u32 count) {
  Lock lock(GetState().mutex);
  return GetState().scheduler.BlockUntilWaiting(count, lock);
}

std::vector<u32> Sleeps() {
  Lock lock(GetState().mutex);
  return GetState().sleeps;
}

void FailPerformanceFrequency(bool fail) {
  Lock lock(GetState().mutex);
  GetState().noFrequency = fail;
}

void FailFileOperation(u64 n, Fault fault, u64 count) {
  Lock lock(GetState().mutex);
  GetState().faults.Add(std::nullopt, n, fault, count);
}

void FailFileOperation(Operation kind, u64 n, Fault fault, u64 count) {
  Lock lock(GetState().mutex);
  GetState().faults.Add(kind, n, fault, count);
}

void ClearFaults() {
  Lock lock(GetState().mutex);
  GetState().faults.Clear();
}

u64 CountFileOperations() {
  Lock lock(GetState().mutex);
  return GetState().faults.Count(std::nullopt);
}

u64 CountFileOperations(Operation kind) {
  Lock lock(GetState().mutex);
  return GetState().faults.Count(kind);
}

void SetDiskLimit(u64 bytes) {
  Lock lock(GetState().mutex);
  GetState().diskLimit = bytes;
}

void CutPower() {
  Lock lock(GetState().mutex);
  GetState().dead = true;
  GetState().powerCut = true;
}

void Reboot(u64 seed) {
  State& state = GetState();
  Lock lock(state.mutex);
  if (state.powerCut) {
    state.disk.LosePower(seed);
  }
  state.dead = false;
  state.powerCut = false;
  ++state.boot;
}

void PutFile(const std::string& path, const std::string& content) {
  State& state = GetState();
  Lock lock(state.mutex);
  state.disk.Put(NormalizePath(path), content, state.scheduler.EpochMs());
}

bool GetFile(const std::string& path, std::string& content) {
  Lock lock(GetState().mutex);
  FilePointer node = GetState().disk.Find(NormalizePath(path));
  if (node == nullptr) {
    return false;
  }
  content = node->Content();
  return true;
}

bool RemoveFile(const std::string& path) {
  Lock lock(GetState().mutex);
  return GetState().disk.Take(NormalizePath(path));
}

std::vector<std::string> ListFiles() {
  Lock lock(GetState().mutex);
  std::vector<std::string> files;
  for (const std::string& path : GetState().disk.List("/", true)) {
    if (!GetState().disk.IsFolder(path)) {
      files.push_back(path);
    }
  }
  return files;
}

u64 ModificationTime(const std::string& path) {
  Lock lock(GetState().mutex);
  FilePointer node = GetState().disk.Find(NormalizePath(path));
  return node == nullptr ? 0 : node->modifiedMs;
}

void SetCaseSensitive(bool sensitive) {
  Lock lock(GetState().mutex);
  GetState().caseSensitive = sensitive;
}

void ShuffleListings(u64 seed) {
  Lock lock(GetState().mutex);
  GetState().listingSeed = seed;
}

void SetInterfaceAddresses(const std::vector<std::string>& ipv4, const std::vector<std::string>& ipv6) {
  Lock lock(GetState().mutex);
  GetState().ipv4 = ipv4;
  GetState().ipv6 = ipv6;
}

void SetCloudService(const CloudService& service) {
  Lock lock(GetState().mutex);
  GetState().cloud = service;
}

void FailThreadStart(u32 count) {
  Lock lock(GetState().mutex);
  GetState().failThreadStarts = count;
}

void FailMutexCreate(u32 count) {
  Lock lock(GetState().mutex);
  GetState().failMutexCreates = count;
}

void FailEventCreate(u32 count) {
  Lock lock(GetState().mutex);
  GetState().failEventCreates = count;
}

void FailEventSignal(u32 count) {
  Lock lock(GetState().mutex);
  GetState().failEventSignals = count;
}

}  // namespace Velmar::Sim
