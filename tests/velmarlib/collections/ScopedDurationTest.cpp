// Durations: units, clocks, and what stands in when there is no performance counter.
#include "Velmar/Utils/ScopedDuration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Velmar/OS/Time.h"
#include "platform/sim/Sim.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace Velmar;
using Utils::MonotonicMicroseconds;
using Utils::ScaleDuration;
using Utils::ScopedDuration;
using Strings = std::vector<std::string>;

struct Report {
  int calls = 0;
  double value = -1;
  std::string unit;
};

template <class Scope>
Report Measure(Scope scope) {
  Report report;
  {
    ScopedDuration timer([&report](double value, const char* unit) {
      ++report.calls;
      report.value = value;
      report.unit = unit;
    });
    scope();
    EXPECT_EQ(report.calls, 0) << "the report comes when the scope ends";
  }
  EXPECT_EQ(report.calls, 1);
  return report;
}

TEST(ScaleDuration, EachUnitBeginsAtItsDivisor) {
  const struct {
    double microseconds;
    double value;
    const char* unit;
  } rows[] = {
      {0, 0, "us"},         {999, 999, "us"},         {1000, 1, "ms"},    {999500, 999.5, "ms"},
      {1000000, 1, "s"},    {59500000, 59.5, "s"},    {60000000, 1, "m"}, {3570000000, 59.5, "m"},
      {3600000000, 1, "h"}, {360000000000, 100, "h"},
  };
  for (const auto& row : rows) {
    double value = row.microseconds;
    EXPECT_STREQ(ScaleDuration(value), row.unit) << row.microseconds;
    EXPECT_DOUBLE_EQ(value, row.value) << row.microseconds;
  }
}

TEST(ScopedDuration, ReportsTheTimeOfItsScope) {
  const Report report = Measure([] { Sim::AdvanceTime(1500); });
  EXPECT_DOUBLE_EQ(report.value, 1.5);
  EXPECT_EQ(report.unit, "s");
}

TEST(ScopedDuration, ScopeWithoutTimeIsZero) {
  const Report report = Measure([] {});
  EXPECT_DOUBLE_EQ(report.value, 0);
  EXPECT_EQ(report.unit, "us");
}

TEST(MonotonicMicroseconds, CounterOfMonthsDoesNotOverflow) {
  LogCapture log;
  const u64 start = MonotonicMicroseconds();
  Sim::AdvanceTime(1000ULL * 86400 * 400);
  EXPECT_EQ(MonotonicMicroseconds() - start, 1000000ULL * 86400 * 400);
  EXPECT_TRUE(log.Entries().empty());
}

TEST(MonotonicMicroseconds, MissingFrequencyIsLoggedOnceAndRemembered) {
  Sim::FailPerformanceFrequency(true);
  LogCapture log;
  EXPECT_EQ(MonotonicMicroseconds(), OS::Time::GetSystemTime() * 1000);
  EXPECT_EQ(MonotonicMicroseconds(), OS::Time::GetSystemTime() * 1000);
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.NoPerformanceCounter"});
  Sim::FailPerformanceFrequency(false);
  EXPECT_EQ(MonotonicMicroseconds(), OS::Time::GetSystemTime() * 1000) << "for good";
  EXPECT_EQ(log.Entries().size(), 1U);
}

TEST(ScopedDuration, SystemTimeStandsInForTheCounter) {
  Sim::FailPerformanceFrequency(true);
  const Report report = Measure([] { Sim::AdvanceTime(5000); });
  EXPECT_DOUBLE_EQ(report.value, 5);
  EXPECT_EQ(report.unit, "ms") << "seconds x 1000 count as microseconds";
}

TEST(ScopedDuration, SystemTimeThatWasSetBackGivesZero) {
  Sim::FailPerformanceFrequency(true);
  const Report report = Measure([] { Sim::SetEpochTime(1600000000000); });
  EXPECT_DOUBLE_EQ(report.value, 0);
  EXPECT_EQ(report.unit, "us");
}

}  // namespace
