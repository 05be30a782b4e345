#include "host/commands/HistoryRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/History.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Commands;

constexpr u64 kDay = 1699920000;
constexpr u64 kNextDay = kDay + 86400;

class HistoryRunTest : public testing::Test {
 protected:
  // Last octets of the addresses in the range, in order.
  std::vector<int> Octets(u64 since, u64 until, ExitCode expected = kDone) {
    std::vector<int> octets;
    const RowQuery query = {.filter = {.range = {since, until}}, .columns = {0}};
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunHistory(folder_.Path(), RowsStatement(query),
                         [&octets](const std::vector<Cell>& cells) {
                           const std::string& ip = std::get<std::string>(cells[0]);
                           octets.push_back(std::stoi(ip.substr(ip.rfind('.') + 1)));
                           return true;
                         }),
              expected);
    said_ = testing::internal::GetCapturedStderr();
    return octets;
  }

  std::string DayFile(u64 day) { return folder_.Path("netdb/" + std::to_string(day) + ".db"); }

  TemporaryFolder folder_;
  std::string said_;  // by the last run, on standard error
};

TEST_F(HistoryRunTest, DaysComeInOrder) {
  PutHistory(folder_.Path(), {{kNextDay + 5, 3}, {kDay + 5, 1}, {kNextDay + 86400, 4}, {kDay + 6, 2}});
  EXPECT_THAT(Octets(0, ~u64{0}), testing::ElementsAre(1, 2, 3, 4));
}

TEST_F(HistoryRunTest, BothEndsOfTheRangeCount) {
  PutHistory(folder_.Path(), {{kDay + 100, 1}, {kDay + 200, 2}, {kDay + 300, 3}});
  EXPECT_THAT(Octets(kDay + 100, kDay + 200), testing::ElementsAre(1, 2));
  EXPECT_THAT(Octets(kDay + 101, kDay + 199), testing::IsEmpty());
  EXPECT_THAT(Octets(kDay + 300, kDay + 300), testing::ElementsAre(3));
  EXPECT_THAT(Octets(kDay + 301, ~u64{0}), testing::IsEmpty());
}

TEST_F(HistoryRunTest, RowThatSpansTheRangeIsIn) {
  PutHistory(folder_.Path(), {{kDay + 100, 1, kDay + 900}});
  EXPECT_THAT(Octets(kDay + 400, kDay + 500), testing::ElementsAre(1));
  EXPECT_THAT(Octets(0, kDay + 100), testing::ElementsAre(1));
  EXPECT_THAT(Octets(kDay + 900, ~u64{0}), testing::ElementsAre(1));
  EXPECT_THAT(Octets(kDay + 901, ~u64{0}), testing::IsEmpty());
  EXPECT_THAT(Octets(0, kDay + 99), testing::IsEmpty());
}

TEST_F(HistoryRunTest, FilteredFileOfTheSameDayIsReadToo) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}});
  std::filesystem::rename(DayFile(kDay), DayFile(kDay) + ".f");
  PutHistory(folder_.Path() + "/other", {{kDay + 2, 2}});
  std::filesystem::rename(folder_.Path("other/netdb/" + std::to_string(kDay) + ".db"), DayFile(kDay));
  EXPECT_THAT(Octets(0, ~u64{0}), testing::UnorderedElementsAre(1, 2));
}

TEST_F(HistoryRunTest, DamagedFileIsNamedAndTheOthersAreRead) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}, {kNextDay + 1, 2}});
  folder_.Put("netdb/" + std::to_string(kDay) + ".db", "damaged");
  EXPECT_THAT(Octets(0, ~u64{0}, kPartial), testing::ElementsAre(2));
  EXPECT_EQ(said_, "netdb: " + DayFile(kDay) + " is damaged or cannot be read; its rows are missing\n");
  EXPECT_THAT(Octets(kNextDay, ~u64{0}), testing::ElementsAre(2)) << "the damaged day is not asked for";
}

TEST_F(HistoryRunTest, FileUnderAnotherDaysNameIsDamaged) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}});
  std::filesystem::copy(DayFile(kDay), DayFile(kNextDay));
  EXPECT_THAT(Octets(0, ~u64{0}, kPartial), testing::ElementsAre(1));
}

template <class T>
void Append(std::string& bytes, T value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

// A table of `rows` rows in its stored form.
std::string Table(u32 rows, u32 ceiling, u32 flags, const std::string& content) {
  std::string bytes;
  Append(bytes, u16{1});
  Append(bytes, rows);
  Append(bytes, ceiling);
  Append(bytes, flags);
  return bytes + content;
}

void PutTable(RYL::NetDB::DayStore& store, const char* key, const std::string& bytes) {
  ASSERT_TRUE(store.Apply(
      key, true,
      [&bytes](Velmar::Collections::Buffer& value, bool, void*) {
        return value.PushBuffer(bytes.data(), static_cast<u32>(bytes.size())) != Velmar::kNone;
      },
      nullptr));
}

TEST_F(HistoryRunTest, RowOfAMissingProcessIsDamage) {
  namespace Flags = Velmar::Collections::DB::StoreFlags;
  PutHistory(folder_.Path(), {{kNextDay + 1, 2}});
  {
    RYL::NetDB::NetDBCryptor cryptor;
    cryptor.SetDayStamp(kDay);
    RYL::NetDB::DayStore store;
    store.keyCompareFlag = 0;
    ASSERT_TRUE(store.Init(DayFile(kDay).c_str(), 2, 3, 1, Flags::kBinarySearch | Flags::kCipherRequired, 1,
                           &store.keyCompareFlag, &cryptor, 0, -1, nullptr));
    PutTable(store, "p", Table(0, 0x20000, 0x10000064, ""));
    PutTable(store, "4", Table(1, 0x40000, 0x10000400, std::string("\xCB\0\x71\1", 4) + std::string(42, '\0')));
    ASSERT_TRUE(store.Save());
  }
  EXPECT_THAT(Octets(0, ~u64{0}, kPartial), testing::ElementsAre(2));
  EXPECT_EQ(said_, "netdb: the rows of 2023-11-14 are damaged or cannot be read; some are missing\n");
}

TEST_F(HistoryRunTest, OtherFilesAreLeftAlone) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}});
  folder_.Put("netdb/" + std::to_string(kDay) + ".temp", "a save under way");
  folder_.Put("netdb/cache.4.db", "x");
  folder_.Put("netdb/" + std::to_string(kDay) + ".db.damaged", "x");
  EXPECT_THAT(Octets(0, ~u64{0}), testing::ElementsAre(1));
}

TEST_F(HistoryRunTest, MissingFolderIsAnErrorAndIsNotMade) {
  EXPECT_THAT(Octets(0, ~u64{0}, kFailed), testing::IsEmpty());
  EXPECT_EQ(said_, "netdb: there is no history: the folder " + folder_.Path("netdb") + " does not exist\n");
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("netdb")));
}

TEST_F(HistoryRunTest, TakerEndsTheRunWithoutAProblem) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}, {kDay + 2, 2}, {kNextDay + 1, 3}});
  folder_.Put("netdb/" + std::to_string(kNextDay) + ".db", "damaged, and never read");
  int rows = 0;
  const RowQuery query = {.columns = {0}};
  EXPECT_EQ(RunHistory(folder_.Path(), RowsStatement(query),
                       [&rows](const std::vector<Cell>& /*cells*/) { return ++rows < 2; }),
            kDone);
  EXPECT_EQ(rows, 2);
}

TEST_F(HistoryRunTest, StatementThatIsNoneFails) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}});
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunHistory(folder_.Path(), {"SELECT unknown FROM edr_netdb", {}},
                       [](const std::vector<Cell>& /*cells*/) { return true; }),
            kFailed);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "netdb: no such column: unknown\n");
}

}  // namespace
