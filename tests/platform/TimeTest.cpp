#include "Velmar/OS/Time.h"

#include <gtest/gtest.h>

namespace {

using namespace Velmar;
using OS::Time;

TEST(TimeContract, SecondsAndMillisecondsAreOfOneClock) {
  u64 before = Time::GetEpochTime(nullptr) / 1000;
  u64 seconds = Time::GetSystemTime();
  u64 after = Time::GetEpochTime(nullptr) / 1000;
  EXPECT_LE(before, seconds);
  EXPECT_LE(seconds, after);
  EXPECT_GT(seconds, 1600000000U);
}

TEST(TimeContract, RemainderIsBelowAMillisecond) {
  u32 remainder = 5000;
  Time::GetEpochTime(&remainder);
  EXPECT_LT(remainder, 1000U);
}

TEST(TimeContract, SleepMovesBothClocks) {
  u64 frequency = 0;
  u64 first = 0;
  u64 second = 0;
  ASSERT_TRUE(Time::GetPerformanceFrequency(frequency));
  ASSERT_GT(frequency, 0U);
  u64 before = Time::GetEpochTime(nullptr);
  ASSERT_TRUE(Time::GetPerformanceCounter(first));
  Time::Sleep(2);
  ASSERT_TRUE(Time::GetPerformanceCounter(second));
  EXPECT_GE((second - first) * 1000 / frequency, 2U);
  EXPECT_GE(Time::GetEpochTime(nullptr), before + 1);
}

}  // namespace
