// ReputationService: an HTTP service on the loopback interface that says which addresses are harmless.
//
//   ReputationService service;
//   service.Use(std::make_shared<const AddressList>(std::move(networks)));
//   if (service.Start(*ListenAddress::Parse("127.0.0.1:0"), error)) ...  service.Url()
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "host/Types.h"
#include "host/reputation/AddressList.h"

struct MHD_Daemon;

namespace Host::Reputation {

inline constexpr char kBatchPath[] = "/batch/ip/gtm";
inline constexpr std::size_t kMaxBody = 1024 * 1024;

// Where to listen: a loopback address and a port.
struct ListenAddress {
  Address address;
  u16 port = 0;  // 0: any free one

  // "127.0.0.1:8080", "[::1]:8080". Nothing, with a sentence in `error`, for anything else and for an address that
  // other machines reach: the service asks nobody who he is.
  static std::optional<ListenAddress> Parse(std::string_view text, std::string& error);
};

// Answers POST kBatchPath; what it refuses gets an error status and {"error": TEXT}: 404 for other paths, 405 for other
// methods, 413 for a body above kMaxBody, 400 for one that is no list of addresses. A connection serves one request.
// The number of connections, the bytes of a request's head and the time without progress are limited.
//
// Threads: Use may be called at any time from any thread, and a request sees one list from its start to its end. The
// rest is the owner's. Lifetime: stops with its destruction; requests under way are cut.
class ReputationService {
 public:
  ReputationService();
  ~ReputationService();
  ReputationService(const ReputationService&) = delete;
  ReputationService& operator=(const ReputationService&) = delete;

  void Use(std::shared_ptr<const AddressList> harmless);
  [[nodiscard]] std::shared_ptr<const AddressList> InUse() const;
  // False with a sentence in `error`.
  bool Start(const ListenAddress& where, std::string& error);
  // "http://127.0.0.1:PORT", once started.
  [[nodiscard]] const std::string& Url() const { return url_; }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const AddressList> harmless_;
  MHD_Daemon* daemon_ = nullptr;
  std::string url_;
};

}  // namespace Host::Reputation
