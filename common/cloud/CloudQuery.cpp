// CloudStatus's conversation with the cloud.
#include <type_traits>

#include "Velmar/Cloud.h"
#include "Velmar/Collections/Array.h"
#include "Velmar/OS/Network.h"
#include "Velmar/OS/Time.h"
#include "common/cloud/CloudLog.h"
#include "common/cloud/CloudStatus.h"

namespace RYL::NetDB {
namespace {

using Velmar::OS::Network;
using Velmar::OS::Time;
using Velmar::Utils::TreeContainer;

constexpr char kPath[] = "/batch/ip/gtm";
constexpr char kProjection[] = "status_code,data.is_whitelisted";
constexpr u32 kChildHint = 8;
constexpr u32 kAddressText = 40;

bool ToText(u32 address, char (&text)[kAddressText]) {
  return Network::ConvertIPv4BinaryToString(address, text, 16);
}

bool ToText(const Velmar::Types::UInt128& address, char (&text)[kAddressText]) {
  return Network::ConvertIPv6BinaryToString(address, text, sizeof(text));
}

// An answer with another status, or without data, is a verdict too: not harmless. A status that is no integer is not
// that of an answer.
bool IsHarmless(const TreeContainer& reply, u32 answer) {
  const u32 status = reply.GetNodeChild(answer, "status_code");
  bool isInteger = true;
  const i32 code = status == TreeContainer::kError ? 0 : reply.GetCurrentNodeValueInt32(status, 0, &isInteger);
  const u32 data = reply.GetNodeChild(answer, "data");
  return isInteger && code == 0 && data != TreeContainer::kError &&
         reply.GetNodeValueBool(data, "is_whitelisted", false, nullptr);
}

}  // namespace

template <class T>
bool CloudStatus<T>::Resolve(IPIterator* iterator) {
  if (iterator == nullptr) {
    RYL_LOG(cloud, ResolveWithoutAddresses);
    return false;
  }
  typename T::Raw area[kBatchSize];
  Batch batch;
  if (!batch.Create(area, kBatchSize, true, false, kBatchSize, kBatchSize, true,
                    Velmar::Collections::GrowType::kFixedStep, kNone)) {
    RYL_LOG(cloud, BatchNotKept);
    return false;
  }
  while (iterator->HasNext()) {
    const T* address = iterator->Next();
    if (Lookup(address, nullptr)) {
      continue;
    }
    if (!batch.Add(address->ToRaw())) {
      RYL_LOG(cloud, BatchNotKept);
      return false;
    }
    if (batch.GetCount() == kBatchSize) {
      if (!QueryBatch(batch)) {
        RYL_LOG(cloud, ResolveStopped);
        return false;
      }
      batch.Empty();
    }
  }
  if (!QueryBatch(batch)) {
    RYL_LOG(cloud, ResolveStopped);
    return false;
  }
  return true;
}

template <class T>
bool CloudStatus<T>::QueryBatch(Batch& batch) {
  if (batch.GetCount() == 0) {
    return true;
  }
  Pace();
  if (!BuildRequest(batch)) {
    return false;
  }
  ++total_requests;
  Velmar::Cloud::Response response;
  if (!Velmar::Cloud::Query(kPath, request_tree, response, kRequestTimeoutMs, false, nullptr, nullptr)) {
    RYL_LOG(cloud, CloudNotReached);
    return false;
  }
  if (!response.IsCloudRequestSuccesifull()) {
    RYL_LOG(cloud, CloudRefused);
    return false;
  }
  ++total_successful_requests;
  last_request_time = Time::GetEpochTime(nullptr);
  for (u32 index = 0; index < response.GetResponsesCount(); ++index) {
    if (!TakeReply(batch, response.GetUnsafeResponse(index))) {
      return false;
    }
  }
  return true;
}

// Requests that failed are not paced against each other: who starts the jobs backs off.
template <class T>
void CloudStatus<T>::Pace() const {
  const u64 elapsed = Time::GetEpochTime(nullptr) - last_request_time;
  if (elapsed < kPaceMs) {
    RYL_LOG(cloud, CloudPaced, elapsed, kPaceMs);
    Time::Sleep(static_cast<u32>(kPaceMs - elapsed));
  }
}

template <class T>
bool CloudStatus<T>::BuildRequest(const Batch& batch) {
  if (!request_tree.Reset(false, kChildHint)) {
    RYL_LOG(cloud, RequestNotBuilt);
    return false;
  }
  for (u32 index = 0; index < batch.GetCount(); ++index) {
    typename T::Raw address{};
    char text[kAddressText];
    u32 entry = TreeContainer::kError;
    if (!batch.Get(index, address) || !ToText(address, text) ||
        (entry = request_tree.AddDictionary(TreeContainer::kRoot, "", kChildHint, false)) == TreeContainer::kError ||
        request_tree.AddString(entry, "projection", kProjection, kNone, false) == TreeContainer::kError ||
        request_tree.AddString(entry, "ip", text, kNone, false) == TreeContainer::kError) {
      RYL_LOG(cloud, RequestNotBuilt);
      return false;
    }
  }
  return true;
}

template <class T>
bool CloudStatus<T>::TakeReply(const Batch& batch, const char* text) {
  if (!response_tree.CreateFromJsonString(text, -1, true, false)) {
    RYL_LOG(cloud, ReplyNotRead);
    return false;
  }
  const u32 answers = response_tree.GetNodeChildrenCount(TreeContainer::kRoot);
  if (answers != batch.GetCount()) {
    RYL_LOG(cloud, AnswersMissing, batch.GetCount(), answers);
    return false;
  }
  for (u32 index = 0; index < answers; ++index) {
    const u32 answer = response_tree.GetNodeChild(TreeContainer::kRoot, index);
    typename T::Raw address{};
    if (answer == TreeContainer::kError || !batch.Get(index, address)) {
      RYL_LOG(cloud, AnswerMissing, index);
      return false;
    }
    if (!StoreVerdict(T::FromRaw(address), IsHarmless(response_tree, answer))) {
      RYL_LOG(cloud, VerdictNotStored);
      return false;
    }
  }
  return true;
}

template bool CloudStatus<IPv4>::Resolve(IPIterator* iterator);
template bool CloudStatus<IPv6>::Resolve(IPIterator* iterator);

}  // namespace RYL::NetDB
