// NetDBManager's intake of events, on the host's threads.
#include "Velmar/OS/Time.h"
#include "common/libryl_netdb/AddressFilter.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "common/libryl_netdb/NetDBManager.h"

namespace RYL::Module {
namespace {

constexpr u64 kEarliestTime = 1000000000;

// Epoch seconds of the event, or of now when its own time cannot be.
u64 TimestampOf(const EventReader& reader) {
  const u64 eventTimeMs = reader.GetEventTimeMs();
  const u64 seconds = eventTimeMs / 1000;
  const u64 now = Velmar::OS::Time::GetEpochTime(nullptr) / 1000;
  u64 timestamp = seconds;
  if (seconds > now || seconds < kEarliestTime) {
    RYL_LOG(ryl_netdb, ImpossibleTime, seconds, now);
    RYL_LOG(ryl_netdb, ImpossibleEventTime, reader.GetType(), reader.GetFirstBytes(), eventTimeMs);
    timestamp = now;
  }
  RYL_LOG(ryl_netdb, EventStamped, reader.GetProcessPuid());
  return timestamp;
}

void LogMissingAddress(const EventReader& reader, EventKind kind) {
  if (kind == EventKind::kQuietActivity) {
    RYL_LOG(ryl_netdb, ActivityAddressMissing, reader.GetType(), reader.GetFirstBytes());
  } else {
    RYL_LOG(ryl_netdb, AddressMissing, reader.GetType(), reader.GetFirstBytes());
  }
}

}  // namespace

bool NetDBManager::HandleEvent(const void* event, Events::ExternalData* external) {
  if (event == nullptr) {
    RYL_LOG(ryl_netdb, NullEvent);
    return false;
  }
  const EventReader reader(event);
  const u32 type = reader.GetType();
  if (!settings.netdb_enabled.Get()) {
    RYL_LOG(ryl_netdb, ModuleDisabled, type);
    return true;
  }
  const EventKind kind = ClassifyEvent(type);
  if (kind == EventKind::kNetDbQuery) {
    return HandleQuery(static_cast<const Events::Objects::NetDbQuery*>(event), external);
  }
  if (kind == EventKind::kTableQuery) {
    return HandleOSQuery(static_cast<const Events::Objects::StorageTableQuery*>(event), external);
  }
  if (kind == EventKind::kUnknown) {
    RYL_LOG(ryl_netdb, EventTypeRefused, type, reader.GetFirstBytes());
    return false;
  }
  return HandleConnection(reader, kind);
}

bool NetDBManager::HandleConnection(const EventReader& reader, EventKind kind) {
  if (!reader.HasAddress()) {
    LogMissingAddress(reader, kind);
    return true;
  }
  // IPv6 connections are not recorded, although the store has a table for them.
  if (reader.IsIPv6()) {
    return true;
  }
  NetDB::BacklogMessage message;
  message.is_new_connection = kind == EventKind::kNewConnection ? 1 : 0;
  if (!reader.ReadCommonFields(protocol_table, message)) {
    RYL_LOG(ryl_netdb, CommonFieldsNotRead, reader.GetType(), reader.GetFirstBytes());
    return false;
  }
  message.timestamp = TimestampOf(reader);
  message.process_puid = reader.GetProcessPuid();
  message.has_process = 1;
  if (kind == EventKind::kTraffic) {
    message.bytes_in = reader.GetBytesIn();
    message.bytes_out = reader.GetBytesOut();
  }
  return !IsWanted(message.address) || Enqueue(message, reader.GetType());
}

// The verdicts have no say about a private address that is to be kept.
bool NetDBManager::IsWanted(u32 address) {
  if (!PassesAddressFilter(address, settings.keep_private_addresses.Get())) {
    return false;
  }
  const NetDB::IPv4 remote = NetDB::IPv4::FromRaw(address);
  return IsPrivateAddress(address) || !verdict_cache.IsWhitelisted(&remote);
}

bool NetDBManager::Enqueue(const NetDB::BacklogMessage& message, u32 type) {
  const IntakeGate::Passage passage(gate);
  // Only this reading counts against a stop: the first one, outside the gate, may be out of date.
  if (!settings.netdb_enabled.Get()) {
    RYL_LOG(ryl_netdb, ModuleDisabled, type);
    return true;
  }
  NetDB::Backlog* queue = backlog.load();
  if (queue == nullptr) {
    RYL_LOG(ryl_netdb, NoBacklog, type);
    return false;
  }
  if (!queue->Push(message)) {
    RYL_LOG(ryl_netdb, EventNotQueued, type);
    return false;
  }
  Velmar::OS::Event* event = wake_event.load();
  if (event == nullptr || !event->Signal()) {
    RYL_LOG(ryl_netdb, WorkerNotSignalled, type);
    return false;
  }
  return true;
}

}  // namespace RYL::Module
