#include "host/import/DayWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/Types.h"

namespace {

using namespace Host;
using namespace Host::Import;

constexpr u64 kDayMs = 86'400'000;

ConnectionRecord At(u64 timeMs, u16 port = 0) {
  ConnectionRecord event;
  event.timeMs = timeMs;
  event.port = port;
  return event;
}

TEST(DayWindow, GroupsByDayAndKeepsTheOrderWithin) {
  std::vector<u16> ports;
  DayWindow window([&ports](const ConnectionRecord& event) {
    ports.push_back(event.port);
    return true;
  });
  EXPECT_TRUE(window.Add(At(2 * kDayMs, 1)));
  EXPECT_TRUE(window.Add(At(kDayMs + 500, 2)));
  EXPECT_TRUE(window.Add(At(3 * kDayMs - 1, 3)));
  EXPECT_TRUE(window.Add(At(kDayMs, 4)));
  EXPECT_TRUE(window.Add(At(2 * kDayMs - 1, 5)));
  EXPECT_TRUE(ports.empty());
  EXPECT_TRUE(window.Flush());
  EXPECT_THAT(ports, testing::ElementsAre(2, 4, 5, 1, 3));
}

TEST(DayWindow, FullWindowDeliversByItself) {
  std::size_t delivered = 0;
  DayWindow window([&delivered](const ConnectionRecord& /*event*/) {
    ++delivered;
    return true;
  });
  for (std::size_t i = 1; i < DayWindow::kCapacity; ++i) {
    ASSERT_TRUE(window.Add(At(i)));
  }
  EXPECT_EQ(delivered, 0U);
  EXPECT_TRUE(window.Add(At(0)));
  EXPECT_EQ(delivered, DayWindow::kCapacity);
  EXPECT_TRUE(window.Flush());
  EXPECT_EQ(delivered, DayWindow::kCapacity);
}

TEST(DayWindow, RefusalEndsTheDelivery) {
  int calls = 0;
  DayWindow window([&calls](const ConnectionRecord& /*event*/) { return ++calls < 2; });
  window.Add(At(1));
  window.Add(At(2));
  window.Add(At(3));
  EXPECT_FALSE(window.Flush());
  EXPECT_EQ(calls, 2);
}

}  // namespace
