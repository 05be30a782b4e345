// The transport over WinHTTP.
#include "platform/CloudTransport.h"

#include <algorithm>

#include "platform/windows/WindowsApi.h"
// After windows.h.
#include <winhttp.h>

#include <memory>
#include <type_traits>

namespace Velmar::Platform {
namespace {

struct HandleCloser {
  void operator()(HINTERNET handle) const { WinHttpCloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HINTERNET>, HandleCloser>;

constexpr u32 kLongestText = 4096;

// A text in UTF-16, terminated.
struct WideText {
  wchar_t characters[kLongestText] = {};

  bool Set(const char* text) {
    return MultiByteToWideChar(CP_UTF8, 0, text, -1, characters, static_cast<int>(kLongestText)) > 0;
  }
};

struct Target {
  wchar_t host[kLongestText] = {};
  wchar_t path[kLongestText] = {};
  INTERNET_PORT port = 0;
  bool secure = false;

  bool Set(const CloudRequest& request) {
    Utils::String url;
    WideText wide;
    if (!url.SetFormat("%s%s", request.endpoint, request.path) || !wide.Set(url.text)) {
      return false;
    }
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof(parts);
    parts.lpszHostName = host;
    parts.dwHostNameLength = kLongestText;
    parts.lpszUrlPath = path;
    parts.dwUrlPathLength = kLongestText;
    if (WinHttpCrackUrl(wide.characters, 0, 0, &parts) == FALSE) {
      return false;
    }
    port = parts.nPort;
    secure = parts.nScheme == INTERNET_SCHEME_HTTPS;
    return true;
  }
};

bool AddHeaders(HINTERNET handle, const CloudRequest& request) {
  Utils::String lines;
  WideText wide;
  if (!lines.Set("Content-Type: application/json\r\nAccept: application/json\r\n") ||
      (request.bearerToken[0] != '\0' && !lines.AddFormat("Authorization: Bearer %s\r\n", request.bearerToken)) ||
      !wide.Set(lines.text)) {
    return false;
  }
  return WinHttpAddRequestHeaders(handle, wide.characters, static_cast<DWORD>(-1), WINHTTP_ADDREQ_FLAG_ADD) != FALSE;
}

// What is left of the request's time becomes the limit of the next step.
class Deadline {
 public:
  explicit Deadline(u32 timeoutMs) : end_(GetTickCount64() + timeoutMs) {}
  bool Apply(HINTERNET handle) const {
    const ULONGLONG now = GetTickCount64();
    if (now >= end_) {
      return false;
    }
    const int left = static_cast<int>(std::min<ULONGLONG>(end_ - now, 0x7FFFFFFF));
    return WinHttpSetTimeouts(handle, left, left, left, left) != FALSE;
  }

 private:
  ULONGLONG end_;
};

bool Refuse(Utils::String& reason, const char* sentence) {
  reason.Set(sentence);
  return false;
}

bool ReadBody(HINTERNET handle, const Deadline& deadline, u32 limit, Utils::String& body, Utils::String& reason) {
  char piece[kLongestText];
  for (;;) {
    DWORD size = 0;
    if (!deadline.Apply(handle) || WinHttpReadData(handle, piece, sizeof(piece), &size) == FALSE) {
      return Refuse(reason, "the reply did not come whole");
    }
    if (size == 0) {
      return true;
    }
    if (size > limit - static_cast<u32>(body.length)) {
      return Refuse(reason, "the reply is larger than it may be");
    }
    if (!body.Add(piece, static_cast<int>(size))) {
      return Refuse(reason, "no memory for the reply");
    }
  }
}

bool ReadStatus(HINTERNET handle, u32& status) {
  DWORD code = 0;
  DWORD size = sizeof(code);
  if (WinHttpQueryHeaders(handle, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, WINHTTP_HEADER_NAME_BY_INDEX,
                          &code, &size, WINHTTP_NO_HEADER_INDEX) == FALSE) {
    return false;
  }
  status = code;
  return true;
}

Handle OpenSession(const CloudRequest& request) {
  WideText proxy;
  const bool hasProxy = request.proxy[0] != '\0';
  if (!proxy.Set(request.proxy)) {
    return nullptr;
  }
  return Handle(WinHttpOpen(L"netdb", hasProxy ? WINHTTP_ACCESS_TYPE_NAMED_PROXY : WINHTTP_ACCESS_TYPE_NO_PROXY,
                            hasProxy ? proxy.characters : WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
}

}  // namespace

bool SendToCloud(const CloudRequest& request, Cloud::Response& response, u32& status, Utils::String& reason) {
  if (request.caFile[0] != '\0') {
    return Refuse(reason, "authorities of its own come from the system's store here, not from a file");
  }
  const Deadline deadline(request.timeoutMs);
  Target target;
  const Handle session = OpenSession(request);
  if (session == nullptr || !target.Set(request) || !deadline.Apply(session.get())) {
    return Refuse(reason, "no memory, or a setting that cannot be used");
  }
  const Handle connection(WinHttpConnect(session.get(), target.host, target.port, 0));
  const Handle handle(connection == nullptr
                          ? nullptr
                          : WinHttpOpenRequest(connection.get(), L"POST", target.path, nullptr, WINHTTP_NO_REFERER,
                                               WINHTTP_DEFAULT_ACCEPT_TYPES, target.secure ? WINHTTP_FLAG_SECURE : 0));
  DWORD disabled = WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION;
  if (handle == nullptr ||
      WinHttpSetOption(handle.get(), WINHTTP_OPTION_DISABLE_FEATURE, &disabled, sizeof(disabled)) == FALSE ||
      !AddHeaders(handle.get(), request)) {
    return Refuse(reason, "no memory, or a setting that cannot be used");
  }
  if (WinHttpSendRequest(handle.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, const_cast<char*>(request.body),
                         request.bodySize, request.bodySize, 0) == FALSE ||
      !deadline.Apply(handle.get()) || WinHttpReceiveResponse(handle.get(), nullptr) == FALSE ||
      !ReadStatus(handle.get(), status)) {
    return Refuse(reason, "the service cannot be reached, or did not answer in time");
  }
  Utils::String body;
  if (!ReadBody(handle.get(), deadline, request.maxReplyBytes, body, reason)) {
    status = 0;
    return false;
  }
  return status != 200 || response.Add(body.text, static_cast<u32>(body.length));
}

}  // namespace Velmar::Platform
