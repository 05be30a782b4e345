#include "host/control/Message.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace Host;
using namespace Host::Control;

// A header by hand: what the protocol's page says.
std::string Header(u16 version, u16 kind, u32 length) {
  std::string bytes = "NDBC";
  for (const u32 value : {u32{version}, u32{kind}}) {
    bytes += {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8 & 0xFF)};
  }
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<char>(length >> shift & 0xFF));
  }
  return bytes;
}

Decoded ResultOf(const std::string& bytes, Sender sender) {
  return Decode(bytes, sender).result;
}

TEST(ControlMessage, BytesAreThoseOfThePage) {
  EXPECT_EQ(Encode({Kind::kReload, "{}"}), Header(1, 3, 2) + "{}");
  EXPECT_EQ(Encode({Kind::kAnswer, ""}), Header(1, 0x8001, 0));
  EXPECT_EQ(Encode({Kind::kRefusal, "{\"error\":1}"}), Header(1, 0x8002, 11) + "{\"error\":1}");
}

TEST(ControlMessage, RoundTripGivesTheMessage) {
  for (const Kind kind : {Kind::kStatus, Kind::kPolicy, Kind::kReload}) {
    const Decoding decoding = Decode(Encode({kind, "{\"a\":1}"}), Sender::kClient);
    EXPECT_EQ(decoding.result, Decoded::kMessage);
    EXPECT_EQ(decoding.message.kind, kind);
    EXPECT_EQ(decoding.message.text, "{\"a\":1}");
  }
  for (const Kind kind : {Kind::kAnswer, Kind::kRefusal}) {
    const Decoding decoding = Decode(Encode({kind, "{}"}), Sender::kDaemon);
    EXPECT_EQ(decoding.result, Decoded::kMessage);
    EXPECT_EQ(decoding.message.kind, kind);
  }
}

TEST(ControlMessage, EveryPrefixIsIncomplete) {
  for (const char* text : {"", "{\"a\":[1,2,3]}"}) {
    const std::string bytes = Encode({Kind::kStatus, text});
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      EXPECT_EQ(ResultOf(bytes.substr(0, size), Sender::kClient), Decoded::kIncomplete) << size;
    }
  }
}

TEST(ControlMessage, ByteBehindTheMessageIsSurplus) {
  EXPECT_EQ(ResultOf(Encode({Kind::kStatus, ""}) + "x", Sender::kClient), Decoded::kSurplus);
  EXPECT_EQ(ResultOf(Encode({Kind::kAnswer, "{}"}) + "x", Sender::kDaemon), Decoded::kSurplus);
}

TEST(ControlMessage, WrongMagicShowsAtItsFirstByte) {
  const std::string bytes = Encode({Kind::kStatus, ""});
  for (std::size_t at = 0; at < 4; ++at) {
    std::string other = bytes.substr(0, at + 1);
    other[at] = static_cast<char>(other[at] ^ 0x20);
    EXPECT_EQ(ResultOf(other, Sender::kClient), Decoded::kForeign) << at;
  }
  EXPECT_EQ(ResultOf("GET / HTTP/1.1\r\n", Sender::kClient), Decoded::kForeign);
  EXPECT_EQ(ResultOf(std::string(100, '\0'), Sender::kClient), Decoded::kForeign);
}

TEST(ControlMessage, OtherVersionIsToldAsSoonAsItIsThere) {
  for (const u16 version : {u16{0}, u16{2}, u16{0x0100}, u16{0xFFFF}}) {
    const Decoding decoding = Decode(Header(version, 1, 0).substr(0, 6), Sender::kClient);
    EXPECT_EQ(decoding.result, Decoded::kOtherVersion);
    EXPECT_EQ(decoding.version, version);
  }
}

TEST(ControlMessage, KindOfTheOtherSideIsUnknown) {
  for (const u16 kind : {u16{0}, u16{4}, u16{0x0101}, u16{0x8001}, u16{0x8002}, u16{0xFFFF}}) {
    EXPECT_EQ(ResultOf(Header(1, kind, 0), Sender::kClient), Decoded::kUnknownKind) << kind;
  }
  for (const u16 kind : {u16{0}, u16{1}, u16{2}, u16{3}, u16{0x8000}, u16{0x8003}}) {
    EXPECT_EQ(ResultOf(Header(1, kind, 0), Sender::kDaemon), Decoded::kUnknownKind) << kind;
  }
}

TEST(ControlMessage, LengthsUpToTheLimitAreTaken) {
  EXPECT_EQ(ResultOf(Header(1, 1, 0), Sender::kClient), Decoded::kMessage);
  EXPECT_EQ(ResultOf(Header(1, 1, kMaxRequest), Sender::kClient), Decoded::kIncomplete);
  EXPECT_EQ(ResultOf(Header(1, 1, kMaxRequest) + std::string(kMaxRequest, ' '), Sender::kClient), Decoded::kMessage);
  EXPECT_EQ(ResultOf(Header(1, 1, kMaxRequest + 1), Sender::kClient), Decoded::kTooLong);
  EXPECT_EQ(ResultOf(Header(1, 1, 0xFFFFFFFF), Sender::kClient), Decoded::kTooLong);
  EXPECT_EQ(ResultOf(Header(1, 0x8001, kMaxReply), Sender::kDaemon), Decoded::kIncomplete);
  EXPECT_EQ(ResultOf(Header(1, 0x8001, kMaxReply + 1), Sender::kDaemon), Decoded::kTooLong);
}

TEST(ControlMessage, TextBeyondTheLimitIsNotEncoded) {
  EXPECT_EQ(Encode({Kind::kStatus, std::string(kMaxRequest, ' ')}).size(), kHeaderSize + kMaxRequest);
  EXPECT_EQ(Encode({Kind::kStatus, std::string(kMaxRequest + 1, ' ')}), "");
  EXPECT_EQ(Encode({Kind::kAnswer, std::string(kMaxReply, ' ')}).size(), kHeaderSize + kMaxReply);
  EXPECT_EQ(Encode({Kind::kAnswer, std::string(kMaxReply + 1, ' ')}), "");
}

// A flip in the magic, the version or the kind is seen; one in the length makes another length; one in the text stays
// in the text.
TEST(ControlMessage, FlippedBitsNeverGiveTheSameMessage) {
  const std::string bytes = Encode({Kind::kStatus, "{\"a\":1}"});
  for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
    std::string flipped = bytes;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
    const Decoding decoding = Decode(flipped, Sender::kClient);
    if (bit / 8 < 4) {
      EXPECT_EQ(decoding.result, Decoded::kForeign) << bit;
    } else if (bit / 8 < 6) {
      EXPECT_EQ(decoding.result, Decoded::kOtherVersion) << bit;
    } else if (bit / 8 < kHeaderSize) {
      EXPECT_TRUE(decoding.result != Decoded::kMessage || decoding.message.kind != Kind::kStatus) << bit;
    } else {
      EXPECT_EQ(decoding.result, Decoded::kMessage) << bit;
      EXPECT_EQ(decoding.message.text, flipped.substr(kHeaderSize)) << bit;
    }
  }
}

TEST(ControlMessage, RefusalIsJsonWhateverTheTextHolds) {
  EXPECT_EQ(Refusal("no \"x\"").text, "{\"error\":\"no \\\"x\\\"\"}");
  EXPECT_EQ(Refusal("a\xFF").text, "{\"error\":\"a\xEF\xBF\xBD\"}");
  EXPECT_EQ(Refusal("").kind, Kind::kRefusal);
}

}  // namespace
