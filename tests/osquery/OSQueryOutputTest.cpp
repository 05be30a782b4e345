#include "osquery/osquery/OSQueryOutput.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "platform/sim/Sim.h"
#include "tests/osquery/Records.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB::OSQuery {
namespace {

constexpr u32 kLimit = OSQueryOutput::kMinQueryBytes;
constexpr u32 kManyRows = 1000000;

class OSQueryOutputTest : public ::testing::Test {
 protected:
  OSQueryOutputTest() {
    Velmar::Sim::Reset();
    EXPECT_TRUE(CreateSelectors(selectors));
  }

  // A selector whose rows encode to exactly `size` bytes: a key, a length, and the text.
  void AddRowOf(u32 size) {
    const u32 lengthBytes = size - 2 < 0x80 ? 1 : (size - 3 < 0x4000 ? 2 : 3);
    const u32 text = size - 1 - lengthBytes;
    ASSERT_TRUE(selectors.Add(
        Selector([text](const QueryRecord&, edr_netdb& row) { *row.mutable_proc_fpath() = std::string(text, 'x'); })));
  }
  // The delivered result; there must be exactly one.
  std::string Delivered() {
    EXPECT_EQ(external.results.size(), 1U);
    if (external.results.size() != 1) {
      return "";
    }
    EXPECT_EQ(external.results[0].first, "events");
    return external.results[0].second;
  }
  static bool WriteRows(OSQueryOutput& output, u32 rows) {
    for (u32 i = 0; i < rows; ++i) {
      if (!output.WriteRow(FullRecord())) {
        return false;
      }
    }
    return true;
  }

  LogCapture log;
  FakeExternalData external;
  SelectorArray selectors;
};

TEST_F(OSQueryOutputTest, StartsWithoutRowsAndErrors) {
  const OSQueryOutput output(&external, &selectors, 7);
  EXPECT_EQ(output.error, 0U);
  EXPECT_EQ(output.message_count, 0U);
  EXPECT_EQ(output.committed_size, 9U);
  EXPECT_EQ(output.max_rows, 7U);
}

TEST_F(OSQueryOutputTest, FewerThanTheLeastBytesAreRefused) {
  OSQueryOutput output(&external, &selectors, 7);
  EXPECT_FALSE(output.Init(0x7FFFF));
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.QueryBytesTooSmall"});
  EXPECT_EQ(log.Arguments("osquery.QueryBytesTooSmall"), (std::vector<std::string>{"524288", "524287"}));
  EXPECT_FALSE(output.Finish());
  EXPECT_TRUE(external.results.empty());
}

TEST_F(OSQueryOutputTest, TheLeastBytesAreEnough) {
  OSQueryOutput output(&external, &selectors, 7);
  EXPECT_TRUE(output.Init(0x80000));
  EXPECT_TRUE(output.Finish());
  EXPECT_EQ(Delivered(), Header(0, 0));
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"1 osquery.ResultComplete"});
}

TEST_F(OSQueryOutputTest, NoMemoryForTheBufferIsAnError) {
  Velmar::Sim::FailAllocation(0);
  OSQueryOutput output(&external, &selectors, 7);
  EXPECT_FALSE(output.Init(kLimit));
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.NoOutputBuffer"});
  EXPECT_FALSE(output.Finish());
  EXPECT_EQ(log.Lines(1), (std::vector<std::string>{"5 osquery.NoOutputBuffer", "5 osquery.ResultNotTaken"}));
  EXPECT_TRUE(external.results.empty());
}

TEST_F(OSQueryOutputTest, RowsStandBehindTheirLengths) {
  ASSERT_TRUE(AddSelector("port", selectors));
  ASSERT_TRUE(AddSelector("conns_in", selectors));
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  QueryRecord record = {};
  record.port = 443;
  record.conns_in = 5;
  ASSERT_TRUE(output.WriteRow(record));
  EXPECT_EQ(output.message_count, 1U);
  EXPECT_EQ(output.committed_size, 18U);
  record = {};
  ASSERT_TRUE(output.WriteRow(record));
  EXPECT_EQ(output.message_count, 2U);
  EXPECT_EQ(output.committed_size, 22U);
  ASSERT_TRUE(output.Finish());
  const std::string first("\x05\x00\x00\x00\x20\xBB\x03\x38\x05", 9);
  const std::string second("\x00\x00\x00\x00", 4);
  EXPECT_EQ(Delivered(), Header(0, 2) + first + second);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"1 osquery.ResultComplete"});
  EXPECT_EQ(log.Arguments("osquery.ResultComplete"), (std::vector<std::string>{"2", "22"}));
}

TEST_F(OSQueryOutputTest, AllColumnsComeBackFromTheResult) {
  ASSERT_TRUE(AddAllSelectors(selectors));
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  ASSERT_TRUE(output.Finish());
  const auto rows = RowsOf(Delivered());
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].ShortDebugString(),
            "ip: \"203.0.113.9\" first_seen: 1700000000000 last_seen: 1700000060000 port: 443 "
            "protos: \"HTTP,SSL,TCP\" conns_total: 7 conns_in: 3 conns_out: 4 bytes_in: 5120 bytes_out: 8589934592 "
            "proc_fpath: \"/usr/bin/curl\" proc_md5: \"000102030405060708090a0b0c0d0e0f\" "
            "proc_qid: \"fffefdfcfbfaf9f8f7f6f5f4f3f2f1f0efeeedecebeae9e8e7e6e5e4e3e2e1e0\" "
            "proc_puid: 18446744073709551615 proc_pid: 4321");
}

TEST_F(OSQueryOutputTest, BadBytesOfAPathAreReplacedInTheResult) {
  ASSERT_TRUE(AddSelector("proc_fpath", selectors));
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  QueryRecord record = FullRecord();
  SetPath(record, "/tmp/\xFF\xC3\xA4\xE2\x82");
  ASSERT_TRUE(output.WriteRow(record));
  ASSERT_TRUE(output.Finish());
  const auto rows = RowsOf(Delivered());
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].proc_fpath(), "/tmp/\xEF\xBF\xBD\xC3\xA4\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST_F(OSQueryOutputTest, AsManyRowsAsTheLimitAreNoError) {
  ASSERT_TRUE(AddSelector("port", selectors));
  OSQueryOutput output(&external, &selectors, 2);
  ASSERT_TRUE(output.Init(kLimit));
  EXPECT_TRUE(WriteRows(output, 2));
  ASSERT_TRUE(output.Finish());
  const std::string result = Delivered();
  EXPECT_EQ(result.substr(0, 9), Header(0, 2));
  EXPECT_EQ(RowsOf(result).size(), 2U);
  EXPECT_EQ(log.CountLevel(5), 0);
}

TEST_F(OSQueryOutputTest, RowBeyondTheLimitDropsAllFromTheBinaryResult) {
  ASSERT_TRUE(AddSelector("port", selectors));
  OSQueryOutput output(&external, &selectors, 2);
  ASSERT_TRUE(output.Init(kLimit));
  EXPECT_TRUE(WriteRows(output, 2));
  EXPECT_FALSE(output.WriteRow(FullRecord()));
  EXPECT_EQ(output.error, kRowLimit);
  EXPECT_EQ(output.message_count, 2U);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.RowLimitReached"});
  EXPECT_EQ(log.Arguments("osquery.RowLimitReached"), std::vector<std::string>{"2"});
  ASSERT_TRUE(output.Finish());
  EXPECT_EQ(Delivered(), Header(1, 0));
  EXPECT_EQ(output.message_count, 0U);
  EXPECT_EQ(log.Arguments("osquery.ResultComplete"), (std::vector<std::string>{"0", "9"}));
}

TEST_F(OSQueryOutputTest, LimitOfNoRowsRefusesTheFirst) {
  OSQueryOutput output(&external, &selectors, 0);
  ASSERT_TRUE(output.Init(kLimit));
  EXPECT_FALSE(output.WriteRow(FullRecord()));
  EXPECT_EQ(output.error, kRowLimit);
}

// Nothing is taken ahead of the rows.
TEST_F(OSQueryOutputTest, LargestLimitsAreNoMoreThanLimits) {
  ASSERT_TRUE(AddSelector("port", selectors));
  OSQueryOutput output(&external, &selectors, ~0U);
  ASSERT_TRUE(output.Init(~0U));
  EXPECT_TRUE(WriteRows(output, 100000));
  ASSERT_TRUE(output.Finish());
  EXPECT_EQ(Delivered().substr(0, 9), Header(0, 100000));
  EXPECT_EQ(log.CountLevel(5), 0);
}

TEST_F(OSQueryOutputTest, RowJustBelowTheSizeLimitIsTaken) {
  AddRowOf(65534);
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  EXPECT_EQ(output.committed_size, 9U + 4U + 65534U);
  ASSERT_TRUE(output.Finish());
  const auto rows = RowsOf(Delivered());
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].proc_fpath(), std::string(65530, 'x'));
  EXPECT_EQ(log.CountLevel(5), 0);
}

TEST_F(OSQueryOutputTest, RowAtTheSizeLimitIsAnError) {
  AddRowOf(65535);
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  EXPECT_FALSE(output.WriteRow(FullRecord()));
  EXPECT_EQ(output.error, kRowNotEncoded);
  EXPECT_EQ(output.message_count, 0U);
  EXPECT_EQ(output.committed_size, 9U);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.RowTooLarge"});
  EXPECT_EQ(log.Arguments("osquery.RowTooLarge"), std::vector<std::string>{"65535"});
  ASSERT_TRUE(output.Finish());
  EXPECT_EQ(Delivered(), Header(3, 0));
}

// 9 bytes, 524 rows of 1000 bytes with their lengths, and one more row.
class OSQueryCeilingTest : public OSQueryOutputTest {
 protected:
  static constexpr u32 kFullRows = 524;
  static constexpr u32 kRow = 996;

  // A result of the least ceiling to which only a last row of `lastRow` bytes is missing.
  void Fill(OSQueryOutput& output, u32 lastRow) {
    AddRowOf(kRow);
    ASSERT_TRUE(output.Init(kLimit));
    ASSERT_TRUE(WriteRows(output, kFullRows));
    selectors.Empty();
    AddRowOf(lastRow);
  }
  // What is left behind the full rows, less the length of the last one.
  static constexpr u32 kLast = kLimit - 9 - kFullRows * (kRow + 4) - 4;
};

TEST_F(OSQueryCeilingTest, ResultThatFillsTheCeilingIsWhole) {
  OSQueryOutput output(&external, &selectors, kManyRows);
  Fill(output, kLast);
  EXPECT_TRUE(output.WriteRow(FullRecord()));
  EXPECT_EQ(output.committed_size, kLimit);
  EXPECT_EQ(log.CountLevel(5), 0);
  ASSERT_TRUE(output.Finish());
  const std::string result = Delivered();
  EXPECT_EQ(result.size(), kLimit);
  EXPECT_EQ(result.substr(0, 9), Header(0, kFullRows + 1));
  EXPECT_EQ(RowsOf(result).size(), kFullRows + 1);
}

TEST_F(OSQueryCeilingTest, OneByteBeyondTheCeilingIsAnError) {
  OSQueryOutput output(&external, &selectors, kManyRows);
  Fill(output, kLast + 1);
  EXPECT_FALSE(output.WriteRow(FullRecord()));
  EXPECT_EQ(output.error, kBufferFull);
  EXPECT_EQ(output.message_count, kFullRows);
  EXPECT_EQ(output.committed_size, 9 + kFullRows * (kRow + 4));
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.BufferFull"});
  EXPECT_EQ(log.Arguments("osquery.BufferFull"),
            (std::vector<std::string>{std::to_string(output.committed_size), std::to_string(kLast + 1 + 4)}));
  ASSERT_TRUE(output.Finish());
  EXPECT_EQ(Delivered(), Header(2, 0));
}

TEST_F(OSQueryCeilingTest, LargerCeilingLetsTheBufferGrow) {
  AddRowOf(kRow);
  OSQueryOutput output(&external, &selectors, kManyRows);
  ASSERT_TRUE(output.Init(kLimit + 1000000));
  EXPECT_TRUE(WriteRows(output, 1500));
  ASSERT_TRUE(output.Finish());
  EXPECT_EQ(Delivered().size(), 9U + 1500U * 1000U);
}

// 512 KiB at the start, and as much more each time that it is full.
TEST_F(OSQueryCeilingTest, BufferGrowsInSteps) {
  AddRowOf(kRow);
  OSQueryOutput output(&external, &selectors, kManyRows);
  const u64 before = Velmar::Sim::CountAllocations();
  ASSERT_TRUE(output.Init(16 * kLimit));
  EXPECT_EQ(Velmar::Sim::CountAllocations() - before, 1U);
  for (u64 taken = 1; taken < 5; ++taken) {
    while (output.committed_size + kRow + 4 <= taken * kLimit) {
      ASSERT_TRUE(output.WriteRow(FullRecord()));
    }
    EXPECT_EQ(Velmar::Sim::CountAllocations() - before, taken);
    ASSERT_TRUE(output.WriteRow(FullRecord()));
    EXPECT_EQ(Velmar::Sim::CountAllocations() - before, taken + 1);
  }
}

TEST_F(OSQueryCeilingTest, NoMemoryToGrowIsAFullBuffer) {
  AddRowOf(kRow);
  OSQueryOutput output(&external, &selectors, kManyRows);
  ASSERT_TRUE(output.Init(4 * kLimit));
  ASSERT_TRUE(WriteRows(output, kFullRows));
  Velmar::Sim::FailAllocation(0);
  EXPECT_FALSE(output.WriteRow(FullRecord()));
  EXPECT_EQ(output.error, kBufferFull);
  EXPECT_EQ(output.message_count, kFullRows);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.BufferFull"});
}

TEST_F(OSQueryOutputTest, EmptySelectorIsABadCall) {
  ASSERT_TRUE(AddSelector("port", selectors));
  ASSERT_TRUE(selectors.Add(Selector()));
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  EXPECT_THROW(output.WriteRow(FullRecord()), std::bad_function_call);
  EXPECT_EQ(output.message_count, 0U);
  EXPECT_EQ(output.committed_size, 9U);
}

TEST_F(OSQueryOutputTest, RowWithoutMemoryIsAnError) {
  ASSERT_TRUE(AddSelector("port", selectors));
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  selectors.Empty();
  ASSERT_TRUE(selectors.Add(Selector([](const QueryRecord&, edr_netdb&) { throw std::bad_alloc(); })));
  EXPECT_FALSE(output.WriteRow(FullRecord()));
  EXPECT_EQ(output.error, kRowNotEncoded);
  EXPECT_EQ(output.message_count, 1U);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.RowNotEncoded"});
  ASSERT_TRUE(output.Finish());
  EXPECT_EQ(Delivered(), Header(3, 0));
}

TEST_F(OSQueryOutputTest, EachErrorDropsTheRowsOfTheBinaryResult) {
  ASSERT_TRUE(AddSelector("port", selectors));
  for (const u32 code : {kRowLimit, kBufferFull, kRowNotEncoded, kBadQuery, kInternalFailure}) {
    external.results.clear();
    OSQueryOutput output(&external, &selectors, 7);
    ASSERT_TRUE(output.Init(kLimit));
    ASSERT_TRUE(WriteRows(output, 3));
    output.error = code;
    ASSERT_TRUE(output.Finish());
    EXPECT_EQ(Delivered(), Header(code, 0));
  }
}

TEST_F(OSQueryOutputTest, TargetThatRefusesIsAnError) {
  external.takes = false;
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  EXPECT_FALSE(output.Finish());
  EXPECT_EQ(Delivered(), Header(0, 0));
  EXPECT_EQ(log.Lines(1), (std::vector<std::string>{"1 osquery.ResultComplete", "5 osquery.ResultNotTaken"}));
  EXPECT_EQ(log.Arguments("osquery.ResultNotTaken"), std::vector<std::string>{"9"});
}

TEST_F(OSQueryOutputTest, OutputWithoutTargetCannotFinish) {
  OSQueryOutput output(nullptr, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  EXPECT_FALSE(output.Finish());
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 osquery.ResultNotTaken"});
}

TEST_F(OSQueryOutputTest, MessagesAreFoundOneAfterAnother) {
  ASSERT_TRUE(AddSelector("port", selectors));
  OSQueryOutput output(&external, &selectors, 7);
  u32 offset = 0;
  const u8* message = nullptr;
  u32 size = 77;
  EXPECT_FALSE(output.NextMessage(offset, message, size)) << "no buffer";
  ASSERT_TRUE(output.Init(kLimit));
  EXPECT_FALSE(output.NextMessage(offset, message, size)) << "no rows";
  EXPECT_EQ(offset, 0U);
  EXPECT_EQ(message, nullptr);
  EXPECT_EQ(size, 77U);
  for (const u16 port : {u16{80}, u16{0}, u16{443}}) {
    QueryRecord record = {};
    record.port = port;
    ASSERT_TRUE(output.WriteRow(record));
  }
  std::vector<std::string> messages;
  while (output.NextMessage(offset, message, size)) {
    messages.emplace_back(reinterpret_cast<const char*>(message), size);
  }
  EXPECT_EQ(messages, (std::vector<std::string>{"\x20\x50", "", "\x20\xBB\x03"}));
  EXPECT_EQ(offset, output.committed_size);
}

// An offset that no call gave reads some length of its own; nothing beyond the rows is touched.
TEST_F(OSQueryOutputTest, WrongOffsetStaysInsideTheBuffer) {
  ASSERT_TRUE(AddAllSelectors(selectors));
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(kLimit));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  const u8* first = nullptr;
  u32 firstSize = 0;
  u32 offset = 0;
  ASSERT_TRUE(output.NextMessage(offset, first, firstSize));
  for (u32 start = 0; start < output.committed_size + 8; ++start) {
    offset = start;
    const u8* message = nullptr;
    u32 size = 0;
    if (output.NextMessage(offset, message, size)) {
      EXPECT_GE(message, first);
      EXPECT_LE(message + size, first + firstSize);
      EXPECT_LE(offset, output.committed_size);
    }
  }
  offset = ~0U;
  EXPECT_FALSE(output.NextMessage(offset, first, firstSize));
}

TEST_F(OSQueryOutputTest, DroppedRowsAreNotFound) {
  ASSERT_TRUE(AddSelector("port", selectors));
  OSQueryOutput output(&external, &selectors, 1);
  ASSERT_TRUE(output.Init(kLimit));
  EXPECT_FALSE(WriteRows(output, 2));
  ASSERT_TRUE(output.Finish());
  u32 offset = 0;
  const u8* message = nullptr;
  u32 size = 0;
  EXPECT_FALSE(output.NextMessage(offset, message, size));
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
