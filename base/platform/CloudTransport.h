// CloudTransport: how a back sends a request to the cloud.
#pragma once

#include "Velmar/Cloud.h"
#include "Velmar/Types.h"

namespace Velmar::Platform {

// All texts are terminated and never null; empty is "none".
struct CloudRequest {
  const char* endpoint;
  const char* path;
  const char* body;  // JSON
  u32 bodySize;
  const char* caFile;
  const char* bearerToken;
  const char* proxy;
  u32 timeoutMs;  // for all of it, from the name's resolution to the last byte
  u32 maxReplyBytes;
};

// One POST. True when a whole reply came: `status` is its HTTP status, and with 200 its body is in `response`. Else
// false, with a sentence without secrets in `reason`. `response` comes empty. Thread-safe.
bool SendToCloud(const CloudRequest& request, Cloud::Response& response, u32& status, Utils::String& reason);

}  // namespace Velmar::Platform
