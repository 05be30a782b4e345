// Any bytes as a connection event: whatever offsets and texts it holds, intake stays inside the record's reach, and
// what it queues keeps the rules of the store.
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Velmar/Log.h"
#include "Velmar/OS/Path.h"
#include "Velmar/OS/Time.h"
#include "common/libryl_netdb/AddressFilter.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "tests/libryl_netdb/ManagerAccess.h"
#include "tests/support/FakeHost.h"

namespace {

using namespace RYL;
using Access = Module::NetDBManagerTestAccess;
namespace ConnectionEvent = Events::ConnectionEvent;

// A record has no length: a host makes its offsets point inside it. Offsets have 16 bits, and the block of an IPv6
// address or a terminator is behind them, so this much is what a record can reach.
constexpr std::size_t kReach = 0x10000 + Events::AddressBlock::kSizeIPv6;

constexpr u16 kDefinedProtocols = 0x09FF;  // of those that have an event name

void Require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

// Reads what a host would read of a record.
void ReadRecord(const Velmar::Log::Record& record, std::va_list arguments) {
  if (record.messageId == Messages::ryl_netdb::ProtocolUnknown::kId) {
    Require(std::strlen(va_arg(arguments, const char*)) < kReach);
  }
}

// An initialised module with a queue and no worker.
class Intake {
 public:
  Intake() {
    Velmar::OS::Path::SetVariable("P", "/fuzz");
    Velmar::Log::fnLogCallback = &ReadRecord;
    Require(manager_.Initialize(&host_, &policy_));
    queue_ = Velmar::Collections::New<NetDB::Backlog>();
    Require(queue_->Create(4, 4, 1, true, false, Velmar::Collections::GrowType::kFixedStep));
    Access::GetBacklog(manager_) = queue_;
    Access::GetWakeEvent(manager_) = Velmar::Collections::New<Velmar::OS::Event>(false);
  }

  bool Handle(const u8* record) { return manager_.HandleEvent(record, nullptr); }
  bool Take(NetDB::BacklogMessage& message) { return queue_->GetCount() != 0 && queue_->Pop(message); }
  void KeepPrivate(bool keep) { Access::GetSettings(manager_).keep_private_addresses.Set(keep); }

 private:
  FakeHost host_;
  FakeSettings policy_;
  Module::NetDBManager manager_;
  NetDB::Backlog* queue_ = nullptr;  // the manager's
};

void CheckMessage(const NetDB::BacklogMessage& message, const u8* record, u32 type, bool keepPrivate) {
  Require(message.timestamp >= 1000000000 && message.timestamp <= Velmar::OS::Time::GetEpochTime(nullptr) / 1000);
  Require(message.direction <= NetDB::Direction::kOutbound);
  Require((message.protocols & ~kDefinedProtocols) == 0);
  Require(message.has_process == 1);
  Require(message.address != 0);
  Require(Module::PassesAddressFilter(message.address, keepPrivate));
  Require((message.is_new_connection == 1) == (type == Events::kNewConnection));
  Require(type == Events::kTraffic || (message.bytes_in == 0 && message.bytes_out == 0));
  Require(message.bytes_in <= 0xFFFFFFFF && message.bytes_out <= 0xFFFFFFFF);
  Require(std::memcmp(&message.port, record + ConnectionEvent::kPort, sizeof(message.port)) == 0);
  Require(std::memcmp(&message.process_puid, record + ConnectionEvent::kProcessPuid, sizeof(u64)) == 0);
}

}  // namespace

// The last byte chooses the policy, the others are the record.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Intake intake;
  if (size == 0 || size > kReach) {
    return 0;
  }
  std::vector<u8> record(kReach);
  std::memcpy(record.data(), data, size - 1);
  const bool keepPrivate = (data[size - 1] & 1) != 0;
  intake.KeepPrivate(keepPrivate);

  const u32 type = Module::EventReader(record.data()).GetType();
  const Module::EventKind kind = Module::ClassifyEvent(type);
  if (kind == Module::EventKind::kNetDbQuery || kind == Module::EventKind::kTableQuery) {
    return 0;  // QueryEventFuzzer.cpp; they reach further
  }
  const bool isConnection = kind >= Module::EventKind::kNewConnection;
  Require(intake.Handle(record.data()) == isConnection);
  NetDB::BacklogMessage message;
  if (intake.Take(message)) {
    Require(isConnection);
    CheckMessage(message, record.data(), type, keepPrivate);
  }
  NetDB::BacklogMessage more;
  Require(!intake.Take(more));
  return 0;
}
