#include "host/control/Server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "host/control/SocketAddress.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Control;

constexpr char kGreeting[] = "{\"hello\":1}";

// One end of a connection, as any program could have it. Nothing in it waits.
class Peer {
 public:
  explicit Peer(const std::string& folder) {
    SocketAddress address;
    EXPECT_TRUE(address.Open(folder));
    socket_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(socket_.Get(), address.Get(), SocketAddress::Size()), 0);
  }
  // How much the kernel took.
  std::size_t Send(const std::string& bytes) {
    const ssize_t size = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return size < 0 ? 0 : static_cast<std::size_t>(size);
  }
  void EndSending() { shutdown(socket_.Get(), SHUT_WR); }
  void Leave() { socket_.Close(); }
  void TakeOnly(int bytes) { setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes)); }

  // All that has come.
  std::string Receive() {
    char chunk[65536];
    for (;;) {
      const ssize_t size = recv(socket_.Get(), chunk, sizeof(chunk), 0);
      if (size <= 0) {
        closed_ = size == 0 || errno != EAGAIN;
        return received_;
      }
      received_.append(chunk, static_cast<std::size_t>(size));
    }
  }
  bool IsClosed() {
    Receive();
    return closed_;
  }
  // The complete reply, or none.
  Message Reply() {
    const Decoding decoding = Decode(Receive(), Sender::kDaemon);
    EXPECT_EQ(decoding.result, Decoded::kMessage);
    return decoding.message;
  }

 private:
  Descriptor socket_;
  std::string received_;
  bool closed_ = false;
};

class ControlServer : public testing::Test {
 protected:
  ControlServer() {
    std::string error;
    EXPECT_TRUE(server_->Open(folder_.Path(), error)) << error;
  }
  // Serves until nothing more happens.
  void Serve() {
    for (int i = 0; i < 4; ++i) {
      server_->Serve(nowMs_);
    }
  }
  void ExpectService() {
    Peer peer(folder_.Path());
    peer.Send(Encode({Kind::kStatus, ""}));
    Serve();
    EXPECT_EQ(peer.Reply().text, kGreeting);
  }

  TemporaryFolder folder_;
  u64 nowMs_ = 1000;
  std::vector<Message> requests_;
  std::string answer_ = kGreeting;
  std::unique_ptr<Server> server_ = std::make_unique<Server>([this](const Message& request) {
    requests_.push_back(request);
    return Message{Kind::kAnswer, answer_};
  });
};

TEST_F(ControlServer, RequestIsAnsweredAndTheConnectionClosed) {
  Peer peer(folder_.Path());
  peer.Send(Encode({Kind::kPolicy, "{\"a\":1}"}));
  Serve();
  EXPECT_EQ(peer.Reply().text, kGreeting);
  EXPECT_TRUE(peer.IsClosed());
  ASSERT_EQ(requests_.size(), 1U);
  EXPECT_EQ(requests_[0].kind, Kind::kPolicy);
  EXPECT_EQ(requests_[0].text, "{\"a\":1}");
  EXPECT_EQ(server_->Connections(), 0U);
}

TEST_F(ControlServer, SocketIsForTheOwnerOnlyWhateverTheMask) {
  server_.reset();
  const mode_t mask = umask(0);
  server_ = std::make_unique<Server>([](const Message&) { return Message{Kind::kAnswer, "{}"}; });
  std::string error;
  ASSERT_TRUE(server_->Open(folder_.Path(), error)) << error;
  umask(mask);
  struct stat status = {};
  ASSERT_EQ(stat(folder_.Path("netdb.sock").c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(ControlServer, SocketIsGoneWithTheServer) {
  server_.reset();
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("netdb.sock")));
}

TEST_F(ControlServer, StaleSocketIsReplaced) {
  const Descriptor dead(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const TemporaryFolder other;
  SocketAddress address;
  ASSERT_TRUE(address.Open(other.Path()));
  ASSERT_EQ(bind(dead.Get(), address.Get(), SocketAddress::Size()), 0);
  Server server([](const Message&) { return Message{Kind::kAnswer, "{}"}; });
  std::string error;
  ASSERT_TRUE(server.Open(other.Path(), error)) << error;
  Peer peer(other.Path());
  peer.Send(Encode({Kind::kStatus, ""}));
  server.Serve(0);
  EXPECT_EQ(peer.Reply().text, "{}");
}

TEST_F(ControlServer, AnotherFileInTheWayIsAnErrorAndStays) {
  const TemporaryFolder other;
  other.Put("netdb.sock", "mine");
  Server server([](const Message&) { return Message{Kind::kAnswer, "{}"}; });
  std::string error;
  EXPECT_FALSE(server.Open(other.Path(), error));
  EXPECT_THAT(error, testing::HasSubstr("is no socket"));
  EXPECT_EQ(TemporaryFolder::Get(other.Path("netdb.sock")), "mine");
}

TEST_F(ControlServer, MissingFolderIsAnError) {
  Server server([](const Message&) { return Message{Kind::kAnswer, "{}"}; });
  std::string error;
  EXPECT_FALSE(server.Open(folder_.Path("none"), error));
  EXPECT_THAT(error, testing::HasSubstr("cannot make the control socket " + folder_.Path("none/netdb.sock")));
}

TEST_F(ControlServer, FolderWithALongNameWorks) {
  for (const std::size_t length : {60U, 80U, 150U}) {
    const std::string folder = folder_.Path(std::string(length, 'd'));
    std::filesystem::create_directory(folder);
    Server server([](const Message&) { return Message{Kind::kAnswer, "{}"}; });
    std::string error;
    ASSERT_TRUE(server.Open(folder, error)) << error;
    EXPECT_TRUE(std::filesystem::is_socket(folder + "/netdb.sock"));
    Peer peer(folder);
    peer.Send(Encode({Kind::kStatus, ""}));
    server.Serve(0);
    EXPECT_EQ(peer.Reply().text, "{}");
  }
}

TEST_F(ControlServer, ByteAtATimeIsServed) {
  Peer peer(folder_.Path());
  for (const char byte : Encode({Kind::kReload, "{}"})) {
    EXPECT_TRUE(requests_.empty());
    peer.Send(std::string(1, byte));
    server_->Serve(nowMs_);
  }
  EXPECT_EQ(peer.Reply().text, kGreeting);
}

TEST_F(ControlServer, EveryPrefixThatStaysOneIsClosedAtTheTimeLimit) {
  const std::string request = Encode({Kind::kStatus, "{}"});
  for (std::size_t size = 0; size < request.size(); ++size) {
    Peer peer(folder_.Path());
    peer.Send(request.substr(0, size));
    Serve();
    nowMs_ += Server::kTimeLimitMs - 1;
    Serve();
    EXPECT_FALSE(peer.IsClosed()) << size;
    nowMs_ += 1;
    Serve();
    EXPECT_TRUE(peer.IsClosed()) << size;
    EXPECT_EQ(peer.Receive(), "") << size;
  }
  EXPECT_TRUE(requests_.empty());
}

TEST_F(ControlServer, RequestThatCameWhileTheServerWasBusyIsAnswered) {
  Peer peer(folder_.Path());
  Serve();
  peer.Send(Encode({Kind::kStatus, ""}));
  nowMs_ += Server::kTimeLimitMs + 1;
  Serve();
  EXPECT_EQ(peer.Reply().text, kGreeting);
}

TEST_F(ControlServer, HalfClosedPeerGetsItsReply) {
  Peer peer(folder_.Path());
  peer.Send(Encode({Kind::kStatus, ""}));
  peer.EndSending();
  Serve();
  EXPECT_EQ(peer.Reply().text, kGreeting);
}

TEST_F(ControlServer, HalfClosedPeerWithoutRequestIsClosedAtOnce) {
  Peer silent(folder_.Path());
  silent.EndSending();
  Peer half(folder_.Path());
  half.Send("NDBC");
  half.EndSending();
  Serve();
  EXPECT_TRUE(silent.IsClosed());
  EXPECT_TRUE(half.IsClosed());
  EXPECT_EQ(server_->Connections(), 0U);
}

TEST_F(ControlServer, GarbageIsClosedWithoutAReply) {
  for (const std::string& bytes : {std::string("GET / HTTP/1.1\r\n\r\n"), std::string(1, '\0'), std::string("NDBX")}) {
    Peer peer(folder_.Path());
    peer.Send(bytes);
    Serve();
    EXPECT_TRUE(peer.IsClosed());
    EXPECT_EQ(peer.Receive(), "");
  }
  EXPECT_TRUE(requests_.empty());
  ExpectService();
}

TEST_F(ControlServer, FaultsAreRefusedWithTheirReason) {
  struct Case {
    std::string bytes;
    const char* reason;
  };
  const std::string sound = Encode({Kind::kStatus, ""});
  const Case cases[] = {
      {sound.substr(0, 4) + '\x02' + sound.substr(5), "request has version 2"},
      {sound.substr(0, 6) + '\x09' + sound.substr(7), "there is no request 9"},
      {sound.substr(0, 6) + '\x01' + '\x80' + sound.substr(8), "there is no request 32769"},
      {sound.substr(0, 8) + std::string("\x01\x00\x01\x00", 4), "may have 65536 bytes"},
      {sound.substr(0, 8) + std::string(4, '\xFF'), "may have 65536 bytes"},
      {sound + sound, "more than one request"},
  };
  for (const Case& one : cases) {
    Peer peer(folder_.Path());
    peer.Send(one.bytes);
    Serve();
    const Message reply = peer.Reply();
    EXPECT_EQ(reply.kind, Kind::kRefusal);
    EXPECT_THAT(reply.text, testing::HasSubstr(one.reason));
    EXPECT_TRUE(peer.IsClosed());
  }
  EXPECT_TRUE(requests_.empty());
}

TEST_F(ControlServer, FlippedBitsHarmNobodyElse) {
  const std::string request = Encode({Kind::kStatus, "{\"a\":1}"});
  for (std::size_t bit = 0; bit < request.size() * 8; ++bit) {
    std::string flipped = request;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
    Peer peer(folder_.Path());
    peer.Send(flipped);
    Serve();
  }
  nowMs_ += Server::kTimeLimitMs;
  Serve();
  EXPECT_EQ(server_->Connections(), 0U);
  ExpectService();
}

TEST_F(ControlServer, LongestRequestIsTakenInParts) {
  const std::string request = Encode({Kind::kStatus, std::string(kMaxRequest, ' ')});
  Peer peer(folder_.Path());
  std::size_t sent = 0;
  for (int i = 0; i < 1000 && sent < request.size(); ++i) {
    sent += peer.Send(request.substr(sent));
    server_->Serve(nowMs_);
  }
  EXPECT_EQ(sent, request.size());
  EXPECT_EQ(peer.Reply().text, kGreeting);
  ASSERT_EQ(requests_.size(), 1U);
  EXPECT_EQ(requests_[0].text.size(), kMaxRequest);
}

TEST_F(ControlServer, LongestReplyReachesASlowReader) {
  answer_ = std::string(kMaxReply, ' ');
  Peer peer(folder_.Path());
  peer.TakeOnly(4096);
  peer.Send(Encode({Kind::kStatus, ""}));
  for (int i = 0; i < 10000 && !peer.IsClosed(); ++i) {
    server_->Serve(nowMs_);
  }
  EXPECT_EQ(peer.Reply().text.size(), kMaxReply);
}

TEST_F(ControlServer, AnswerBeyondTheLimitIsARefusal) {
  answer_ = std::string(kMaxReply + 1, ' ');
  Peer peer(folder_.Path());
  peer.Send(Encode({Kind::kStatus, ""}));
  Serve();
  EXPECT_EQ(peer.Reply().kind, Kind::kRefusal);
}

TEST_F(ControlServer, PeerThatNeverReadsIsClosedAtTheTimeLimit) {
  answer_ = std::string(kMaxReply, ' ');
  Peer peer(folder_.Path());
  peer.Send(Encode({Kind::kStatus, ""}));
  Serve();
  EXPECT_EQ(server_->Connections(), 1U);
  nowMs_ += Server::kTimeLimitMs;
  Serve();
  EXPECT_EQ(server_->Connections(), 0U);
}

TEST_F(ControlServer, PeerMayLeaveInEachState) {
  answer_ = std::string(kMaxReply, ' ');
  const std::string request = Encode({Kind::kStatus, ""});
  for (const std::string& bytes : {std::string(), request.substr(0, 5), request}) {
    Peer early(folder_.Path());
    early.Send(bytes);
    early.Leave();
    Serve();
    EXPECT_EQ(server_->Connections(), 0U);
    Peer late(folder_.Path());
    late.Send(bytes);
    Serve();
    EXPECT_EQ(server_->Connections(), 1U);
    late.Leave();
    Serve();
    EXPECT_EQ(server_->Connections(), 0U);
  }
  answer_ = kGreeting;
  ExpectService();
}

TEST_F(ControlServer, ManyAtOnceAreAllServed) {
  std::vector<std::unique_ptr<Peer>> peers;
  for (int i = 0; i < 60; ++i) {
    peers.push_back(std::make_unique<Peer>(folder_.Path()));
    peers.back()->Send(Encode({Kind::kStatus, ""}));
  }
  Serve();
  for (const auto& peer : peers) {
    EXPECT_EQ(peer->Reply().text, kGreeting);
  }
}

TEST_F(ControlServer, SilentPeersCannotKeepOthersOut) {
  std::vector<std::unique_ptr<Peer>> silent;
  for (std::size_t i = 0; i < Server::kMaxConnections; ++i) {
    silent.push_back(std::make_unique<Peer>(folder_.Path()));
  }
  Serve();
  Peer peer(folder_.Path());
  peer.Send(Encode({Kind::kStatus, ""}));
  nowMs_ += Server::kGraceMs - 1;
  Serve();
  EXPECT_EQ(server_->Connections(), Server::kMaxConnections);
  EXPECT_EQ(server_->TimeoutMs(nowMs_), 1);
  nowMs_ += 1;
  Serve();
  EXPECT_EQ(peer.Reply().text, kGreeting);
  EXPECT_TRUE(silent[0]->IsClosed());
  EXPECT_FALSE(silent[1]->IsClosed());
}

TEST_F(ControlServer, WaitsForWhatCanHappen) {
  std::vector<pollfd> descriptors;
  server_->Watch(descriptors, nowMs_);
  ASSERT_EQ(descriptors.size(), 1U);
  EXPECT_EQ(descriptors[0].events, POLLIN);
  EXPECT_EQ(server_->TimeoutMs(nowMs_), -1);

  answer_ = std::string(kMaxReply, ' ');
  Peer reader(folder_.Path());
  reader.Send(Encode({Kind::kStatus, ""}));
  Peer writer(folder_.Path());
  Serve();
  descriptors.clear();
  server_->Watch(descriptors, nowMs_);
  ASSERT_EQ(descriptors.size(), 3U);
  EXPECT_EQ(descriptors[1].events, POLLOUT);
  EXPECT_EQ(descriptors[2].events, POLLIN);
  EXPECT_EQ(server_->TimeoutMs(nowMs_ + 1), static_cast<int>(Server::kTimeLimitMs) - 1);
  EXPECT_EQ(server_->TimeoutMs(nowMs_ + Server::kTimeLimitMs), 0);
}

TEST_F(ControlServer, FullHouseDoesNotListen) {
  std::vector<std::unique_ptr<Peer>> peers;
  for (std::size_t i = 0; i < Server::kMaxConnections; ++i) {
    peers.push_back(std::make_unique<Peer>(folder_.Path()));
  }
  Serve();
  std::vector<pollfd> descriptors;
  server_->Watch(descriptors, nowMs_);
  EXPECT_EQ(descriptors.size(), Server::kMaxConnections);
  server_->Watch(descriptors, nowMs_ + Server::kGraceMs);
  EXPECT_EQ(descriptors.size(), 2 * Server::kMaxConnections + 1);
}

}  // namespace
