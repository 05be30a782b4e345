// Process and ProcessRecord: emptiness, order, copies and stored form.
#include "common/netdb_storage/Process.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>

#include "platform/sim/Sim.h"
#include "tests/netdb_storage/Tables.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;

constexpr char kLongPath[] = "/a/path/that/is/long/enough/to/need/memory/of/its/own/whatever/a/string/keeps/inside";

// One change for each of the five fields.
const std::function<void(Process&)> kChanges[] = {
    [](Process& process) { process.proc_fpath.Set("/bin/a"); },
    [](Process& process) { process.proc_md5[15] = 1; },
    [](Process& process) { process.proc_qid[31] = 1; },
    [](Process& process) { process.proc_pid = 0; },
    [](Process& process) { process.proc_puid = 1; },
};

TEST(Process, NewOneIsEmptyAndAnyFieldEndsThat) {
  const Process process;
  EXPECT_TRUE(process.IsEmpty());
  EXPECT_EQ(process.proc_pid, -1);
  EXPECT_EQ(process.proc_puid, 0U);
  for (const auto& change : kChanges) {
    Process changed;
    change(changed);
    EXPECT_FALSE(changed.IsEmpty());
    changed.Clear();
    EXPECT_TRUE(changed.IsEmpty());
  }
}

TEST(Process, EqualMeansAllFiveFields) {
  EXPECT_TRUE(MakeProcess("/bin/a") == MakeProcess("/bin/a"));
  for (const auto& change : kChanges) {
    Process changed;
    change(changed);
    EXPECT_FALSE(changed == Process());
    EXPECT_NE(changed.Compare(Process()), 0);
  }
  EXPECT_FALSE(MakeProcess("/bin/A") == MakeProcess("/bin/a")) << "case counts";
}

// Each lower one differs from its upper one in one key and is above it in all later ones.
TEST(Process, OrderIsLexicographicInItsKeys) {
  struct Pair {
    Process lower;
    Process upper;
  };
  Pair pairs[6];
  pairs[0].lower.proc_fpath.Set("/bin/a");
  pairs[0].upper.proc_fpath.Set("/bin/b");
  pairs[0].lower.proc_md5[7] = 9;
  pairs[1].lower.proc_md5[0] = 0xFF;
  pairs[1].upper.proc_md5[7] = 1;  // the highest byte of the first word
  pairs[1].lower.proc_md5[15] = 0xFF;
  pairs[2].lower.proc_qid[0] = 0xFF;
  pairs[2].upper.proc_qid[1] = 1;
  pairs[2].lower.proc_qid[31] = 0xFF;
  pairs[3].upper.proc_qid[24] = 1;
  pairs[3].lower.proc_pid = 100;
  pairs[4].lower.proc_pid = -5;
  pairs[4].upper.proc_pid = 5;
  pairs[4].lower.proc_puid = 100;
  pairs[5].lower.proc_puid = 1;
  pairs[5].upper.proc_puid = std::numeric_limits<u64>::max();
  for (const Pair& pair : pairs) {
    EXPECT_TRUE(pair.lower < pair.upper) << &pair - pairs;
    EXPECT_FALSE(pair.upper < pair.lower) << &pair - pairs;
    EXPECT_GT(pair.upper.Compare(pair.lower), 0) << &pair - pairs;
    EXPECT_FALSE(pair.lower < pair.lower);
  }
}

TEST(Process, CopyTakesAllFields) {
  const Process process = MakeProcess(kLongPath, 7);
  Process copy;
  ASSERT_TRUE(copy.CopyFrom(process));
  EXPECT_TRUE(copy == process);
  ASSERT_TRUE(copy.CopyFrom(copy));
  EXPECT_TRUE(copy == process) << "onto itself";
}

TEST(Process, CopyWithoutMemoryLeavesItEmpty) {
  const Process process = MakeProcess(kLongPath, 7);
  Process copy = MakeProcess("/bin/a", 3);
  Velmar::Sim::FailAllocation(0);
  EXPECT_FALSE(copy.CopyFrom(process));
  EXPECT_TRUE(copy.IsEmpty());
  EXPECT_TRUE(copy.CopyFrom(process));
  EXPECT_TRUE(copy == process);
}

ProcessRecord MakeRecord() {
  ProcessRecord record;
  EXPECT_TRUE(record.Process::CopyFrom(MakeProcess("/bin/sh", -2)));
  for (u8 i = 0; i < 16; ++i) {
    record.proc_md5[i] = static_cast<u8>(0x10 + i);
  }
  for (u8 i = 0; i < 32; ++i) {
    record.proc_qid[i] = static_cast<u8>(0x40 + i);
  }
  record.proc_puid = 0x0807060504030201;
  record.ref_count = 0x01020304;
  return record;
}

TEST(ProcessRecord, StoredFormIsTextDigestsAndWords) {
  const ProcessRecord record = MakeRecord();
  Value out;
  ASSERT_TRUE(record.Serialize(*out));
  EXPECT_EQ(out->size, record.GetSerializedSize());
  std::vector<u8> expected = {7, 0, 0, 0, '/', 'b', 'i', 'n', '/', 's', 'h'};
  expected.insert(expected.end(), record.proc_md5, record.proc_md5 + 16);
  expected.insert(expected.end(), record.proc_qid, record.proc_qid + 32);
  const std::vector<u8> words = {1, 2, 3, 4, 5, 6, 7, 8, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 4, 3, 2, 1};
  expected.insert(expected.end(), words.begin(), words.end());
  EXPECT_EQ(Bytes(*out), expected);

  StreamBuffer in(*out, 0, ~u64{0}, true);
  ProcessRecord read;
  ASSERT_TRUE(read.Deserialize(in));
  EXPECT_TRUE(read == record);
  EXPECT_EQ(read.ref_count, record.ref_count);
  EXPECT_EQ(in.Remaining(), 0U);
}

TEST(ProcessRecord, EveryShortReadFails) {
  Value whole;
  ASSERT_TRUE(MakeRecord().Serialize(*whole));
  const std::vector<u8> bytes = Bytes(*whole);
  for (u32 length = 0; length < bytes.size(); ++length) {
    LogCapture log;
    Value in;
    ASSERT_NE(in->PushBuffer(bytes.data(), length), kNone);
    StreamBuffer stream(*in, 0, ~u64{0}, true);
    ProcessRecord read;
    EXPECT_FALSE(read.Deserialize(stream)) << length;
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"5 netdb_storage.ProcessNotRead"}));
  }
}

TEST(ProcessRecord, EveryPushThatFindsNoRoomFails) {
  const ProcessRecord record = MakeRecord();
  u8 area[128];
  for (u32 room = 1; room < record.GetSerializedSize(); ++room) {
    LogCapture log;
    Buffer small(true);
    ASSERT_TRUE(small.CreateFromExistingBuffer(area, room, true, false, room, 1, false, GrowType::kFixedStep));
    EXPECT_FALSE(record.Serialize(small)) << room;
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"5 netdb_storage.ProcessNotWritten"}));
  }
}

TEST(ProcessRecord, CopyTakesTheReferencesToo) {
  const ProcessRecord record = MakeRecord();
  ProcessRecord copy;
  EXPECT_EQ(copy.ref_count, 0);
  ASSERT_TRUE(copy.CopyFrom(record));
  EXPECT_TRUE(copy == record);
  EXPECT_EQ(copy.ref_count, record.ref_count);
}

}  // namespace
