// Cloud: one request to the agent's cloud endpoint, and its reply.
//
//   Cloud::Configure({.endpoint = "https://cloud.example:8443", .bearerToken = token});   // the host, once
//   Cloud::Response response;
//   if (Cloud::Query("/batch/ip/gtm", tree, response, 100000, false, nullptr, nullptr) &&
//       response.IsCloudRequestSuccesifull()) ...
#pragma once

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"
#include "Velmar/Utils/TreeContainer.h"
#include "platform/Export.h"

namespace Velmar::Cloud {

inline constexpr u32 kDefaultMaxReplyBytes = 1 << 20;

// Where and how to ask: settings of the deployment. Texts are copied; null is empty.
struct Settings {
  const char* endpoint = nullptr;     // "https://HOST[:PORT][/PREFIX]"; "http://" for loopback hosts only. Empty: none
  const char* caFile = nullptr;       // certificate authorities, PEM; empty: those of the system
  const char* bearerToken = nullptr;  // sent as "Authorization: Bearer TOKEN"; never logged
  // URL; empty: none, whatever the environment says. Beside an "http://" endpoint one that is on loopback hosts, too.
  const char* proxy = nullptr;
  u32 maxReplyBytes = kDefaultMaxReplyBytes;
};

// Holds for the requests that begin later. False, with the old settings in force, for an endpoint, a token or a proxy
// that cannot be used and without memory. Without an endpoint every request fails, as it does on a machine without a
// network. Thread-safe.
RYL_API bool Configure(const Settings& settings);

// The parts of a reply: texts that are expected to be JSON. An HTTP reply has one, which may be empty.
// Threads: thread-compatible.
class RYL_API Response {
 public:
  Response() = default;
  ~Response();
  Response(const Response&) = delete;
  Response& operator=(const Response&) = delete;

  // The service took the request as a whole (HTTP status 200).
  [[nodiscard]] bool IsCloudRequestSuccesifull() const { return successful; }
  [[nodiscard]] u32 GetResponsesCount() const { return count; }
  // Terminated; lives as long as the response. Null past the end.
  [[nodiscard]] const char* GetUnsafeResponse(u32 index) const;

  // For the transport: no texts and no success again, a further text, and what became of the request.
  void Clear();
  bool Add(const char* text, u32 length);
  void SetSuccessful(bool value) { successful = value; }

 private:
  struct Text;

  Text* first = nullptr;
  Text* last = nullptr;
  u32 count = 0;
  bool successful = false;
};

// Posts `request` as JSON to the endpoint followed by `path`. False, after a level 3 record, when no whole reply came
// within `timeoutMs` or the reply is larger than it may be. Redirects are not followed. `status`, which may be null,
// gets the HTTP status, 0 without a reply. The two unnamed arguments are false and null. Blocks; thread-safe.
RYL_API bool Query(const char* path, Utils::TreeContainer& request, Response& response, u32 timeoutMs, bool reserved,
                   u32* status, const char* reservedText);

}  // namespace Velmar::Cloud
