#include "host/control/Client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <vector>

#include "host/control/Server.h"
#include "host/control/SocketAddress.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Control;
using testing::HasSubstr;

// Time that passes only in waits, which do the daemon's part.
struct VirtualTime {
  u64 nowMs = 5000;
  std::function<void()> daemon = [] {};

  Waiting Make() {
    Waiting waiting;
    waiting.nowMs = [this] { return nowMs; };
    waiting.wait = [this](std::vector<pollfd>& descriptors, int timeoutMs) {
      daemon();
      const int ready = poll(descriptors.data(), descriptors.size(), 0);
      nowMs += ready == 0 ? static_cast<u64>(timeoutMs) : 0;
      return ready;
    };
    return waiting;
  }
};

// A daemon that says whatever a test wants.
class FakeDaemon {
 public:
  FakeDaemon(const std::string& folder, std::string bytes, bool closes) : bytes_(std::move(bytes)), closes_(closes) {
    EXPECT_TRUE(address_.Open(folder));
    listener_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(listener_.Get(), address_.Get(), SocketAddress::Size()), 0);
    EXPECT_EQ(listen(listener_.Get(), 1), 0);
  }
  void Turn() {
    if (!peer_.IsOpen() && !done_) {
      peer_ = Descriptor(accept4(listener_.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
      EXPECT_TRUE(peer_.IsOpen());
      EXPECT_EQ(send(peer_.Get(), bytes_.data(), bytes_.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes_.size()));
      done_ = true;
      if (closes_) {
        peer_.Close();
      }
    }
  }

 private:
  std::string bytes_;
  bool closes_;
  bool done_ = false;
  SocketAddress address_;
  Descriptor listener_;
  Descriptor peer_;
};

Reply AskFake(const std::string& bytes, bool closes = false) {
  const TemporaryFolder folder;
  FakeDaemon daemon(folder.Path(), bytes, closes);
  VirtualTime time;
  time.daemon = [&daemon] { daemon.Turn(); };
  return Ask(folder.Path(), Kind::kStatus, time.Make());
}

TEST(ControlClient, AskedServerAnswers) {
  const TemporaryFolder folder;
  Server server([](const Message& request) {
    EXPECT_EQ(request.kind, Kind::kReload);
    return Message{Kind::kAnswer, "{\"a\":1}"};
  });
  std::string error;
  ASSERT_TRUE(server.Open(folder.Path(), error)) << error;
  VirtualTime time;
  time.daemon = [&] { server.Serve(time.nowMs); };
  const Reply reply = Ask(folder.Path(), Kind::kReload, time.Make());
  EXPECT_EQ(reply.outcome, Outcome::kAnswer);
  EXPECT_EQ(reply.text, "{\"a\":1}");
}

TEST(ControlClient, RefusalHasItsReason) {
  const Reply reply = AskFake(Encode(Refusal("not today")));
  EXPECT_EQ(reply.outcome, Outcome::kRefused);
  EXPECT_EQ(reply.text, "not today");
}

TEST(ControlClient, NoSocketIsNoDaemon) {
  const TemporaryFolder folder;
  for (const std::string& path : {folder.Path(), folder.Path("none"), folder.Path(std::string(150, 'x'))}) {
    const Reply reply = Ask(path, Kind::kStatus);
    EXPECT_EQ(reply.outcome, Outcome::kNoDaemon);
    EXPECT_THAT(reply.text, HasSubstr("no daemon is running on " + path));
  }
}

TEST(ControlClient, SocketOfADeadDaemonIsNoDaemon) {
  const TemporaryFolder folder;
  { const FakeDaemon dead(folder.Path(), "", false); }
  EXPECT_EQ(Ask(folder.Path(), Kind::kStatus).outcome, Outcome::kNoDaemon);
}

TEST(ControlClient, HangingDaemonCostsTheTimeLimit) {
  const TemporaryFolder folder;
  FakeDaemon daemon(folder.Path(), "NDBC", false);
  VirtualTime time;
  time.daemon = [&daemon] { daemon.Turn(); };
  const u64 startMs = time.nowMs;
  const Reply reply = Ask(folder.Path(), Kind::kStatus, time.Make());
  EXPECT_EQ(reply.outcome, Outcome::kFailed);
  EXPECT_THAT(reply.text, HasSubstr("did not answer within 10 seconds"));
  EXPECT_EQ(time.nowMs - startMs, kAnswerLimitMs);
}

TEST(ControlClient, DaemonThatTakesNobodyCostsTheTimeLimit) {
  const TemporaryFolder folder;
  const FakeDaemon daemon(folder.Path(), "", false);
  std::vector<Descriptor> others;
  SocketAddress address;
  ASSERT_TRUE(address.Open(folder.Path()));
  int result = 0;
  while (result == 0) {
    others.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    result = connect(others.back().Get(), address.Get(), SocketAddress::Size());
  }
  VirtualTime time;
  const u64 startMs = time.nowMs;
  const Reply reply = Ask(folder.Path(), Kind::kStatus, time.Make());
  EXPECT_EQ(reply.outcome, Outcome::kFailed);
  EXPECT_THAT(reply.text, HasSubstr("did not answer"));
  EXPECT_EQ(time.nowMs - startMs, kAnswerLimitMs);
}

TEST(ControlClient, OtherVersionIsTold) {
  std::string bytes = Encode({Kind::kAnswer, "{}"});
  bytes[4] = 7;
  const Reply reply = AskFake(bytes);
  EXPECT_EQ(reply.outcome, Outcome::kFailed);
  EXPECT_THAT(reply.text, HasSubstr("the daemon speaks version 7 of the control protocol, and this program version 1"));
}

TEST(ControlClient, ClosedConnectionIsAFailure) {
  const std::string answer = Encode({Kind::kAnswer, "{}"});
  for (const std::string& bytes : {std::string(), answer.substr(0, 6), answer.substr(0, answer.size() - 1)}) {
    const Reply reply = AskFake(bytes, true);
    EXPECT_EQ(reply.outcome, Outcome::kFailed);
    EXPECT_THAT(reply.text, HasSubstr("closed the connection"));
  }
}

TEST(ControlClient, AnswerThatIsNoneIsNotUnderstood) {
  const std::string tooLong = Encode({Kind::kAnswer, ""}).substr(0, 8) + std::string(4, '\xFF');
  for (const std::string& bytes :
       {std::string("hello"), Encode({Kind::kStatus, ""}), Encode({Kind::kAnswer, "[]"}), Encode({Kind::kAnswer, ""}),
        Encode({Kind::kAnswer, "{"}), Encode({Kind::kRefusal, "{}"}), Encode({Kind::kRefusal, "{\"error\":1}"}),
        Encode({Kind::kAnswer, "{}"}) + "x", tooLong}) {
    const Reply reply = AskFake(bytes);
    EXPECT_EQ(reply.outcome, Outcome::kFailed);
    EXPECT_THAT(reply.text, HasSubstr("is not understood"));
  }
}

TEST(ControlClient, AnswerMayNestSixteenLevels) {
  const auto nested = [](std::size_t levels) {
    return "{\"a\":" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
  };
  const std::string brackets = R"({"a":"\"[[[[[[[[[[[[[[[[[[[[\\","b":[[],[],[],[],[],[],[],[],[],[],[],[],[],[],[]]})";
  for (const std::string& text : {nested(16), brackets}) {
    const Reply reply = AskFake(Encode({Kind::kAnswer, text}));
    EXPECT_EQ(reply.outcome, Outcome::kAnswer) << reply.text;
    EXPECT_EQ(reply.text, text);
  }
  for (const std::string& text : {nested(17), nested(10000), std::string("{\"a\\\\\":") + nested(16) + "}"}) {
    const Reply reply = AskFake(Encode({Kind::kAnswer, text}));
    EXPECT_EQ(reply.outcome, Outcome::kFailed);
    EXPECT_THAT(reply.text, HasSubstr("is not understood"));
  }
}

}  // namespace
