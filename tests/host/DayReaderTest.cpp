#include "host/table/DayReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "platform/sim/Sim.h"
#include "tests/host/DayFileBytes.h"

namespace {

namespace Sim = Velmar::Sim;
using namespace Host;
using namespace Host::Table;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr u64 kDay = DayFileBytes::kDay;
constexpr u64 kNextDay = kDay + 86400;
constexpr char kFolder[] = "/data/netdb";
constexpr u64 kNever = std::numeric_limits<u64>::max();

std::string DayFile(u64 day) {
  return std::string(kFolder) + "/" + std::to_string(day) + ".db";
}

void PutDay(u64 day) {
  DayFileBytes bytes;
  bytes.day = day;
  Sim::PutFile(DayFile(day), bytes.Bytes());
}

class DayReaderTest : public testing::Test {
 protected:
  void SetUp() override {
    Sim::Reset();
    PutDay(kDay);
  }

  // The last octets and paths of the day's rows. `refused_`: the query was.
  std::vector<std::string> Rows(u64 day = kDay) {
    std::vector<std::string> rows;
    refused_ = !reader_.Read(day, "ip,proc_fpath", Narrow({}).ConstraintsFor(day));
    while (reader_.Next()) {
      rows.push_back(reader_.Row().ip().substr(10) + " " + reader_.Row().proc_fpath());
    }
    return rows;
  }

  Problems problems_;
  Pause pause_ = [] {};
  bool refused_ = false;
  DayReader reader_{kFolder, problems_, pause_};
};

const auto kRows = ElementsAre("1 /bin/a", "1 /bin/b", "2 /bin/a", "3 ");

TEST_F(DayReaderTest, RowsComeAsTheyAreStored) {
  EXPECT_FALSE(reader_.Next()) << "before the first day";
  EXPECT_THAT(Rows(), kRows);
  EXPECT_FALSE(reader_.Next());
  EXPECT_THAT(problems_.Take(), IsEmpty());
}

TEST_F(DayReaderTest, WhatIsLeftOfADayIsGivenUp) {
  ASSERT_TRUE(reader_.Read(kDay, "ip", Narrow({}).ConstraintsFor(kDay)));
  ASSERT_TRUE(reader_.Next());
  reader_.Clear();
  EXPECT_FALSE(reader_.Next());
  PutDay(kNextDay);
  EXPECT_THAT(Rows(kNextDay), kRows);
}

TEST_F(DayReaderTest, BadColumnsAndConstraintsAreRefused) {
  EXPECT_FALSE(reader_.Read(kDay, "nothing", "{}"));
  EXPECT_FALSE(reader_.Next());
  EXPECT_FALSE(reader_.Read(kDay, "ip", "["));
  EXPECT_THAT(problems_.Take(), IsEmpty()) << "no fault of the history";
}

// Whatever fails: all rows come, or something is said.
TEST_F(DayReaderTest, NoFailedAllocationLosesARowSilently) {
  Rows();
  const u64 before = Sim::CountAllocations();
  Rows();
  const u64 count = Sim::CountAllocations() - before;
  ASSERT_GT(count, 10U);
  u64 silent = 0;
  for (u64 n = 0; n < count; ++n) {
    Sim::FailAllocation(n);
    const std::vector<std::string> rows = Rows();
    Sim::FailAllocation(kNever);
    const bool said = refused_ || !problems_.Take().empty();
    EXPECT_TRUE(rows.size() == 4 || said) << "allocation " << n;
    silent += said ? 0 : 1;
  }
  EXPECT_LT(silent, count) << "some must matter";
}

TEST_F(DayReaderTest, AnswerWithoutMemoryIsSaid) {
  ASSERT_GT(Sim::CountAllocations(), 0U);
  Sim::FailAllocation(0, kNever);
  const std::vector<std::string> rows = Rows();
  Sim::FailAllocation(kNever);
  EXPECT_THAT(rows, IsEmpty());
  EXPECT_THAT(problems_.Take(), ElementsAre("the rows of 2023-11-14 do not fit into memory; some are missing"));
}

TEST_F(DayReaderTest, NoFailedFileOperationLosesARowSilently) {
  const u64 before = Sim::CountFileOperations();
  Rows();
  const u64 count = Sim::CountFileOperations() - before;
  ASSERT_GT(count, 3U);
  for (const Sim::Fault fault : {Sim::Fault::kFail, Sim::Fault::kTear, Sim::Fault::kDrop}) {
    for (u64 n = 0; n < count; ++n) {
      Sim::FailFileOperation(n, fault);
      const std::vector<std::string> rows = Rows();
      Sim::ClearFaults();
      EXPECT_TRUE(rows.size() == 4 || !problems_.Take().empty()) << "operation " << n;
    }
  }
}

TEST_F(DayReaderTest, DayThatIsMissedOnceIsFoundAgain) {
  Sim::FailFileOperation(Sim::Operation::kEnumerate, 0, Sim::Fault::kDrop);
  EXPECT_THAT(Rows(), kRows) << "a folder that shows no file of the day";
  Sim::FailFileOperation(Sim::Operation::kEnumerate, 0, Sim::Fault::kDrop, kLooks);
  EXPECT_THAT(Rows(), kRows);
  EXPECT_THAT(problems_.Take(), IsEmpty());
}

TEST_F(DayReaderTest, ListHoldsWhatEitherOfTwoLooksShows) {
  PutDay(kNextDay);
  DayList days(kFolder, problems_, pause_);
  EXPECT_THAT(days.List(), ElementsAre(kDay, kNextDay));
  for (const u64 look : {0U, 1U}) {
    Sim::FailFileOperation(Sim::Operation::kEnumerate, look, Sim::Fault::kDrop);
    EXPECT_THAT(days.List(), ElementsAre(kDay, kNextDay));
  }
  EXPECT_THAT(problems_.Take(), IsEmpty());
}

TEST_F(DayReaderTest, ListThatFailsIsSaid) {
  DayList days(kFolder, problems_, pause_);
  Sim::FailFileOperation(Sim::Operation::kEnumerate, 0, Sim::Fault::kFail);
  EXPECT_THAT(days.List(), ElementsAre(kDay));
  EXPECT_THAT(problems_.Take(), ElementsAre("cannot list the folder /data/netdb"));
}

}  // namespace
