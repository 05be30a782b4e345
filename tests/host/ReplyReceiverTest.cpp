#include "host/agent/ReplyReceiver.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using namespace Host;
using Velmar::Utils::TreeContainer;

// A tree that holds one number.
struct NumberTree {
  explicit NumberTree(u32 number) {
    EXPECT_TRUE(tree.Create(4, 4, true, 1));
    EXPECT_NE(tree.AddUInt32(TreeContainer::kRoot, "number", number, false), TreeContainer::kError);
  }
  TreeContainer tree;
};

u32 NumberOf(const ReplyReceiver::Reply& reply) {
  return reply.tree.GetNodeValueUInt32(TreeContainer::kRoot, "number", 0, nullptr);
}

TEST(ReplyReceiver, RepliesOutliveTheirTreesAndKeepTheirOrder) {
  ReplyReceiver receiver;
  {
    NumberTree first(11);
    NumberTree second(22);
    EXPECT_TRUE(receiver.Dispatch(8, &first.tree, 0, 0, 0));
    EXPECT_TRUE(receiver.Dispatch(9, &second.tree, 0, 0, 0));
  }
  auto reply = receiver.Take();
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(reply->kind, 8U);
  EXPECT_EQ(NumberOf(*reply), 11U);
  reply = receiver.Take();
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(reply->kind, 9U);
  EXPECT_EQ(NumberOf(*reply), 22U);
  EXPECT_EQ(receiver.Take(), nullptr);
}

TEST(ReplyReceiver, NullTreeIsRefused) {
  ReplyReceiver receiver;
  EXPECT_FALSE(receiver.Dispatch(8, nullptr, 0, 0, 0));
  EXPECT_EQ(receiver.Take(), nullptr);
}

TEST(ReplyReceiver, NoMoreRepliesWaitThanAllowed) {
  ReplyReceiver receiver(2);
  NumberTree one(1);
  EXPECT_TRUE(receiver.Dispatch(8, &one.tree, 0, 0, 0));
  EXPECT_TRUE(receiver.Dispatch(8, &one.tree, 0, 0, 0));
  EXPECT_FALSE(receiver.Dispatch(8, &one.tree, 0, 0, 0));
  EXPECT_NE(receiver.Take(), nullptr);
  EXPECT_TRUE(receiver.Dispatch(8, &one.tree, 0, 0, 0));
}

TEST(ReplyReceiver, TakesRepliesFromSeveralThreads) {
  constexpr int kThreads = 4;
  constexpr u32 kEach = 100;
  ReplyReceiver receiver(kThreads * kEach);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&receiver] {
      NumberTree number(7);
      for (u32 sent = 0; sent < kEach; ++sent) {
        EXPECT_TRUE(receiver.Dispatch(8, &number.tree, 0, 0, 0));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  u32 taken = 0;
  while (const auto reply = receiver.Take()) {
    EXPECT_EQ(NumberOf(*reply), 7U);
    ++taken;
  }
  EXPECT_EQ(taken, kThreads * kEach);
}

std::vector<u8> Bytes(const std::string& text) {
  return {text.begin(), text.end()};
}

TEST(NamedBinaries, KeepsACopyUnderEachName) {
  NamedBinaries binaries(100);
  std::string data = "abc";
  EXPECT_TRUE(binaries.SetBinary("events", data.data(), 3));
  data = "xyz";
  EXPECT_TRUE(binaries.SetBinary("more", data.data(), 2));
  ASSERT_NE(binaries.Find("events"), nullptr);
  EXPECT_EQ(*binaries.Find("events"), Bytes("abc"));
  EXPECT_EQ(*binaries.Find("more"), Bytes("xy"));
  EXPECT_EQ(binaries.Find("other"), nullptr);
}

TEST(NamedBinaries, LastOfANameStays) {
  NamedBinaries binaries(4);
  EXPECT_TRUE(binaries.SetBinary("events", "abcd", 4));
  EXPECT_TRUE(binaries.SetBinary("events", "efg", 3));
  EXPECT_EQ(*binaries.Find("events"), Bytes("efg"));
  EXPECT_TRUE(binaries.SetBinary("more", "h", 1));
}

TEST(NamedBinaries, LimitIsForAllTogether) {
  NamedBinaries binaries(5);
  EXPECT_TRUE(binaries.SetBinary("a", "123", 3));
  EXPECT_FALSE(binaries.SetBinary("b", "456", 3));
  EXPECT_EQ(binaries.Find("b"), nullptr);
  EXPECT_FALSE(binaries.SetBinary("a", "123456", 6));
  EXPECT_EQ(*binaries.Find("a"), Bytes("123"));
  EXPECT_TRUE(binaries.SetBinary("b", "45", 2));
  EXPECT_TRUE(binaries.SetBinary("a", "12345", 3));
}

TEST(NamedBinaries, NothingIsTakenFromNull) {
  NamedBinaries binaries(5);
  EXPECT_FALSE(binaries.SetBinary(nullptr, "1", 1));
  EXPECT_FALSE(binaries.SetBinary("a", nullptr, 1));
  EXPECT_EQ(binaries.Find("a"), nullptr);
  EXPECT_TRUE(binaries.SetBinary("a", nullptr, 0));
  ASSERT_NE(binaries.Find("a"), nullptr);
  EXPECT_TRUE(binaries.Find("a")->empty());
}

}  // namespace
