// Whom requests trust, what they give away, and what they take from the environment.
#include <signal.h>
#include <stdlib.h>

#include <filesystem>

#include "tests/platform/CloudFixture.h"

namespace {

using testing::HasSubstr;
using Velmar::Cloud::Settings;

constexpr char kToken[] = "secret-7f3a91";

class CloudSecurityTest : public CloudTransportTest {
 protected:
  CloudSecurityTest() { EXPECT_NE(mkdtemp(folder_.data()), nullptr); }
  ~CloudSecurityTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  static void Answer(Peer& peer) {
    peer.ReadRequest();
    peer.Send(HttpReply("[]"));
  }
  static std::string Secure(const ScriptedServer& server, const std::string& host) {
    return "https://" + host + ":" + std::to_string(server.Port());
  }
  Outcome QueryWith(const Settings& settings) {
    EXPECT_TRUE(Velmar::Cloud::Configure(settings));
    return Query();
  }

  std::string folder_ = (std::filesystem::temp_directory_path() / "cloud-XXXXXX").string();
};

std::size_t Occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST_F(CloudSecurityTest, UnknownAuthorityIsRefused) {
  const ServerIdentity identity = MakeIdentity(folder_, "127.0.0.1");
  const ScriptedServer server(&Answer, &identity);
  const std::string endpoint = Secure(server, "127.0.0.1");
  ExpectFailure(QueryWith({.endpoint = endpoint.c_str(), .bearerToken = kToken}), "certificate");
  EXPECT_TRUE(server.Requests().empty());
}

TEST_F(CloudSecurityTest, AuthorityOfTheFileIsAccepted) {
  const ServerIdentity identity = MakeIdentity(folder_, "127.0.0.1");
  const ScriptedServer server(&Answer, &identity);
  const std::string endpoint = Secure(server, "127.0.0.1");
  const Outcome outcome =
      QueryWith({.endpoint = endpoint.c_str(), .caFile = identity.certificatePath.c_str(), .bearerToken = kToken});
  EXPECT_TRUE(outcome.successful) << outcome.reason;
  ASSERT_EQ(server.Requests().size(), 1U);
  EXPECT_EQ(Occurrences(server.Requests()[0], kToken), 1U);
}

TEST_F(CloudSecurityTest, AuthorityOfAnotherFileIsRefused) {
  const ServerIdentity identity = MakeIdentity(folder_, "127.0.0.1");
  const ServerIdentity other = MakeIdentity(folder_, "other.example");
  const ScriptedServer server(&Answer, &identity);
  const std::string endpoint = Secure(server, "127.0.0.1");
  ExpectFailure(QueryWith({.endpoint = endpoint.c_str(), .caFile = other.certificatePath.c_str()}), "certificate");
  const std::string missing = folder_ + "/missing.pem";
  ExpectFailure(QueryWith({.endpoint = endpoint.c_str(), .caFile = missing.c_str()}), "CA cert");
  EXPECT_TRUE(server.Requests().empty());
}

TEST_F(CloudSecurityTest, NameThatIsNotTheCertificatesIsRefused) {
  const ServerIdentity identity = MakeIdentity(folder_, "elsewhere.example");
  const ScriptedServer server(&Answer, &identity);
  for (const char* host : {"127.0.0.1", "localhost"}) {
    const std::string endpoint = Secure(server, host);
    ExpectFailure(QueryWith({.endpoint = endpoint.c_str(), .caFile = identity.certificatePath.c_str()}), "");
  }
  EXPECT_THAT(server.Requests(), testing::Each(""));
}

TEST_F(CloudSecurityTest, ServerThatLeavesAmidARequestEndsTheRequestAlone) {
  const ServerIdentity identity = MakeIdentity(folder_, "127.0.0.1");
  const ScriptedServer server([](Peer&) {}, &identity);
  const std::string endpoint = Secure(server, "127.0.0.1");
  ASSERT_TRUE(Velmar::Cloud::Configure({.endpoint = endpoint.c_str(), .caFile = identity.certificatePath.c_str()}));
  const std::string large(20 << 20, 'x');  // more than the buffers of a connection hold
  ExpectFailure(Query(kAmpleMs, large), "");
  sigset_t pending;
  ASSERT_EQ(sigpending(&pending), 0);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  sigset_t mask;
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &mask), 0);
  EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

TEST_F(CloudSecurityTest, ServerInTheClearIsNoSecureOne) {
  const ScriptedServer server([](Peer& peer) { peer.Send(HttpReply("[]")); });
  const std::string endpoint = Secure(server, "127.0.0.1");
  ExpectFailure(QueryWith({.endpoint = endpoint.c_str(), .bearerToken = kToken}), "SSL");
}

TEST_F(CloudSecurityTest, CertificateFileOfTheEnvironmentIsNotTrusted) {
  const ServerIdentity identity = MakeIdentity(folder_, "127.0.0.1");
  for (const char* name : {"SSL_CERT_FILE", "CURL_CA_BUNDLE"}) {
    ASSERT_EQ(setenv(name, identity.certificatePath.c_str(), 1), 0);
  }
  const ScriptedServer server(&Answer, &identity);
  const std::string endpoint = Secure(server, "127.0.0.1");
  ExpectFailure(QueryWith({.endpoint = endpoint.c_str()}), "certificate");
}

TEST_F(CloudSecurityTest, KeysOfAConnectionGoToNoFile) {
  const std::string path = folder_ + "/keys";
  ASSERT_EQ(setenv("SSLKEYLOGFILE", path.c_str(), 1), 0);
  const ServerIdentity identity = MakeIdentity(folder_, "127.0.0.1");
  const ScriptedServer server(&Answer, &identity);
  const std::string endpoint = Secure(server, "127.0.0.1");
  EXPECT_TRUE(QueryWith({.endpoint = endpoint.c_str(), .caFile = identity.certificatePath.c_str()}).successful);
  std::error_code none;
  const auto size = std::filesystem::file_size(path, none);
  EXPECT_TRUE(none || size == 0);
}

TEST_F(CloudSecurityTest, ProxiesOfTheEnvironmentAreNotUsed) {
  const ScriptedServer proxy(&Answer);
  const ScriptedServer server(&Answer);
  const std::string proxyUrl = Endpoint(proxy);
  for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "ALL_PROXY", "all_proxy"}) {
    ASSERT_EQ(setenv(name, proxyUrl.c_str(), 1), 0);
  }
  const std::string endpoint = Endpoint(server);
  EXPECT_TRUE(QueryWith({.endpoint = endpoint.c_str()}).successful);
  EXPECT_EQ(server.Connections(), 1);
  const std::string secure = "https://127.0.0.1:" + std::to_string(UnusedPort());
  ExpectFailure(QueryWith({.endpoint = secure.c_str()}), "");
  EXPECT_EQ(proxy.Connections(), 0);
}

TEST_F(CloudSecurityTest, ConfiguredProxyIsUsedWhateverTheEnvironmentExempts) {
  for (const char* name : {"NO_PROXY", "no_proxy"}) {
    ASSERT_EQ(setenv(name, "*", 1), 0);
  }
  const ScriptedServer proxy(&Answer);
  const ScriptedServer server(&Answer);
  const std::string proxyUrl = Endpoint(proxy);
  const std::string endpoint = Endpoint(server);
  EXPECT_TRUE(QueryWith({.endpoint = endpoint.c_str(), .proxy = proxyUrl.c_str()}).successful);
  EXPECT_EQ(server.Connections(), 0);
  ASSERT_EQ(proxy.Requests().size(), 1U);
  EXPECT_THAT(proxy.Requests()[0], testing::StartsWith("POST " + endpoint + "/batch HTTP/1.1\r\n"));
  // A secure one is asked for through a tunnel, which sees no token.
  EXPECT_TRUE(Velmar::Cloud::Configure(
      {.endpoint = "https://cloud.example", .bearerToken = kToken, .proxy = proxyUrl.c_str()}));
  ExpectFailure(Query(), "");
  ASSERT_EQ(proxy.Requests().size(), 2U);
  EXPECT_THAT(proxy.Requests()[1], testing::StartsWith("CONNECT cloud.example:443 HTTP/1.1\r\n"));
  EXPECT_THAT(proxy.Requests()[1], Not(HasSubstr(kToken)));
}

TEST_F(CloudSecurityTest, TokenIsSentOnceAndToldNowhere) {
  int number = 0;
  const ScriptedServer server([&number](Peer& peer) {
    peer.ReadRequest();
    peer.Send(++number == 1 ? HttpReply("[]")
              : number == 2 ? HttpReply("", "401 Unauthorized", "WWW-Authenticate: Bearer\r\n")
              : number == 3 ? HttpReply("", "302 Found", "Location: http://localhost:1/\r\n")
                            : "");
  });
  const std::string endpoint = Endpoint(server);
  ASSERT_TRUE(Velmar::Cloud::Configure({.endpoint = endpoint.c_str(), .bearerToken = kToken}));
  for (int i = 0; i < 4; ++i) {
    const Outcome outcome = Query();
    EXPECT_EQ(outcome.answered, i < 3);
    EXPECT_THAT(outcome.reason, Not(HasSubstr(kToken)));
    for (const LogCapture::Entry& entry : log_.Entries()) {
      EXPECT_THAT(entry.arguments, testing::Each(Not(HasSubstr(kToken))));
    }
  }
  ASSERT_EQ(server.Requests().size(), 4U);
  for (const std::string& request : server.Requests()) {
    EXPECT_THAT(request, HasSubstr(std::string("\r\nAuthorization: Bearer ") + kToken + "\r\n"));
    EXPECT_EQ(Occurrences(request, kToken), 1U);
    EXPECT_EQ(Occurrences(request, "Authorization"), 1U);
  }
}

TEST_F(CloudSecurityTest, TokenOfAnySizeIsWhole) {
  const ScriptedServer server(&Answer);
  const std::string endpoint = Endpoint(server);
  const std::string token(5000, 'T');
  EXPECT_TRUE(QueryWith({.endpoint = endpoint.c_str(), .bearerToken = token.c_str()}).successful);
  EXPECT_THAT(server.Requests().at(0), HasSubstr("Bearer " + token + "\r\n"));
}

}  // namespace
