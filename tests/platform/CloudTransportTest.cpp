// Requests over real sockets of the loopback interface: what servers do wrong, and how long it may take.
#include <atomic>

#include "tests/platform/CloudFixture.h"

namespace {

using Velmar::u32;
using Velmar::u64;
using Clock = std::chrono::steady_clock;
using testing::HasSubstr;

// A limit that is missed is far from a limit that is kept late on a busy machine.
constexpr std::chrono::seconds kEndsAtAll(20);

ScriptedServer::Script Answering(const std::string& reply) {
  return [reply](Peer& peer) {
    peer.ReadRequest();
    peer.Send(reply);
  };
}

TEST_F(CloudTransportTest, GoodReplyIsOneText) {
  const ScriptedServer server(Answering(HttpReply("[{}]")));
  Ask(Endpoint(server));
  const Outcome outcome = Query();
  EXPECT_TRUE(outcome.answered);
  EXPECT_TRUE(outcome.successful);
  EXPECT_EQ(outcome.status, 200U);
  EXPECT_EQ(outcome.texts, Lines{"[{}]"});
}

TEST_F(CloudTransportTest, RequestIsAPostOfJson) {
  const ScriptedServer server(Answering(HttpReply("[]")));
  Ask(Endpoint(server) + "/prefix/");
  EXPECT_TRUE(Query().successful);
  ASSERT_EQ(server.Requests().size(), 1U);
  const std::string request = server.Requests()[0];
  EXPECT_THAT(request, testing::StartsWith("POST /prefix/batch HTTP/1.1\r\n"));
  EXPECT_THAT(request, HasSubstr("\r\nContent-Type: application/json\r\n"));
  EXPECT_THAT(request, HasSubstr("\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) + "\r\n"));
  EXPECT_THAT(request, Not(HasSubstr("Expect")));
  EXPECT_THAT(request, Not(HasSubstr("Authorization")));
  EXPECT_THAT(request, testing::EndsWith("\r\n\r\n[{\"ip\":\"203.0.113.1\"}]"));
}

TEST_F(CloudTransportTest, EmptyReplyIsOneEmptyText) {
  const ScriptedServer server(Answering(HttpReply("")));
  Ask(Endpoint(server));
  const Outcome outcome = Query();
  EXPECT_TRUE(outcome.successful);
  EXPECT_EQ(outcome.texts, Lines{""});
}

TEST_F(CloudTransportTest, ReplyInPiecesIsOneText) {
  const ScriptedServer server([](Peer& peer) {
    peer.ReadRequest();
    for (const char* piece :
         {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n", "\r\n1\r\n[\r\n", "1\r\n]\r\n", "0\r\n\r\n"}) {
      peer.Send(piece);
    }
  });
  Ask(Endpoint(server));
  EXPECT_EQ(Query().texts, Lines{"[]"});
}

// Headers may follow the body, or come before the reply's own.
TEST_F(CloudTransportTest, HeadersElsewhereAreNoEndOfTheReply) {
  for (const char* reply :
       {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n[]\r\n0\r\nX-Sum: 1\r\n\r\n",
        "HTTP/1.1 103 Early Hints\r\nLink: </x>\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n[]"}) {
    const ScriptedServer server(Answering(reply));
    Ask(Endpoint(server));
    const Outcome outcome = Query();
    EXPECT_TRUE(outcome.successful) << outcome.reason;
    EXPECT_EQ(outcome.texts, Lines{"[]"});
  }
}

TEST_F(CloudTransportTest, OtherStatusIsAnAnswerWithoutTextsAndNoSuccess) {
  for (const char* status :
       {"500 Internal Server Error", "404 Not Found", "401 Unauthorized", "204 No Content", "201 Created"}) {
    const ScriptedServer server(Answering(HttpReply("[{\"data\":{\"is_whitelisted\":true}}]", status)));
    Ask(Endpoint(server));
    const Outcome outcome = Query();
    EXPECT_TRUE(outcome.answered) << status;
    EXPECT_FALSE(outcome.successful);
    EXPECT_EQ(outcome.status, static_cast<u32>(std::stoul(status)));
    EXPECT_EQ(outcome.texts, Lines{});
  }
}

TEST_F(CloudTransportTest, RedirectIsNotFollowed) {
  const ScriptedServer other(Answering(HttpReply("[{}]")));
  for (const char* status : {"301 Moved Permanently", "302 Found", "303 See Other", "307 Temporary", "308 Permanent"}) {
    const ScriptedServer server(Answering(HttpReply("", status, "Location: " + Endpoint(other) + "/batch\r\n")));
    Ask(Endpoint(server));
    const Outcome outcome = Query();
    EXPECT_FALSE(outcome.successful) << status;
    EXPECT_EQ(outcome.status, static_cast<u32>(std::stoul(status)));
    EXPECT_EQ(server.Connections(), 1);
  }
  EXPECT_EQ(other.Connections(), 0);
}

TEST_F(CloudTransportTest, ConnectionThatEndsEarlyIsAFailure) {
  const std::vector<std::string> replies = {"",
                                            "HTTP/1.1 2",
                                            "HTTP/1.1 200 OK\r\nContent-Le",
                                            "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nX: y\r\n",
                                            "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n[{},",
                                            "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\n[{},\r\n"};
  for (const std::string& reply : replies) {
    const ScriptedServer server(Answering(reply));
    Ask(Endpoint(server));
    ExpectFailure(Query(), "");
  }
}

TEST_F(CloudTransportTest, WhatIsNoHttpIsAFailure) {
  const ScriptedServer server(Answering("220 mail.example ESMTP\r\n\r\n[{}]\r\n"));
  Ask(Endpoint(server));
  ExpectFailure(Query(), "");
}

TEST_F(CloudTransportTest, ConnectionThatEndsBeforeTheRequestIsRead) {
  const ScriptedServer server([](Peer&) {});
  Ask(Endpoint(server));
  ExpectFailure(Query(), "");
}

TEST_F(CloudTransportTest, SilentServerEndsWithTheTimeLimit) {
  const ScriptedServer server([](Peer& peer) { peer.WaitForEnd(); });
  Ask(Endpoint(server));
  const auto start = Clock::now();
  ExpectFailure(Query(kShortMs), "Timeout");
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(kShortMs - 10));
  EXPECT_LT(Clock::now() - start, kEndsAtAll);
}

TEST_F(CloudTransportTest, ServerThatStopsHalfWayEndsWithTheTimeLimit) {
  for (const char* head : {"HTTP/1.1 200 OK\r\nContent-Le", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n[{},"}) {
    const ScriptedServer server([head](Peer& peer) {
      peer.ReadRequest();
      peer.Send(head);
      peer.WaitForEnd();
    });
    Ask(Endpoint(server));
    const auto start = Clock::now();
    ExpectFailure(Query(kShortMs), "Timeout");
    EXPECT_LT(Clock::now() - start, kEndsAtAll);
  }
}

// Headers without end come as fast as they are taken.
TEST_F(CloudTransportTest, HeadersWithoutEndEnd) {
  const ScriptedServer server([](Peer& peer) {
    peer.ReadRequest();
    for (peer.Send("HTTP/1.1 200 OK\r\n"); peer.Send("X-More: " + std::string(1000, 'x') + "\r\n");) {
    }
  });
  Ask(Endpoint(server));
  const auto start = Clock::now();
  ExpectFailure(Query(kShortMs), "");
  EXPECT_LT(Clock::now() - start, kEndsAtAll);
}

TEST_F(CloudTransportTest, NobodyListensIsAFailure) {
  Ask("http://127.0.0.1:" + std::to_string(UnusedPort()));
  const Outcome outcome = Query();
  ExpectFailure(outcome, "connect");
  EXPECT_EQ(outcome.status, 0U);
}

// A label of 64 letters cannot be asked about, so no resolver is.
TEST_F(CloudTransportTest, NameThatDoesNotResolveIsAFailure) {
  Ask("https://" + std::string(64, 'a') + ".invalid");
  ExpectFailure(Query(), "resolve");
}

TEST_F(CloudTransportTest, ReplyAtTheLimitIsTakenAndOneByteMoreIsNot) {
  for (const bool chunked : {false, true}) {
    for (const std::size_t size : {1000U, 1001U}) {
      const std::string body(size, ' ');
      const ScriptedServer server(Answering(chunked ? "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" +
                                                          std::string(size == 1000 ? "3e8" : "3e9") + "\r\n" + body +
                                                          "\r\n0\r\n\r\n"
                                                    : HttpReply(body)));
      Ask(Endpoint(server), 1000);
      const Outcome outcome = Query();
      if (size == 1000) {
        EXPECT_EQ(outcome.texts, Lines{body});
      } else {
        ExpectFailure(outcome, "the reply is larger than it may be");
      }
    }
  }
}

// How much of a gigabyte the client takes: no more than its limit and what the sockets hold.
u64 SentOfAGigabyte(Peer& peer, const std::string& head, const std::string& piece) {
  u64 sent = 0;
  peer.ReadRequest();
  for (bool open = peer.Send(head); open && sent < u64{1} << 30; sent += piece.size()) {
    open = peer.Send(piece);
  }
  return sent;
}

TEST_F(CloudTransportTest, GigabyteIsRefusedAtTheLimit) {
  constexpr u64 kSocketsHold = 64 << 20;
  const std::string body(0x10000, ' ');
  const std::vector<std::pair<std::string, std::string>> forms = {
      {"HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n", body},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "10000\r\n" + body + "\r\n"},
      {"HTTP/1.1 200 OK\r\n\r\n", body},
      {"HTTP/1.1 500 Broken\r\n\r\n", body}};
  for (const auto& [head, piece] : forms) {
    std::atomic<u64> sent{0};
    {
      const ScriptedServer server(
          [&sent, &head = head, &piece = piece](Peer& peer) { sent = SentOfAGigabyte(peer, head, piece); });
      Ask(Endpoint(server));
      ExpectFailure(Query(), "the reply is larger than it may be");
    }
    EXPECT_LT(sent, kSocketsHold) << head;
  }
}

TEST_F(CloudTransportTest, AfterEachFailureTheNextRequestWorks) {
  std::atomic<int> number{0};
  const ScriptedServer server([&number](Peer& peer) {
    peer.ReadRequest();
    if (number++ % 2 == 0) {
      peer.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n[");
    } else {
      peer.Send(HttpReply("[]"));
    }
  });
  Ask(Endpoint(server));
  for (int i = 0; i < 3; ++i) {
    ExpectFailure(Query(), "");
    EXPECT_EQ(Query().texts, Lines{"[]"});
  }
}

}  // namespace
