// SimCloud: a service on the simulated platform that says which addresses are harmless.
//
//   SimCloud cloud;
//   cloud.harmless = {"203.0.113.9"};
//   ... run what asks ...
//   EXPECT_EQ(cloud.Requests().size(), 1U);
#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "Velmar/Cloud.h"
#include "Velmar/OS/Time.h"
#include "platform/sim/Sim.h"

// One at a time, after the last Sim::Reset. Thread-safe but for its settings, which stand before somebody asks.
class SimCloud {
 public:
  struct Request {
    Velmar::u64 timeMs;
    std::vector<std::string> addresses;
  };
  static constexpr std::size_t kNever = ~std::size_t{0};

  std::set<std::string> harmless;
  // Requests from this number on, of all, are answered with HTTP status 503.
  std::size_t failsFrom = kNever;
  // Called within each request; may look around, block or throw.
  std::function<void()> onRequest;

  SimCloud() {
    Velmar::Cloud::Configure({.endpoint = "https://cloud.example"});
    Velmar::Sim::SetCloudService([this](const Velmar::Sim::CloudCall& call) { return Answer(call); });
  }
  ~SimCloud() {
    Velmar::Sim::SetCloudService({});
    Velmar::Cloud::Configure({});
  }
  SimCloud(const SimCloud&) = delete;
  SimCloud& operator=(const SimCloud&) = delete;

  std::vector<Request> Requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
  }
  // Addresses of all requests, in order.
  std::vector<std::string> Asked() const {
    std::vector<std::string> asked;
    for (const Request& request : Requests()) {
      asked.insert(asked.end(), request.addresses.begin(), request.addresses.end());
    }
    return asked;
  }

 private:
  Velmar::Sim::CloudReply Answer(const Velmar::Sim::CloudCall& call) {
    const std::vector<std::string> addresses = AddressesOf(call.body);
    std::size_t number = 0;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      number = requests_.size();
      requests_.push_back({Velmar::OS::Time::GetEpochTime(nullptr), addresses});
    }
    if (onRequest) {
      onRequest();
    }
    if (number >= failsFrom) {
      return {.status = 503, .texts = {}};
    }
    std::string text = "[";
    for (const std::string& address : addresses) {
      text += text.size() == 1 ? "" : ",";
      text += harmless.count(address) != 0 ? R"({"status_code":0,"data":{"is_whitelisted":true}})"
                                           : R"({"status_code":0,"data":{"is_whitelisted":false}})";
    }
    return {.texts = {text + "]"}};
  }

  static std::vector<std::string> AddressesOf(const std::string& body) {
    static constexpr char kKey[] = "\"ip\":\"";
    std::vector<std::string> addresses;
    for (std::size_t at = body.find(kKey); at != std::string::npos; at = body.find(kKey, at)) {
      at += sizeof(kKey) - 1;
      addresses.push_back(body.substr(at, body.find('"', at) - at));
    }
    return addresses;
  }

  mutable std::mutex mutex_;
  std::vector<Request> requests_;
};
