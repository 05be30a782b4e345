// A module that misbehaves on request: the type of an event says how. Queries it answers with what they hold: a history
// query with the start of its range, a table query with its fixed fields.
#include <new>

#include "RYL/Events/EventSender.h"
#include "RYL/Events/ExternalData.h"
#include "RYL/Events/Records.h"
#include "RYL/Module/Interface.h"
#include "Velmar/Collections/Array.h"
#include "Velmar/Utils/TreeContainer.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "common/libryl_netdb/PolicyKeys.h"
#include "common/netdb_storage/StorageLog.h"
#include "tests/host/FakeModule.h"

namespace {

using namespace RYL;
using Velmar::Collections::Array;
using Velmar::Utils::TreeContainer;

template <class T>
T At(const void* event, u32 offset) {
  T value;
  __builtin_memcpy(&value, static_cast<const char*>(event) + offset, sizeof(T));
  return value;
}

class FakeModule final : public Module::Interface {
 public:
  bool HandleEvent(const void* event, Events::ExternalData* external) override {
    switch (At<u32>(event, Events::ConnectionEvent::kHeader)) {
      case kFakeFull:
        return RefuseAsFull(At<u16>(event, Events::ConnectionEvent::kPort));
      case kFakeRefuse:
        RYL_LOG(ryl_netdb, NoBacklog, 1);
        return false;
      case kFakeNoWakeUp:
        RYL_LOG(ryl_netdb, WorkerNotSignalled, 185);
        return false;
      case kFakeLose:
        RYL_LOG(ryl_netdb, AddGivenUp, 3);
        return true;
      case kFakeDumpFails:
        RYL_LOG(ryl_netdb, DumpFailed);
        return true;
      case kFakeLastDumpFails:
        lastDumpFails_ = true;
        return true;
      case kFakeWorkerEnds:
        RYL_LOG(ryl_netdb, WorkerFolderRefused, "/nowhere");
        return RefuseAsFull(1);
      case kFakeCount:
        requests_ += At<u16>(event, Events::ConnectionEvent::kPort);
        return true;
      case kFakeStatusFails:
        statusFails_ = true;
        return true;
      case kFakeStaysOff:
        staysOff_ = true;
        return true;
      case Events::kNetDbQuery:
        return Answer(At<u64>(event, Events::QueryEvent::kStartTime));
      case Events::kTableQuery:
        return external != nullptr && external->SetBinary("events", event, Events::TableQueryEvent::kTableName);
      default:
        return true;
    }
  }
  bool Start() override { return true; }
  bool Operation4() override { return true; }
  bool Operation5() override { return true; }
  bool Stop() override {
    if (lastDumpFails_) {
      RYL_LOG(netdb_storage, LastDumpFailed, 86400);
    }
    return true;
  }
  void ApplySettings(Module::SettingsSource* settings) override {
    settings->GetBool(Module::PolicyKey::kNetdbEnabled, &enabled_, true, 0);
    settings->GetUInt64(Module::PolicyKey::kMaxDbDays, &days_, 3653, 0);
    enabled_ = enabled_ && !staysOff_;
  }
  bool Operation8() override { return true; }
  void GetSubscribedEvents(Module::SubscribedEvents& /*out*/) override {}
  void* QueryInterface(i32 /*id*/) override { return nullptr; }
  bool Initialize(Module::ModuleHost* host, Module::SettingsSource* settings) override {
    sender_ = host->GetEventSender();
    ApplySettings(settings);
    return true;
  }
  bool SaveStatistics(TreeContainer* tree) override {
    tree->AddUInt32(TreeContainer::kRoot, "total_requests_v4", requests_, false);
    requests_ = 0;
    return true;
  }
  bool GetStatus(const Array<TreeContainer>& history, TreeContainer* report) override {
    u32 requests = requests_;
    requests_ = 0;
    for (u32 i = 0; i < history.count; ++i) {
      requests += history.data[i].GetNodeValueUInt32(TreeContainer::kRoot, "total_requests_v4", 0, nullptr);
    }
    const u32 cloud = report->AddDictionary(TreeContainer::kRoot, "cloud_v4", 8, false);
    report->AddUInt32(cloud, "total_successful_requests", requests, false);
    if (statusFails_) {
      return false;
    }
    const u32 config = report->AddDictionary(TreeContainer::kRoot, "config", 8, false);
    report->AddUInt64(config, "max_db_days", days_, false);
    report->AddBool(config, "netdb_enabled", enabled_, false);
    return true;
  }
  u32 Operation16() override { return 0; }

 private:
  // Full for the first `times` calls in a row.
  bool RefuseAsFull(u32 times) {
    if (refusals_ < times) {
      ++refusals_;
      RYL_LOG(ryl_netdb, BacklogFull, 1);
      RYL_LOG(ryl_netdb, EventNotQueued, 185);
      return false;
    }
    refusals_ = 0;
    return true;
  }

  // An event that holds the start of the range.
  bool Answer(u64 start) {
    TreeContainer reply;
    return reply.Create(4, 4, true, 1) &&
           reply.AddUInt64(TreeContainer::kRoot, "start", start, false) != TreeContainer::kError &&
           sender_->Dispatch(8, &reply, 0, 0, 0);
  }

  Events::EventSender* sender_ = nullptr;
  u32 refusals_ = 0;
  bool lastDumpFails_ = false;
  bool statusFails_ = false;
  bool staysOff_ = false;
  bool enabled_ = true;
  u64 days_ = 0;
  u32 requests_ = 0;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) Module::Interface* Init(Module::ModuleAllocator* /*allocator*/) {
  return new (std::nothrow) FakeModule;
}

extern "C" __attribute__((visibility("default"))) void Uninit() {}
