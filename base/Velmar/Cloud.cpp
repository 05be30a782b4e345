#include "Velmar/Cloud.h"

#include <cstring>
#include <mutex>

#include "BaseLog.h"
#include "Velmar/Memory.h"
#include "platform/CloudTransport.h"

namespace Velmar::Cloud {

struct Response::Text {
  Text* next;
  u32 length;

  char* Characters() { return reinterpret_cast<char*>(this + 1); }
};

namespace {

struct Configuration {
  std::mutex mutex;
  Utils::String endpoint;
  Utils::String caFile;
  Utils::String bearerToken;
  Utils::String proxy;
  u32 maxReplyBytes = kDefaultMaxReplyBytes;
};

Configuration& TheConfiguration() {
  static Configuration configuration;
  return configuration;
}

// What one request uses, so that a change meanwhile does not reach it.
struct RequestTexts {
  Utils::String endpoint;
  Utils::String caFile;
  Utils::String bearerToken;
  Utils::String proxy;
  u32 maxReplyBytes = 0;

  bool Take() {
    Configuration& configuration = TheConfiguration();
    const std::lock_guard<std::mutex> lock(configuration.mutex);
    maxReplyBytes = configuration.maxReplyBytes;
    return endpoint.Set(&configuration.endpoint) && caFile.Set(&configuration.caFile) &&
           bearerToken.Set(&configuration.bearerToken) && proxy.Set(&configuration.proxy);
  }
};

bool StartsWith(const char* text, const char* head) {
  return std::strncmp(text, head, std::strlen(head)) == 0;
}

// What follows `host` ends it.
bool IsHost(const char* authority, const char* host) {
  const std::size_t length = std::strlen(host);
  return std::strncmp(authority, host, length) == 0 && std::strchr(":/", authority[length]) != nullptr;
}

constexpr char kSecure[] = "https://";
constexpr char kPlain[] = "http://";

bool IsPlainLoopback(const char* url) {
  const char* authority = url + sizeof(kPlain) - 1;
  return StartsWith(url, kPlain) &&
         (IsHost(authority, "127.0.0.1") || IsHost(authority, "localhost") || IsHost(authority, "[::1]"));
}

// In the clear a token and the addresses of a history go no further than this machine.
bool IsUsableEndpoint(const char* endpoint) {
  for (const char* c = endpoint; *c != '\0'; ++c) {
    if (static_cast<u8>(*c) <= ' ' || static_cast<u8>(*c) >= 0x7F || std::strchr("?#@\\", *c) != nullptr) {
      return false;
    }
  }
  if (StartsWith(endpoint, kSecure)) {
    return std::strchr("/:", endpoint[sizeof(kSecure) - 1]) == nullptr;
  }
  return IsPlainLoopback(endpoint);
}

// A request in the clear is one that a proxy reads.
bool IsUsableProxy(const char* endpoint, const char* proxy) {
  return proxy[0] == '\0' || !StartsWith(endpoint, kPlain) || IsPlainLoopback(proxy);
}

// A header's value: nothing that would end it.
bool IsUsableToken(const char* token) {
  for (const char* c = token; *c != '\0'; ++c) {
    if (static_cast<u8>(*c) <= ' ' || static_cast<u8>(*c) >= 0x7F) {
      return false;
    }
  }
  return true;
}

const char* OrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

bool Send(const char* path, Utils::TreeContainer& request, Response& response, u32 timeoutMs, u32& status,
          Utils::String& reason) {
  RequestTexts texts;
  Utils::String body;
  if (!texts.Take() || !request.AppendJson(body)) {
    reason.Set("no memory for the request, or no request");
    return false;
  }
  if (texts.endpoint.length == 0) {
    reason.Set("no endpoint is configured");
    return false;
  }
  const Platform::CloudRequest parts{.endpoint = texts.endpoint.text,
                                     .path = path,
                                     .body = body.text,
                                     .bodySize = static_cast<u32>(body.length),
                                     .caFile = texts.caFile.text,
                                     .bearerToken = texts.bearerToken.text,
                                     .proxy = texts.proxy.text,
                                     .timeoutMs = timeoutMs,
                                     .maxReplyBytes = texts.maxReplyBytes};
  return Platform::SendToCloud(parts, response, status, reason);
}

}  // namespace

bool Configure(const Settings& settings) {
  const char* endpoint = OrEmpty(settings.endpoint);
  const char* token = OrEmpty(settings.bearerToken);
  const char* proxy = OrEmpty(settings.proxy);
  if ((endpoint[0] != '\0' && !IsUsableEndpoint(endpoint)) || !IsUsableToken(token) ||
      !IsUsableProxy(endpoint, proxy)) {
    return false;
  }
  Utils::String newEndpoint;
  Utils::String newCaFile;
  Utils::String newToken;
  Utils::String newProxy;
  if (!newEndpoint.Set(endpoint) || !newCaFile.Set(OrEmpty(settings.caFile)) || !newToken.Set(token) ||
      !newProxy.Set(proxy)) {
    return false;
  }
  while (newEndpoint.EndsWith('/', false)) {
    newEndpoint.Truncate(newEndpoint.length - 1);
  }
  Configuration& configuration = TheConfiguration();
  const std::lock_guard<std::mutex> lock(configuration.mutex);
  configuration.endpoint = static_cast<Utils::String&&>(newEndpoint);
  configuration.caFile = static_cast<Utils::String&&>(newCaFile);
  configuration.bearerToken = static_cast<Utils::String&&>(newToken);
  configuration.proxy = static_cast<Utils::String&&>(newProxy);
  configuration.maxReplyBytes = settings.maxReplyBytes;
  return true;
}

Response::~Response() {
  Clear();
}

void Response::Clear() {
  while (first != nullptr) {
    Text* text = first;
    first = text->next;
    Memory::Free(text);
  }
  last = nullptr;
  count = 0;
  successful = false;
}

bool Response::Add(const char* text, u32 length) {
  auto* copy = static_cast<Text*>(Memory::Allocate(sizeof(Text) + length + 1));
  if (copy == nullptr) {
    return false;
  }
  *copy = {nullptr, length};
  std::memcpy(copy->Characters(), text, length);
  copy->Characters()[length] = '\0';
  (last == nullptr ? first : last->next) = copy;
  last = copy;
  ++count;
  return true;
}

const char* Response::GetUnsafeResponse(u32 index) const {
  Text* text = first;
  for (; text != nullptr && index > 0; --index) {
    text = text->next;
  }
  return text == nullptr ? nullptr : text->Characters();
}

bool Query(const char* path, Utils::TreeContainer& request, Response& response, u32 timeoutMs, bool /*reserved*/,
           u32* status, const char* /*reservedText*/) {
  response.Clear();
  u32 httpStatus = 0;
  Utils::String reason;
  const bool answered = path != nullptr && Send(path, request, response, timeoutMs, httpStatus, reason);
  if (answered) {
    response.SetSuccessful(httpStatus == 200);
  } else {
    response.Clear();
    RYL_LOG(base, CloudRequestFailed, reason.text);
  }
  if (status != nullptr) {
    *status = httpStatus;
  }
  return answered;
}

}  // namespace Velmar::Cloud
