#include "host/events/TableReply.h"

#include <gtest/gtest.h>

namespace {

using namespace Host;
using Bytes = std::vector<u8>;

// The sentence about a reply that is refused.
std::string Refusal(const Bytes& bytes) {
  std::string error;
  EXPECT_FALSE(ReadTableReply(bytes, error).has_value());
  return error;
}

TEST(ReadTableReply, HeadAndMessagesAreFound) {
  const Bytes bytes = {1, 0, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 'a', 'b', 'c', 0, 0, 0, 0};
  std::string error;
  const auto reply = ReadTableReply(bytes, error);
  ASSERT_TRUE(reply.has_value()) << error;
  EXPECT_EQ(reply->version, 1);
  EXPECT_EQ(reply->error, 0U);
  EXPECT_EQ(reply->messageCount, 2U);
  ASSERT_EQ(reply->messages.size(), 2U);
  EXPECT_EQ(reply->messages[0].bytes, bytes.data() + 13);
  EXPECT_EQ(reply->messages[0].size, 3U);
  EXPECT_EQ(reply->messages[1].size, 0U);
}

TEST(ReadTableReply, HeadAloneIsAReplyWithoutRows) {
  std::string error;
  const auto reply = ReadTableReply({1, 4, 3, 2, 1, 0, 0, 0, 0}, error);
  ASSERT_TRUE(reply.has_value()) << error;
  EXPECT_EQ(reply->error, 0x01020304U);
  EXPECT_TRUE(reply->messages.empty());
}

TEST(ReadTableReply, TooFewBytesAreRefused) {
  EXPECT_EQ(Refusal({}), "the reply has 0 bytes, too few for its head");
  EXPECT_EQ(Refusal({1, 0, 0, 0, 0, 0, 0, 0}), "the reply has 8 bytes, too few for its head");
}

TEST(ReadTableReply, OtherVersionIsRefused) {
  EXPECT_EQ(Refusal({2, 0, 0, 0, 0, 0, 0, 0, 0}), "the reply has version 2, not 1");
}

TEST(ReadTableReply, MessageThatIsCutIsRefused) {
  EXPECT_EQ(Refusal({1, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0}), "the reply ends inside a message");
  EXPECT_EQ(Refusal({1, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 'a'}), "the reply ends inside a message");
  EXPECT_EQ(Refusal({1, 0, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 'a'}), "the reply ends inside a message");
}

TEST(ReadTableReply, CountThatLiesIsRefused) {
  EXPECT_EQ(Refusal({1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}), "the reply has 1 messages, its head says 2");
  EXPECT_EQ(Refusal({1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), "the reply has 1 messages, its head says 0");
}

}  // namespace
