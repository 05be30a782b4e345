// The transport over libcurl.
#include "platform/CloudTransport.h"

#include <curl/curl.h>
#include <openssl/ssl.h>

#include <cstring>
#include <memory>
#include <mutex>

namespace Velmar::Platform {
namespace {

struct CurlDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Handle = std::unique_ptr<CURL, CurlDeleter>;

bool InitialiseOnce() {
  static std::once_flag once;
  static bool initialised = false;
  std::call_once(once, [] { initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; });
  return initialised;
}

class HeaderList {
 public:
  bool Add(const char* line) {
    curl_slist* longer = curl_slist_append(list_.get(), line);
    if (longer == nullptr) {
      return false;
    }
    static_cast<void>(list_.release());  // `longer` is the same list
    list_.reset(longer);
    return true;
  }
  [[nodiscard]] curl_slist* Get() const { return list_.get(); }

 private:
  std::unique_ptr<curl_slist, CurlDeleter> list_;
};

struct Body {
  Utils::String text;
  u32 limit;
  bool tooLarge = false;
  bool headersEnded = false;
};

// An empty line ends the headers. Without it a connection that ended among them would pass for an empty reply. Headers
// that follow the body begin with no status line and end with nothing here.
std::size_t TakeHeader(const char* bytes, std::size_t size, std::size_t number, void* context) {
  const std::size_t length = size * number;
  auto& body = *static_cast<Body*>(context);
  if (length > 0 && (bytes[0] == '\r' || bytes[0] == '\n')) {
    body.headersEnded = true;
  } else if (length >= 5 && std::memcmp(bytes, "HTTP/", 5) == 0) {
    body.headersEnded = false;
  }
  return length;
}

// Anything but `size` * `number` ends the transfer.
std::size_t TakeBytes(char* bytes, std::size_t size, std::size_t number, void* context) {
  auto& body = *static_cast<Body*>(context);
  const std::size_t length = size * number;
  body.tooLarge = length > body.limit - static_cast<u32>(body.text.length);
  return !body.tooLarge && body.text.Add(bytes, static_cast<int>(length)) ? length : 0;
}

bool MakeHeaders(const CloudRequest& request, HeaderList& headers) {
  // An empty "Expect" keeps the body from waiting for a leave to be sent.
  if (!headers.Add("Content-Type: application/json") || !headers.Add("Accept: application/json") ||
      !headers.Add("Expect:")) {
    return false;
  }
  if (request.bearerToken[0] == '\0') {
    return true;
  }
  Utils::String line;
  return line.SetFormat("Authorization: Bearer %s", request.bearerToken) && headers.Add(line.text);
}

template <class Value>
bool Set(CURL* handle, CURLoption option, Value value) {
  return curl_easy_setopt(handle, option, value) == CURLE_OK;
}

// Those of the file alone: the folder of the system's would be asked beside it.
bool SetAuthorities(CURL* handle, const char* file) {
  return Set(handle, CURLOPT_CAINFO, file) && Set(handle, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
}

// The library would write the keys of a connection into the file that an environment variable names.
CURLcode WithoutKeyLog(CURL* /*handle*/, void* context, void* /*unused*/) {
  SSL_CTX_set_keylog_callback(static_cast<SSL_CTX*>(context), nullptr);
  return CURLE_OK;
}

bool SetTarget(CURL* handle, const CloudRequest& request) {
  Utils::String url;
  return url.SetFormat("%s%s", request.endpoint, request.path) && Set(handle, CURLOPT_URL, url.text) &&
         Set(handle, CURLOPT_PROTOCOLS_STR, "http,https") && Set(handle, CURLOPT_FOLLOWLOCATION, 0L) &&
         // Both, so that no environment variable is asked.
         Set(handle, CURLOPT_PROXY, request.proxy) && Set(handle, CURLOPT_NOPROXY, "") &&
         Set(handle, CURLOPT_SSL_VERIFYPEER, 1L) && Set(handle, CURLOPT_SSL_VERIFYHOST, 2L) &&
         Set(handle, CURLOPT_SSL_CTX_FUNCTION, &WithoutKeyLog) &&
         (request.caFile[0] == '\0' || SetAuthorities(handle, request.caFile));
}

bool SetTransfer(CURL* handle, const CloudRequest& request, const HeaderList& headers, Body& body) {
  return Set(handle, CURLOPT_NOSIGNAL, 1L) && Set(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeoutMs)) &&
         Set(handle, CURLOPT_POST, 1L) && Set(handle, CURLOPT_POSTFIELDS, request.body) &&
         Set(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.bodySize)) &&
         Set(handle, CURLOPT_HTTPHEADER, headers.Get()) &&
         Set(handle, CURLOPT_MAXFILESIZE, static_cast<long>(request.maxReplyBytes)) &&
         Set(handle, CURLOPT_HEADERFUNCTION, &TakeHeader) && Set(handle, CURLOPT_HEADERDATA, &body) &&
         Set(handle, CURLOPT_WRITEFUNCTION, &TakeBytes) && Set(handle, CURLOPT_WRITEDATA, &body);
}

}  // namespace

bool SendToCloud(const CloudRequest& request, Cloud::Response& response, u32& status, Utils::String& reason) {
  const Handle handle(InitialiseOnce() ? curl_easy_init() : nullptr);
  HeaderList headers;
  Body body{.text = {}, .limit = request.maxReplyBytes};
  if (handle == nullptr || !MakeHeaders(request, headers) || !SetTarget(handle.get(), request) ||
      !SetTransfer(handle.get(), request, headers, body)) {
    reason.Set("no memory, or a setting that cannot be used");
    return false;
  }
  const CURLcode result = curl_easy_perform(handle.get());
  if (body.tooLarge || result == CURLE_FILESIZE_EXCEEDED) {
    reason.Set("the reply is larger than it may be");
    return false;
  }
  if (result != CURLE_OK || !body.headersEnded) {
    reason.Set(result == CURLE_OK ? "the reply ended in its headers" : curl_easy_strerror(result));
    return false;
  }
  long code = 0;
  curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &code);
  status = static_cast<u32>(code);
  if (status == 200 && !response.Add(body.text.text, static_cast<u32>(body.text.length))) {
    reason.Set("no memory for the reply");
    return false;
  }
  return true;
}

}  // namespace Velmar::Platform
