// libprotobuf takes its memory from operator new, which this program replaces to make it fail once, at each place.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "osquery/osquery/RowLibrary.h"
#include "platform/sim/Sim.h"
#include "tests/osquery/FailingNew.h"
#include "tests/osquery/Records.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB::OSQuery {
namespace {

// Runs `step` with allocation `number` failing. True when there was one of that number.
bool FailOnce(u64 number, const std::function<void()>& step) {
  FailNew(number);
  step();
  return EndFailNew();
}

class LibraryMemoryTest : public ::testing::Test {
 protected:
  LibraryMemoryTest() { Velmar::Sim::Reset(); }

  FakeExternalData external;
  SelectorArray selectors;
};

// The library's tables are made once in a process, so each attempt has one of its own. False when there was no
// allocation of that number.
bool AttemptFails(u64 number, bool (*attempt)()) {
  const pid_t child = fork();
  if (child == 0) {
    LogCapture log;
    bool first = true;
    const bool failed = FailOnce(number, [&] { first = attempt(); });
    // Nothing comes of asking again, and the end of the module does no harm.
    const bool second = attempt();
    EndRowLibrary();
    const bool asSaid = failed ? (first == second && (first || log.CountLevel(5) > 0)) : first && second;
    _exit(!asSaid ? 1 : (failed ? 2 : 3));
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_NE(WEXITSTATUS(status), 1);
  return WIFEXITED(status) && WEXITSTATUS(status) == 2;
}

bool CreateAll() {
  SelectorArray selectors;
  return CreateSelectors(selectors) && AddAllSelectors(selectors) && selectors.count == 15;
}

TEST(LibraryMemory, EachFailedAllocationOfTheFieldsIsSurvived) {
  u64 number = 0;
  while (AttemptFails(number, &CreateAll)) {
    ++number;
  }
  EXPECT_GT(number, 100U);
}

// One in seven of nearly two thousand.
TEST(LibraryMemory, FailedAllocationsOfTheRendererAreSurvived) {
  ASSERT_TRUE(CreateAll());
  u64 number = 0;
  while (AttemptFails(number, &CanRenderRows)) {
    number += 7;
  }
  EXPECT_GT(number, 1000U);
}

// A row with each column, whose texts are too long for a string's own area.
TEST_F(LibraryMemoryTest, EachFailedAllocationOfARowEndsTheResult) {
  ASSERT_TRUE(CreateSelectors(selectors));
  ASSERT_TRUE(AddAllSelectors(selectors));
  QueryRecord record = FullRecord();
  SetPath(record, std::string(511, '\xFF'));
  u64 failures = 0;
  for (u64 number = 0;; ++number) {
    SCOPED_TRACE(number);
    OSQueryOutput output(&external, &selectors, 7);
    ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
    ASSERT_TRUE(output.WriteRow(FullRecord()));
    const u32 before = output.committed_size;
    bool written = true;
    if (!FailOnce(number, [&] { written = output.WriteRow(record); })) {
      EXPECT_TRUE(written);
      break;
    }
    ++failures;
    EXPECT_FALSE(written);
    EXPECT_EQ(output.error, kRowNotEncoded);
    EXPECT_EQ(output.message_count, 1U);
    EXPECT_EQ(output.committed_size, before);
    // The same output goes on as before.
    EXPECT_TRUE(output.WriteRow(record));
  }
  EXPECT_GT(failures, 3U);
}

TEST_F(LibraryMemoryTest, RowWithoutMemoryIsRecorded) {
  ASSERT_TRUE(CreateSelectors(selectors));
  ASSERT_TRUE(AddSelector("proc_md5", selectors));
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  LogCapture log;
  bool written = true;
  EXPECT_TRUE(FailOnce(0, [&] { written = output.WriteRow(FullRecord()); }));
  EXPECT_FALSE(written);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.RowNotEncoded"});
}

// The output's own block has room for a row, whose short texts stand in themselves.
TEST_F(LibraryMemoryTest, RowWithoutLongTextsTakesNoMemory) {
  ASSERT_TRUE(CreateSelectors(selectors));
  for (const char* column : {"ip", "first_seen", "last_seen", "port", "protos", "conns_total", "conns_in", "conns_out",
                             "bytes_in", "bytes_out", "proc_fpath", "proc_puid", "proc_pid"}) {
    ASSERT_TRUE(AddSelector(column, selectors));
  }
  OSQueryOutput output(&external, &selectors, 7);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  const u64 before = Velmar::Sim::CountAllocations();
  for (u32 rows = 1; rows < 4; ++rows) {
    EXPECT_FALSE(FailOnce(0, [&] { EXPECT_TRUE(output.WriteRow(FullRecord())); }));
    EXPECT_EQ(output.message_count, rows);
  }
  EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
}

// Two rows as JSON, with each allocation failing once.
void RenderWithoutMemory(const SelectorArray& selectors) {
  OSQueryOutput output(nullptr, &selectors, 7);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  ASSERT_TRUE(CanRenderRows());
  u64 failures = 0;
  Velmar::Utils::String text;
  for (u64 number = 0;; ++number) {
    SCOPED_TRACE(number);
    bool written = true;
    if (!FailOnce(number, [&] { written = output.ToJson(text); })) {
      EXPECT_TRUE(written);
      break;
    }
    ++failures;
    EXPECT_FALSE(written);
    EXPECT_EQ(text.length, 0);
  }
  EXPECT_GT(failures, 10U);
  EXPECT_EQ(text.GetChar(-1), '}');
}

// In a process of its own that ends at once: the library loses some of its own objects when it finds no memory.
TEST_F(LibraryMemoryTest, EachFailedAllocationOfTheTextIsAFailure) {
  ASSERT_TRUE(CreateSelectors(selectors));
  ASSERT_TRUE(AddAllSelectors(selectors));
  EXPECT_EXIT(
      {
        RenderWithoutMemory(selectors);
        _exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "^$");
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
