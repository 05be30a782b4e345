#include "host/reputation/ReputationService.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Velmar/Cloud.h"
#include "Velmar/Utils/TreeContainer.h"
#include "host/Descriptor.h"
#include "host/agent/CloudSettings.h"
#include "host/reputation/Answer.h"

namespace {

using namespace Host;
using namespace Host::Reputation;
using testing::HasSubstr;
using testing::StartsWith;
using Velmar::Utils::TreeContainer;

constexpr char kYes[] = R"({"status_code":0,"data":{"is_whitelisted":true}})";
constexpr char kNo[] = R"({"status_code":0,"data":{"is_whitelisted":false}})";
constexpr char kNone[] = R"({"status_code":400,"data":{"is_whitelisted":false}})";

std::shared_ptr<const AddressList> ListOf(const std::vector<std::string>& texts) {
  std::vector<Network> networks;
  for (const std::string& text : texts) {
    bool ignored = false;
    const auto network = ReadNetwork(text, ignored);
    EXPECT_TRUE(network) << text;
    networks.push_back(network.value_or(Network{}));
  }
  return std::make_shared<const AddressList>(std::move(networks));
}

std::string Batch(const std::vector<std::string>& addresses) {
  std::string text = "[";
  for (const std::string& address : addresses) {
    text +=
        (text.size() > 1 ? "," : "") + (R"({"projection":"status_code,data.is_whitelisted","ip":")" + address) + "\"}";
  }
  return text + "]";
}

std::string Request(const std::string& method, const std::string& path, const std::string& body) {
  return method + " " + path + " HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

std::string Post(const std::string& body) {
  return Request("POST", kBatchPath, body);
}

std::string BodyOf(const std::string& reply) {
  const std::size_t end = reply.find("\r\n\r\n");
  return end == std::string::npos ? "" : reply.substr(end + 4);
}

// A service of two networks on a free port.
class ReputationServiceTest : public testing::Test {
 protected:
  ReputationServiceTest() {
    std::string error;
    service_.Use(ListOf({"192.0.2.0/24", "2001:db8::/32"}));
    EXPECT_TRUE(service_.Start(*ListenAddress::Parse("127.0.0.1:0", error), error)) << error;
    const std::string& url = service_.Url();
    port_ = static_cast<u16>(std::atoi(url.c_str() + url.rfind(':') + 1));
  }

  [[nodiscard]] Descriptor Connect() const {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port_);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    return socket;
  }

  // All that comes until the service closes.
  [[nodiscard]] std::string Ask(const std::string& request) const {
    const Descriptor socket = Connect();
    for (std::size_t at = 0; at < request.size();) {
      const ssize_t size = send(socket.Get(), request.data() + at, request.size() - at, MSG_NOSIGNAL);
      if (size <= 0) {
        break;
      }
      at += static_cast<std::size_t>(size);
    }
    std::string reply;
    char part[4096];
    ssize_t size = 0;
    while ((size = recv(socket.Get(), part, sizeof(part), 0)) > 0) {
      reply.append(part, static_cast<std::size_t>(size));
    }
    return reply;
  }

  void ExpectServing() const { EXPECT_EQ(BodyOf(Ask(Post(Batch({"192.0.2.1"})))), std::string("[") + kYes + "]"); }

  ReputationService service_;
  u16 port_ = 0;
};

TEST_F(ReputationServiceTest, AnswersEachAddressInOrder) {
  const std::string reply = Ask(Post(Batch({"192.0.2.255", "192.0.3.0", "example", "2001:db8::1", "2001:db9::"})));
  EXPECT_THAT(reply, StartsWith("HTTP/1.1 200 "));
  EXPECT_THAT(reply, HasSubstr("\r\nContent-Type: application/json\r\n"));
  EXPECT_EQ(BodyOf(reply), std::string("[") + kYes + "," + kNo + "," + kNone + "," + kYes + "," + kNo + "]");
}

TEST_F(ReputationServiceTest, AnswersTheModulesOwnTransport) {
  std::string error;
  CloudSettings settings;
  ASSERT_TRUE(settings.Set(AllCloudSettings()[0], service_.Url(), 1, error)) << error;
  ASSERT_TRUE(ConfigureCloud(settings, "p.toml", error)) << error;
  TreeContainer request;
  ASSERT_TRUE(request.Create(256, 32, false, 8));
  for (const char* address : {"192.0.2.1", "203.0.113.1"}) {
    const u32 entry = request.AddDictionary(TreeContainer::kRoot, "", 8, false);
    ASSERT_NE(request.AddString(entry, "projection", "status_code,data.is_whitelisted", 0xFFFFFFFF, false),
              TreeContainer::kError);
    ASSERT_NE(request.AddString(entry, "ip", address, 0xFFFFFFFF, false), TreeContainer::kError);
  }
  Velmar::Cloud::Response response;
  u32 status = 0;
  ASSERT_TRUE(Velmar::Cloud::Query(kBatchPath, request, response, 100000, false, &status, nullptr));
  EXPECT_EQ(status, 200U);
  EXPECT_TRUE(response.IsCloudRequestSuccesifull());
  ASSERT_EQ(response.GetResponsesCount(), 1U);
  EXPECT_EQ(response.GetUnsafeResponse(0), std::string("[") + kYes + "," + kNo + "]");
}

TEST_F(ReputationServiceTest, ThereIsNoOtherPath) {
  for (const char* path : {"/", "/batch/ip", "/batch/ip/gtm/", "/batch/ip/gtmx", "//batch/ip/gtm", "/BATCH/ip/gtm"}) {
    EXPECT_THAT(Ask(Request("POST", path, "[]")), StartsWith("HTTP/1.1 404 ")) << path;
    EXPECT_THAT(Ask(Request("GET", path, "")), StartsWith("HTTP/1.1 404 ")) << path;
  }
}

TEST_F(ReputationServiceTest, ThereIsNoOtherMethod) {
  for (const char* method : {"GET", "HEAD", "PUT", "DELETE", "OPTIONS", "TRACE", "FOO"}) {
    const std::string reply = Ask(Request(method, kBatchPath, "[]"));
    EXPECT_THAT(reply, StartsWith("HTTP/1.1 405 ")) << method;
    EXPECT_THAT(reply, HasSubstr("\r\nAllow: POST\r\n")) << method;
  }
}

TEST_F(ReputationServiceTest, BodyOfAnotherShapeIsRefused) {
  for (const std::string& body :
       {std::string(), std::string("["), std::string("{}"), std::string("5"), std::string("null"), std::string("[5]"),
        std::string("[{}]"), std::string(R"([{"ip":5}])"), std::string(R"([["ip","192.0.2.1"]])"),
        std::string(R"([{"ip":"192.0.2.1"},{"IP":"192.0.2.1"}])"), std::string(R"([{"ip":"192.0.2.1"}] x)"),
        std::string("[{\"ip\":\"\xFF\"}]"), std::string(500000, '['), "[" + std::string(300000, '{')}) {
    EXPECT_THAT(Ask(Post(body)), StartsWith("HTTP/1.1 400 ")) << body.substr(0, 60);
  }
}

TEST_F(ReputationServiceTest, EmptyListGetsAnEmptyOne) {
  EXPECT_EQ(BodyOf(Ask(Post("[]"))), "[]");
}

TEST_F(ReputationServiceTest, ThousandAddressesAreTheMost) {
  const std::vector<std::string> most(kMaxAddresses, "192.0.2.1");
  const std::string reply = Ask(Post(Batch(most)));
  EXPECT_THAT(reply, StartsWith("HTTP/1.1 200 "));
  EXPECT_EQ(BodyOf(reply).size(), 2 + kMaxAddresses * sizeof(kYes) - 1);
  std::vector<std::string> more = most;
  more.emplace_back("192.0.2.1");
  EXPECT_THAT(Ask(Post(Batch(more))), StartsWith("HTTP/1.1 400 "));
}

TEST_F(ReputationServiceTest, BodyAboveTheLimitIsRefused) {
  const std::string batch = Batch({"192.0.2.1"});
  const std::string most = batch + std::string(kMaxBody - batch.size(), ' ');
  EXPECT_THAT(Ask(Post(most)), StartsWith("HTTP/1.1 200 "));
  EXPECT_THAT(Ask(Post(most + " ")), StartsWith("HTTP/1.1 413 "));
  char length[32];
  std::snprintf(length, sizeof(length), "%zx", most.size() + 1);
  EXPECT_THAT(Ask("POST " + std::string(kBatchPath) + " HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n" +
                  length + "\r\n" + most + " \r\n0\r\n\r\n"),
              StartsWith("HTTP/1.1 413 "));
  ExpectServing();
}

TEST_F(ReputationServiceTest, HeadAboveTheLimitIsRefused) {
  const std::string reply =
      Ask("POST " + std::string(kBatchPath) + " HTTP/1.1\r\nX: " + std::string(20 << 20, 'x') + "\r\n\r\n");
  EXPECT_EQ(reply.find("200 OK"), std::string::npos);
  ExpectServing();
}

TEST_F(ReputationServiceTest, HostileBytesStopNothing) {
  for (const std::string& bytes :
       {std::string("\r\n\r\n"), std::string("GET\r\n\r\n"), std::string(1000, '\0'), std::string("\xFF\xFE\r\n\r\n"),
        std::string("POST /batch/ip/gtm HTTP/1.1\r\nHost: x\r\nContent-Length: -5\r\n\r\n"),
        std::string("POST /batch/ip/gtm HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n")}) {
    const Descriptor socket = Connect();
    EXPECT_EQ(send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }
  ExpectServing();
}

TEST_F(ReputationServiceTest, ConnectionsThatGoAwayMakeRoom) {
  {
    std::vector<Descriptor> silent;
    for (int i = 0; i < 32; ++i) {
      silent.push_back(Connect());
    }
    ExpectServing();
  }
  ExpectServing();
}

TEST_F(ReputationServiceTest, EndsBesideOpenConnections) {
  std::string error;
  std::vector<Descriptor> open;
  ReputationService other;
  ASSERT_TRUE(other.Start(*ListenAddress::Parse("127.0.0.1:0", error), error)) << error;
  const u16 mine = port_;
  port_ = static_cast<u16>(std::atoi(other.Url().c_str() + other.Url().rfind(':') + 1));
  open.push_back(Connect());
  open.push_back(Connect());
  EXPECT_GT(send(open[1].Get(), "POST /ba", 8, MSG_NOSIGNAL), 0);
  port_ = mine;
}

TEST_F(ReputationServiceTest, RequestSeesOneListWhileTheyChange) {
  const auto none = ListOf({"198.51.100.0/24"});
  const auto both = ListOf({"192.0.2.0/24"});
  std::atomic<bool> stop{false};
  std::thread changer([&] {
    while (!stop) {
      service_.Use(none);
      service_.Use(both);
    }
  });
  const std::string request = Post(Batch({"192.0.2.1", "192.0.2.2"}));
  for (int i = 0; i < 100; ++i) {
    const std::string body = BodyOf(Ask(request));
    EXPECT_TRUE(body == std::string("[") + kYes + "," + kYes + "]" || body == std::string("[") + kNo + "," + kNo + "]")
        << body;
  }
  stop = true;
  changer.join();
}

TEST_F(ReputationServiceTest, PortInUseIsAnError) {
  std::string error;
  ReputationService second;
  EXPECT_FALSE(second.Start(*ListenAddress::Parse("127.0.0.1:" + std::to_string(port_), error), error));
  EXPECT_EQ(error, "cannot listen on 127.0.0.1:" + std::to_string(port_) + ": Address already in use");
}

TEST(ReputationService, ListensOnTheOtherFamilyToo) {
  std::string error;
  ReputationService service;
  if (!service.Start(*ListenAddress::Parse("[::1]:0", error), error)) {
    GTEST_SKIP() << "this system has no IPv6 loopback: " << error;
  }
  EXPECT_THAT(service.Url(), StartsWith("http://[::1]:"));
}

TEST(ListenAddress, LoopbackAddressAndPortAreTaken) {
  std::string error;
  const auto where = ListenAddress::Parse("127.1.2.3:65535", error);
  ASSERT_TRUE(where) << error;
  EXPECT_EQ(where->port, 65535U);
  EXPECT_EQ(where->address.bits, (Bits{0, 0x7F010203}));
  EXPECT_TRUE(ListenAddress::Parse("[::1]:0", error));
}

TEST(ListenAddress, AddressThatOthersReachIsRefused) {
  for (const char* text : {"0.0.0.0:80", "192.0.2.1:80", "[::]:80", "[2001:db8::1]:80", "[::ffff:127.0.0.1]:80"}) {
    std::string error;
    EXPECT_FALSE(ListenAddress::Parse(text, error)) << text;
    EXPECT_THAT(error, HasSubstr("loopback addresses only")) << text;
  }
}

TEST(ListenAddress, OtherTextIsRefused) {
  for (const char* text : {"", "127.0.0.1", "127.0.0.1:", ":80", "127.0.0.1:65536", "127.0.0.1:x", "::1:80", "[::1]",
                           "[127.0.0.1]:80", "localhost:80"}) {
    std::string error;
    EXPECT_FALSE(ListenAddress::Parse(text, error)) << text;
    EXPECT_THAT(error, HasSubstr("is no address and port such as")) << text;
  }
}

}  // namespace
