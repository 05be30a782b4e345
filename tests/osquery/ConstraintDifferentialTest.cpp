// Random conditions give the rows that a model works out, and lose none that their asker would keep.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>

#include "osquery/osquery/TableQuery.h"
#include "tests/netdb_storage/Folder.h"
#include "tests/osquery/ConstraintGenerator.h"
#include "tests/osquery/ConstraintModel.h"

namespace {

using namespace ConstraintTest;
using namespace StorageTest;
using NetDB::OSQuery::OSQueryOutput;
using NetDB::OSQuery::RunTableQuery;
using NetDB::OSQuery::SelectorArray;

constexpr u32 kSets = 2000;
constexpr u32 kDays = 4;
constexpr u32 kRowsADay = 60;
constexpr u32 kManyRows = 10000;

// RYL_CONSTRAINT_SEED=n repeats the run that printed n.
u64 Seed() {
  const char* given = std::getenv("RYL_CONSTRAINT_SEED");
  return given == nullptr ? 1 : std::strtoull(given, nullptr, 0);
}

// Paths that differ in case alone, that are no UTF-8, that hold the characters of patterns, and none.
const char* const kPaths[] = {"/usr/bin/curl",
                              "/usr/bin/CURL",
                              "/Usr/Bin/Curl",
                              "/usr/bin/curl",
                              "C:\\Program Files\\a_b%c.exe",
                              "/opt/\xD0\xBA\xD0\xB0\xD1\x82/app",
                              "/opt/\xFF/app",
                              ""};

Process MadeProcess(u32 number) {
  Process process = MakeProcess(kPaths[number % std::size(kPaths)], 100 + number);
  process.proc_md5[0] = static_cast<u8>(number / 3);
  process.proc_qid[0] = static_cast<u8>(number / 2);
  process.proc_puid = number % 5 == 0 ? ~u64{0} - number : number;
  return process;
}

// Connections that last up to hours, a fifth of them without a process.
void FillDay(u64 day, std::mt19937_64& random) {
  DBManager manager;
  ASSERT_TRUE(manager.SetFolder(kFolder));
  for (u32 i = 0; i < kRowsADay; ++i) {
    const Process process = MadeProcess(static_cast<u32>(random() % 16));
    const bool hasProcess = random() % 5 != 0;
    const auto host = static_cast<u8>(random() % 12);
    BacklogMessage message = MakeMessage(day + random() % 86400, Address(198, 51, 100, host), static_cast<u16>(i));
    message.protocols = static_cast<u16>(1 << random() % 12);
    message.bytes_in = random() % 2000;
    message.bytes_out = random();
    ASSERT_TRUE(manager.Add(message, hasProcess ? &process : nullptr));
    message.timestamp = std::min(message.timestamp + random() % 20000, day + 86399);
    ASSERT_TRUE(manager.Add(message, hasProcess ? &process : nullptr));
  }
  ASSERT_TRUE(manager.Flush());
}

// The last day has a filtered file and a plain one.
void FillFolder() {
  std::mt19937_64 random(1);
  for (u32 i = 0; i < kDays; ++i) {
    FillDay(kDay + i * DBManager::kSecondsPerDay, random);
  }
  const u64 last = kDay + (kDays - 1) * DBManager::kSecondsPerDay;
  const std::string plain = Content(DayPath(last));
  ASSERT_TRUE(Sim::RemoveFile(DayPath(last)));
  FillDay(last, random);
  ASSERT_TRUE(DBManager::MarkFiltered(DayPath(last).c_str()));
  Sim::PutFile(DayPath(last), plain);
  ASSERT_EQ(Files().size(), kDays + 1);
}

struct Reply {
  u32 error = 0;
  std::vector<std::string> rows;  // sorted
};

Reply Ask(const std::string& columns, const std::string& constraints) {
  SelectorArray selectors;
  OSQueryOutput output(nullptr, &selectors, kManyRows);
  EXPECT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  RunTableQuery(kFolder, columns.c_str(), constraints.c_str(), selectors, output);
  Reply reply;
  reply.error = output.error;
  u32 offset = 0;
  const u8* message = nullptr;
  u32 size = 0;
  while (output.NextMessage(offset, message, size)) {
    edr_netdb row;
    EXPECT_TRUE(row.ParseFromArray(message, static_cast<int>(size)));
    reply.rows.push_back(row.SerializeAsString());
  }
  EXPECT_EQ(reply.rows.size(), output.message_count);
  std::sort(reply.rows.begin(), reply.rows.end());
  return reply;
}

// The row with the chosen columns alone.
std::string Selected(const edr_netdb& row, const std::vector<std::string>& chosen) {
  edr_netdb selected = row;
  const google::protobuf::Descriptor* const fields = edr_netdb::descriptor();
  for (int i = 0; i < fields->field_count() && !chosen.empty(); ++i) {
    if (std::find(chosen.begin(), chosen.end(), fields->field(i)->name()) == chosen.end()) {
      selected.GetReflection()->ClearField(&selected, fields->field(i));
    }
  }
  return selected.SerializeAsString();
}

// What the sets were good for.
struct Tally {
  u32 withRows = 0;
  u32 refused = 0;
  u32 impossible = 0;
  std::map<std::string, u32> lost;  // rows, by the reason

  void Print() const {
    std::printf("%u sets: %u with rows, %u refused, %u impossible\n", kSets, withRows, refused, impossible);
    for (const auto& [reason, rows] : lost) {
      std::printf("rows that only the asker would keep, %s: %u\n", reason.c_str(), rows);
    }
  }
};

class ConstraintDifferential : public FolderTest {
 protected:
  void SetUp() override {
    FillFolder();
    for (const QueryRecord& record : AllRows().records) {
      rows.push_back(MakeTableRow(record));
    }
    ASSERT_EQ(rows.size(), (kDays + 1) * kRowsADay);
  }

  void Check(const ConstraintSet& set, const std::string& columns, const std::vector<std::string>& chosen) {
    SCOPED_TRACE("columns '" + columns + "', constraints " + JsonOf(set));
    const Narrowing model(set);
    std::vector<std::string> wanted;
    for (const TableRow& row : rows) {
      if (model.Admits(row)) {
        wanted.push_back(Selected(row.shown, chosen));
      } else if (model.error == 0 && AskerKeeps(set, row)) {
        const char* const reason = model.ReasonToLose(row);
        ASSERT_NE(reason, nullptr) << "the asker would keep " << row.shown.ShortDebugString();
        ++tally.lost[reason];
      }
    }
    std::sort(wanted.begin(), wanted.end());
    const Reply reply = Ask(columns, JsonOf(set));
    ASSERT_EQ(reply.error, model.error);
    ASSERT_EQ(reply.rows.size(), wanted.size());
    ASSERT_TRUE(reply.rows == wanted) << "as many rows, but others";
    tally.withRows += wanted.empty() ? 0 : 1;
    tally.refused += model.error == 0 ? 0 : 1;
    tally.impossible += model.impossible ? 1 : 0;
  }

  std::vector<TableRow> rows;
  Tally tally;
};

TEST_F(ConstraintDifferential, RandomSetsGiveTheRowsOfTheModel) {
  std::printf("seed %llu\n", static_cast<unsigned long long>(Seed()));
  ConstraintGenerator generator(rows, Seed());
  for (u32 i = 0; i < kSets && !HasFatalFailure(); ++i) {
    std::vector<std::string> chosen;
    const std::string columns = generator.NextColumns(chosen);
    Check(generator.Next(), columns, chosen);
  }
  tally.Print();
  // Else the run showed little.
  EXPECT_GT(tally.withRows, kSets / 4);
  EXPECT_GT(tally.refused, kSets / 50);
  EXPECT_GT(tally.impossible, 0U);
  EXPECT_EQ(tally.lost.size(), 3U);
}

// What no set of the generator's is: a text that is none, or another document.
TEST_F(ConstraintDifferential, TextsThatAreNoConditionsAreRefused) {
  for (const char* text : {"", "{", "[1]", "1", R"({"ip":1})", R"({"ip":[]})", R"({"ip":{"affinity":1,"list":[]}})",
                           R"({"ip":{"affinity":"TEXT","list":{}}})"}) {
    const Reply reply = Ask("*", text);
    EXPECT_EQ(reply.error, kRefused) << text;
    EXPECT_TRUE(reply.rows.empty()) << text;
  }
}

}  // namespace
