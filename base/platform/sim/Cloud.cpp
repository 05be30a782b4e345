#include "platform/CloudTransport.h"
#include "platform/sim/Sim.h"
#include "platform/sim/State.h"

namespace Velmar::Platform {

bool SendToCloud(const CloudRequest& request, Cloud::Response& response, u32& status, Utils::String& reason) {
  Sim::CloudService service;
  {
    const std::lock_guard<std::mutex> lock(Sim::GetState().mutex);
    service = Sim::GetState().cloud;
  }
  if (!service) {
    reason.Set("there is no network");
    return false;
  }
  const Sim::CloudReply reply = service({request.endpoint, request.path, std::string(request.body, request.bodySize),
                                         request.bearerToken, request.timeoutMs});
  Sim::AdvanceTime(reply.tookMs < request.timeoutMs ? reply.tookMs : request.timeoutMs);
  if (reply.tookMs >= request.timeoutMs) {
    reason.Set("the time is over");
    return false;
  }
  u64 size = 0;
  for (const std::string& text : reply.texts) {
    size += text.size();
    if (size > request.maxReplyBytes || !response.Add(text.data(), static_cast<u32>(text.size()))) {
      reason.Set("the reply is larger than it may be");
      return false;
    }
  }
  status = reply.status;
  if (status == 0) {
    reason.Set("no reply");
  }
  return status != 0;
}

}  // namespace Velmar::Platform
