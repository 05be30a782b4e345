#include "host/verify/FileVerifier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/host/DayFileBytes.h"
#include "tests/host/History.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Verify;
using StoreBytes::StoreFile;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr u64 kDay = DayFileBytes::kDay;
constexpr char kName[] = "1699920000.db";
using Texts = std::vector<std::string>;

VerifyReport Verified(const std::string& bytes, const std::string& name = kName) {
  Inspect::MemoryBytes source(reinterpret_cast<const u8*>(bytes.data()), bytes.size());
  return VerifyDayFile(source, name);
}

Texts TextsOf(const VerifyReport& report) {
  Texts texts;
  for (const Inspect::Problem& problem : report.problems) {
    texts.push_back(std::to_string(problem.position) + ": " + problem.text);
  }
  return texts;
}

Texts ProblemsOf(const std::string& bytes, const std::string& name = kName) {
  return TextsOf(Verified(bytes, name));
}

Texts ProblemsOf(const DayFileBytes& day) {
  return ProblemsOf(day.Bytes());
}

// Of a file with these values.
Texts ProblemsOfEntries(const std::vector<std::pair<std::string, std::string>>& entries) {
  const DayFileBytes day;
  return ProblemsOf(day.Seal(day.ToStore(entries)));
}

// The positions of the process table's page, of the address table's and of the index.
std::vector<std::size_t> BlocksOf(const std::string& bytes) {
  std::vector<std::size_t> positions = {56};
  while (positions.back() < StoreBytes::WordAt(bytes, 24)) {
    positions.push_back(positions.back() + 16 + StoreBytes::WordAt(bytes, positions.back() + 4));
  }
  return positions;
}

std::string At(std::size_t position, const std::string& text) {
  return std::to_string(position) + ": " + text;
}

std::string AtAddresses(const DayFileBytes& day, const std::string& text) {
  return At(BlocksOf(day.Bytes())[1], "table \"4\", " + text);
}

void PutWord(std::string& bytes, std::size_t at, u32 value) {
  bytes.replace(at, 4, StoreBytes::Word(value));
}

TEST(VerifyDayFile, WholeFileIsGoodAndCounted) {
  DayFileBytes day;
  day.filterStamp = kDay + 100000;
  const std::string bytes = day.Bytes();
  const VerifyReport report = Verified(bytes, "1699920000.db.f");
  EXPECT_THAT(TextsOf(report), IsEmpty());
  EXPECT_TRUE(report.IsGood());
  EXPECT_THAT(report.notes, IsEmpty());
  EXPECT_EQ(report.name, "1699920000.db.f");
  EXPECT_EQ(report.size, bytes.size());
  EXPECT_EQ(report.day, kDay);
  EXPECT_EQ(report.filterStamp, kDay + 100000);
  EXPECT_EQ(report.entries, 2U);
  EXPECT_EQ(report.rows, 4U);
  EXPECT_EQ(report.processes, 2U);
}

TEST(VerifyDayFile, FileThatTheStorageWroteIsGood) {
  const TemporaryFolder folder;
  std::vector<HistoryRow> rows;
  for (u64 i = 0; i < 200; ++i) {
    rows.push_back({kDay + i, static_cast<u8>(i), kDay + 2 * i, i % 3 == 0 ? "" : "/bin/" + std::to_string(i % 7)});
  }
  PutHistory(folder.Path(), rows);
  const VerifyReport report = Verified(TemporaryFolder::Get(folder.Path("netdb/1699920000.db")));
  EXPECT_THAT(TextsOf(report), IsEmpty());
  EXPECT_EQ(report.rows, 200U);
  EXPECT_EQ(report.processes, 7U);
}

TEST(VerifyDayFile, StoreWithoutEntriesIsGood) {
  const DayFileBytes day;
  StoreFile file = day.ToStore({});
  EXPECT_THAT(ProblemsOf(day.Seal(file)), IsEmpty());  // with an index of nothing
  file.hasIndex = false;
  EXPECT_THAT(ProblemsOf(day.Seal(file)), IsEmpty());
}

TEST(VerifyDayFile, EntriesInOnePageAndInAnotherOrderAreGood) {
  const DayFileBytes day;
  StoreFile file = day.ToStore({{"4", day.AddressTable()}, {"p", day.ProcessTable()}});
  EXPECT_THAT(ProblemsOf(day.Seal(file)), IsEmpty());
  file.pages = {file.pages[0] + file.pages[1]};
  EXPECT_THAT(ProblemsOf(day.Seal(file)), IsEmpty());
}

TEST(VerifyDayFile, TableOfTheOldVersionIsGood) {
  const DayFileBytes day;
  std::string table = day.AddressTable();
  table.erase(6, 8);
  table[0] = 0;
  EXPECT_THAT(ProblemsOfEntries({{"p", day.ProcessTable()}, {"4", table}}), IsEmpty());
}

// All bytes of a day file are under one of its checksums, or are one: none is irrelevant.
TEST(VerifyDayFile, EachByteThatIsFlippedIsWrong) {
  const std::string good = DayFileBytes().Bytes();
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (const int change : {0x01, 0x80, 0xFF}) {
      std::string flipped = good;
      flipped[at] = static_cast<char>(flipped[at] ^ change);
      EXPECT_FALSE(Verified(flipped).IsGood()) << "byte " << at << " changed by " << change;
    }
  }
}

TEST(VerifyDayFile, EachLengthThatIsCutIsWrong) {
  const std::string good = DayFileBytes().Bytes();
  for (std::size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(Verified(good.substr(0, size)).IsGood()) << size << " bytes";
  }
  EXPECT_THAT(ProblemsOf(good + "x"), ElementsAre(At(good.size(), "there are bytes behind the index")));
}

TEST(VerifyDayFile, HeaderThatIsNotADayFilesIsWrong) {
  const DayFileBytes day;
  std::string bytes = day.Bytes();
  PutWord(bytes, 0, 0);
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre("0: the header was never finished: the save was cut short"));
  bytes = day.Bytes();
  bytes[12] = 9;
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre("36: the header's CRC is wrong"));
  StoreFile file = day.ToStore();
  file.formatVersion = 3;
  EXPECT_THAT(ProblemsOf(day.Seal(file)), ElementsAre("4: format version 3 is not known"));
  file = day.ToStore();
  file.dataVersion = 2;
  EXPECT_THAT(ProblemsOf(day.Seal(file)), ElementsAre("8: the data version is 2, and 1 in a day file"));
  file = day.ToStore();
  file.entryCount = 3;
  EXPECT_THAT(ProblemsOf(day.Seal(file)), ElementsAre("12: the header promises 3 entries and the pages hold 2"));
  file = day.ToStore();
  file.fileFlags = 6 + 8;
  EXPECT_THAT(ProblemsOf(day.Seal(file)), ElementsAre("16: the flags word is 14, and 6 in a day file"));
  file = day.ToStore();
  file.keyEntrySize = 4;
  EXPECT_THAT(ProblemsOf(day.Seal(file)), ElementsAre("20: the size of a key is 4, and 0 in a day file"));
  file = day.ToStore();
  file.blob += std::string(8, '\0');
  EXPECT_THAT(ProblemsOf(day.Seal(file)), ElementsAre("28: the size of the blob is 24, and 16 in a day file"));
  bytes = day.Bytes();
  PutWord(bytes, 24, 0x7FFFFFFF);
  StoreBytes::SealHeader(bytes);
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre("24: the index would lie outside the file"));
}

TEST(VerifyDayFile, OldFormatIsWrong) {
  std::string old = DayFileBytes().Bytes().substr(0, 32);
  PutWord(old, 4, 1);
  old += StoreBytes::Word(StoreBytes::Crc32(old));
  EXPECT_THAT(ProblemsOf(old), ElementsAre("4: an old format, whose content is not read"));
}

TEST(VerifyDayFile, BlobThatDoesNotMatchItsChecksumIsWrong) {
  std::string bytes = DayFileBytes().Bytes();
  bytes[48] = 1;
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre("40: the binder blob's CRC is wrong"));
  PutWord(bytes, 32, 0);
  StoreBytes::SealHeader(bytes);
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre("32: the blob has no CRC"));
}

TEST(VerifyDayFile, NameOfAnotherDayIsWrong) {
  const std::string bytes = DayFileBytes().Bytes();
  EXPECT_THAT(ProblemsOf(bytes, "1700006400.db"),
              ElementsAre("40: the file holds day 1699920000 and its name says 1700006400"));
  EXPECT_THAT(ProblemsOf(bytes, "today.db"), ElementsAre("0: the name is no name of a day file"));
  EXPECT_THAT(ProblemsOf(bytes, "1699920000.DB"),
              ElementsAre("0: the name is read as a day file and is not one that the module writes or can delete"));
  EXPECT_THAT(ProblemsOf(bytes, "1699920000.temp.f"), testing::SizeIs(1));
}

TEST(VerifyDayFile, NameThatIsNoFirstSecondOfADayIsWrong) {
  DayFileBytes day;
  day.day = kDay + 1;
  EXPECT_THAT(ProblemsOf(day.Bytes(), "1699920001.db"),
              ElementsAre("0: the number in the name is no first second of a day"));
}

TEST(VerifyDayFile, DayThatNoQueryFindsIsNoted) {
  DayFileBytes day;
  day.day = 999993600;
  const VerifyReport report = Verified(day.Bytes(), "999993600.db");
  EXPECT_THAT(TextsOf(report), IsEmpty());
  EXPECT_THAT(report.notes, ElementsAre("no query finds a day before 2001-09-10"));
}

TEST(VerifyDayFile, FilteredNameWithoutAStampIsNoted) {
  const VerifyReport report = Verified(DayFileBytes().Bytes(), "1699920000.db.f");
  EXPECT_TRUE(report.IsGood());
  EXPECT_THAT(report.notes,
              ElementsAre("named as filtered, and says that no harmless address was ever removed from it"));
}

TEST(VerifyDayFile, DamagedBlocksAreToldByTheirPosition) {
  const std::string good = DayFileBytes().Bytes();
  const std::vector<std::size_t> blocks = BlocksOf(good);
  ASSERT_EQ(blocks.size(), 3U);
  std::string bytes = good;
  bytes[blocks[1] + 20] = static_cast<char>(bytes[blocks[1] + 20] ^ 1);
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre(At(blocks[1], "page: the block's CRC is wrong")));
  bytes = good;
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre(At(blocks[2], "index: the block's CRC is wrong")));
  bytes = good;
  PutWord(bytes, blocks[1] + 12, 26214401);
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre(At(blocks[1], "page: a size in the block's header is above 26214400")));
  bytes = good;
  PutWord(bytes, blocks[1] + 4, StoreBytes::WordAt(bytes, blocks[1] + 4) + 5);
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre(At(blocks[1], "page: the block would end 5 bytes too late")));
}

TEST(VerifyDayFile, BlockThatDoesNotInflateIsWrong) {
  const DayFileBytes day;
  std::string bytes = day.Bytes();
  const std::size_t page = BlocksOf(bytes)[0];
  const std::size_t end = BlocksOf(bytes)[1];
  bytes[page + 16] = static_cast<char>(bytes[page + 16] ^ 1);
  PutWord(bytes, page, StoreBytes::Crc32(bytes.substr(page + 4, end - page - 4)));
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre(HasSubstr("56: page: the block does not inflate to its ")));
  bytes = day.Bytes();
  PutWord(bytes, page + 12, StoreBytes::WordAt(bytes, page + 12) + 1);
  PutWord(bytes, page, StoreBytes::Crc32(bytes.substr(page + 4, end - page - 4)));
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre(HasSubstr("56: page: the block does not inflate to its ")));
}

TEST(VerifyDayFile, BlockThatCannotBeDecipheredIsWrong) {
  const DayFileBytes day;
  std::string bytes = day.Bytes();
  const std::size_t page = BlocksOf(bytes)[0];
  const std::size_t end = BlocksOf(bytes)[1];
  PutWord(bytes, page + 8, StoreBytes::WordAt(bytes, page + 8) - 1);
  PutWord(bytes, page, StoreBytes::Crc32(bytes.substr(page + 4, end - page - 4)));
  EXPECT_THAT(ProblemsOf(bytes), ElementsAre("56: page: the block cannot be deciphered"));
}

TEST(VerifyDayFile, KeysOtherThanTheTwoAreWrong) {
  const DayFileBytes day;
  const auto index = [&day](const std::vector<std::pair<std::string, std::string>>& entries) {
    return StoreBytes::WordAt(day.Seal(day.ToStore(entries)), 24);
  };
  std::vector<std::pair<std::string, std::string>> entries = {{"p", day.ProcessTable()}};
  EXPECT_THAT(ProblemsOfEntries(entries), ElementsAre(At(index(entries), "key \"4\", the address table, is missing")));
  entries = {{"4", day.AddressTable()}};
  EXPECT_THAT(ProblemsOfEntries(entries), ElementsAre(At(index(entries), "key \"p\", the process table, is missing")));
  entries = {{"p", day.ProcessTable()}, {"4", day.AddressTable()}, {"x\x01", ""}};
  EXPECT_THAT(ProblemsOfEntries(entries),
              ElementsAre(At(index(entries), "key \"x\\x01\" does not belong in a day file")));
  entries[2] = {"6", TableBytes<AddressBytes>({}, 0x40000, 0x10000400)};
  EXPECT_THAT(ProblemsOfEntries(entries), ElementsAre(At(index(entries), "key \"6\" does not belong in a day file")));
  entries[2] = {"p", day.ProcessTable()};
  EXPECT_THAT(ProblemsOfEntries(entries), ElementsAre(At(index(entries), "key \"p\" stands twice")));
}

TEST(VerifyDayFile, IndexThatDoesNotFitThePagesIsWrong) {
  const DayFileBytes day;
  StoreFile file = day.ToStore();
  file.index += StoreBytes::Counted("q");
  std::string bytes = day.Seal(file);
  EXPECT_THAT(ProblemsOf(bytes),
              ElementsAre(At(StoreBytes::WordAt(bytes, 24), "the index holds more keys than there are values")));
  file = day.ToStore();
  file.index.resize(5);
  bytes = day.Seal(file);
  EXPECT_THAT(ProblemsOf(bytes), Contains(At(StoreBytes::WordAt(bytes, 24), "the index has no key for value 2")));
}

TEST(VerifyDayFile, ValueThatDoesNotHaveItsLengthIsWrong) {
  const DayFileBytes day;
  StoreFile file = day.ToStore();
  file.pages[0] = StoreBytes::Counted(StoreBytes::Counted(day.ProcessTable()) + "xy");
  EXPECT_THAT(ProblemsOf(day.Seal(file)), ElementsAre("56: value of key \"p\" does not have the length that it says"));
  file.pages[0] = StoreBytes::Counted("xyz");
  EXPECT_THAT(ProblemsOf(day.Seal(file)), ElementsAre("56: value of key \"p\" is too short"));
}

TEST(VerifyDayFile, TableWhoseFormIsBrokenIsWrong) {
  const DayFileBytes day;
  const std::string good = day.ProcessTable();
  std::string table = good;
  table[0] = 2;
  EXPECT_THAT(ProblemsOfEntries({{"p", table}, {"4", day.AddressTable()}}),
              ElementsAre("56: table \"p\" has the unknown version 2"));
  EXPECT_THAT(ProblemsOfEntries({{"p", good.substr(0, 13)}, {"4", day.AddressTable()}}),
              ElementsAre("56: table \"p\" ends inside its header"));
  EXPECT_THAT(ProblemsOfEntries({{"p", good.substr(0, good.size() - 1)}, {"4", day.AddressTable()}}),
              ElementsAre("56: table \"p\" says 3 rows and ends inside row 2"));
  EXPECT_THAT(ProblemsOfEntries({{"p", good + "xy"}, {"4", day.AddressTable()}}),
              ElementsAre("56: table \"p\" has 2 bytes behind its last row"));
  table = good;
  table[2] = 4;
  EXPECT_THAT(ProblemsOfEntries({{"p", table}, {"4", day.AddressTable()}}),
              ElementsAre("56: table \"p\" says 4 rows and ends inside row 3"));
}

TEST(VerifyDayFile, CeilingAndFlagsThatAreNotTheModulesAreWrong) {
  const DayFileBytes day;
  EXPECT_THAT(ProblemsOfEntries({{"p", TableBytes(day.processes, 0x20001, 0x10000064)}, {"4", day.AddressTable()}}),
              ElementsAre("56: table \"p\" has the ceiling 131073, which should be 131072"));
  EXPECT_THAT(ProblemsOfEntries({{"p", TableBytes(day.processes, 0x20000, 0x10000000)}, {"4", day.AddressTable()}}),
              ElementsAre("56: table \"p\" has the flags 0x10000000, which should be 0x10000064"));
  DayFileBytes few;
  few.processes = {};
  few.addresses = {{1}};
  EXPECT_THAT(ProblemsOfEntries({{"4", TableBytes(few.addresses, 0x3FFFF, 0x10000401)}, {"p", few.ProcessTable()}}),
              ElementsAre("56: table \"4\" has the ceiling 262143, which should be 262144",
                          "56: table \"4\" has the flags 0x10000401, which should be 0x10000400"));
}

TEST(VerifyDayFile, MoreRowsThanTheCeilingAreWrong) {
  DayFileBytes day;
  day.addresses = {};
  day.processes.assign(0x20001, ProcessBytes::Free());
  EXPECT_THAT(ProblemsOf(day), Contains("56: table \"p\" has 131073 rows, more than the 131072 that the module keeps"));
}

TEST(VerifyDayFile, RowsOutOfOrderAreWrong) {
  const std::string text = ": not in ascending order of address, process and port";
  DayFileBytes day;
  day.addresses = {{1, 0}, {2, 0}, {1, 2}};
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 2" + text)));
  day.addresses = {{1, 2}, {1, 0}, {2, 0}};
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 1" + text)));
  day.addresses = {{1, 0, 443}, {1, 0, 442}, {2, 2}};
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 1" + text)));
  day.addresses = {{1}, {1, 0}, {1, 0, 80, 1, 2}, {2, 2}};  // no process comes last
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 1" + text), AtAddresses(day, "row 2" + text)));
}

TEST(VerifyDayFile, OrderOfAddressesIsThatOfUnsignedBytes) {
  DayFileBytes day;
  day.addresses = {{127, 0}, {128, 0, 0x7FFF}, {128, 0xFFFFFFFF, 0x7FFF}, {128, 0xFFFFFFFF, 0x8000}, {255, 2}};
  EXPECT_THAT(ProblemsOf(day), IsEmpty());
}

TEST(VerifyDayFile, RowThatStandsTwiceIsWrong) {
  DayFileBytes day;
  day.addresses = {{1, 0}, {1, 0}, {2, 2}};
  EXPECT_THAT(ProblemsOf(day),
              ElementsAre(AtAddresses(day, "row 1: the same address, process and port as the row before")));
}

TEST(VerifyDayFile, TimesThatCannotBeAreWrong) {
  DayFileBytes day;
  day.addresses[3].first = 201;
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 3: first seen at second 201 and last at 200")));
  day.addresses[3].first = 0;
  day.addresses[3].last = 86399;
  EXPECT_THAT(ProblemsOf(day), IsEmpty());
  day.addresses[3].last = 86400;
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 3: seen at second 86400 of a day of 86400")));
  day.addresses[3].first = 0x1FFFF;
  day.addresses[3].last = 0x1FFFF;
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 3: seen at second 131071 of a day of 86400")));
}

TEST(VerifyDayFile, ProtocolsThatDoNotExistAreWrong) {
  DayFileBytes day;
  day.addresses[0].protocols = 0xFFF;
  EXPECT_THAT(ProblemsOf(day), IsEmpty());
  day.addresses[0].protocols = 0x1001;
  EXPECT_THAT(ProblemsOf(day),
              ElementsAre(AtAddresses(day, "row 0: protocols 0x1001, of which no more than 0xfff exist")));
}

TEST(VerifyDayFile, MoreConnectionsInOneDirectionThanInAllAreWrong) {
  DayFileBytes day;
  day.addresses[0].in = 1;
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 0: 1 connections in and 1 out of a total of 1")));
  day.addresses[0].in = 0xFFFFFFFF;
  day.addresses[0].total = 0xFFFFFFFF;  // that much or more
  EXPECT_THAT(ProblemsOf(day), IsEmpty());
}

TEST(VerifyDayFile, ProcessThatDoesNotExistIsWrong) {
  DayFileBytes day;
  day.addresses[3].process = 3;
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 3: process row 3 does not exist")));
  day.addresses[3].process = 1;
  EXPECT_THAT(ProblemsOf(day), ElementsAre(AtAddresses(day, "row 3: process row 1 is a free slot")));
}

TEST(VerifyDayFile, ReferenceCountsThatDoNotMatchAreWrong) {
  DayFileBytes day;
  day.processes[0].references = 3;
  day.processes[2].references = 0;
  EXPECT_THAT(ProblemsOf(day),
              ElementsAre("56: table \"p\", row 0: the reference count is 3 and the number of address rows 2",
                          "56: table \"p\", row 2: the reference count is 0 and the number of address rows 1"));
  day.processes[0].references = -2;
  EXPECT_THAT(ProblemsOf(day), Contains("56: table \"p\", row 0: the reference count is -2"));
}

// What a save between the making of a process and its first row leaves.
TEST(VerifyDayFile, ProcessWithoutRowsAndReferencesIsGood) {
  DayFileBytes day;
  day.processes.push_back({"/bin/c", 0});
  EXPECT_THAT(ProblemsOf(day), IsEmpty());
}

TEST(VerifyDayFile, FreeSlotsThatAreNotFreeAreWrong) {
  const std::string text = "56: table \"p\", row 1: a free slot that is not empty";
  for (const int field : {0, 1, 2, 3, 4}) {
    DayFileBytes day;
    ProcessBytes& slot = day.processes[1];
    slot.path = field == 0 ? "/bin/x" : "";
    slot.md5 = field == 1 ? 1 : 0;
    slot.qid = field == 2 ? 1 : 0;
    slot.uniqueId = field == 3 ? 1 : 0;
    slot.pid = field == 4 ? 0 : -1;
    EXPECT_THAT(ProblemsOf(day), ElementsAre(text)) << field;
  }
  DayFileBytes day;
  day.processes[1].references = 0;
  EXPECT_THAT(ProblemsOf(day), ElementsAre("56: table \"p\", row 1: an empty process that is no free slot"));
}

TEST(VerifyDayFile, ProcessThatStandsTwiceIsWrong) {
  DayFileBytes day;
  day.processes = {{"/bin/a", 2}, {"/bin/b", 1}, {"/bin/a", 0}, ProcessBytes::Free(), ProcessBytes::Free()};
  day.addresses = {{1, 0}, {1, 1}, {2, 0}};
  EXPECT_THAT(ProblemsOf(day), ElementsAre("56: table \"p\", row 2: the same process as row 0"));
  for (const int field : {1, 2, 3, 4}) {
    DayFileBytes other = day;
    ProcessBytes& process = other.processes[2];
    process.md5 = field == 1 ? 1 : 0;
    process.qid = field == 2 ? 1 : 0;
    process.uniqueId = field == 3 ? 2 : 1;
    process.pid = field == 4 ? 8 : 7;
    EXPECT_THAT(ProblemsOf(other), IsEmpty()) << field;
  }
}

TEST(VerifyDayFile, ManyProblemsOfATableAreCounted) {
  DayFileBytes day;
  day.processes = {};
  day.addresses.clear();
  for (u32 i = 0; i < 25; ++i) {
    day.addresses.push_back({static_cast<u8>(i), 0xFFFFFFFF, 443, 9, 8});
  }
  const Texts problems = ProblemsOf(day);
  ASSERT_EQ(problems.size(), kMaxListedRows + 1);
  EXPECT_EQ(problems[9], AtAddresses(day, "row 9: first seen at second 9 and last at 8"));
  EXPECT_EQ(problems[10], At(BlocksOf(day.Bytes())[1], "table \"4\": 15 more problems of rows"));
}

TEST(VerifyDayFile, ProblemsStandInTheOrderOfTheFile) {
  DayFileBytes day;
  day.processes[0].references = 7;
  day.addresses[0].first = 300;
  const VerifyReport report = Verified(day.Bytes() + "x", "1700006400.db");
  ASSERT_EQ(report.problems.size(), 4U);
  EXPECT_TRUE(std::is_sorted(report.problems.begin(), report.problems.end(),
                             [](const auto& a, const auto& b) { return a.position < b.position; }));
}

// A cache of verdicts: numeric keys, values of 17 bytes, no blob, not ciphered.
StoreFile VerdictStore(u32 count) {
  StoreFile file;
  file.fileFlags = 1;
  file.keyEntrySize = 4;
  file.hasIndex = true;
  file.entryCount = count;
  file.pages.emplace_back();
  for (u32 i = 0; i < count; ++i) {
    file.index += StoreBytes::Word(i * 7919);
    file.pages[0] += StoreBytes::CacheRecord(1700000000000, 172800000, i % 2 == 0);
  }
  return file;
}

VerifyReport VerifiedVerdicts(const std::string& bytes) {
  Inspect::MemoryBytes source(reinterpret_cast<const u8*>(bytes.data()), bytes.size());
  return VerifyVerdictFile(source, "cache.4.db");
}

TEST(VerifyVerdictFile, WholeCacheIsGood) {
  const VerifyReport report = VerifiedVerdicts(Build(VerdictStore(1500)));
  EXPECT_THAT(TextsOf(report), IsEmpty());
  EXPECT_EQ(report.entries, 1500U);
  EXPECT_EQ(report.day, std::nullopt);
  StoreFile empty = VerdictStore(0);
  empty.hasIndex = false;
  empty.pages.clear();
  EXPECT_THAT(TextsOf(VerifiedVerdicts(Build(empty))), IsEmpty());
}

TEST(VerifyVerdictFile, EachByteAndEachLengthCounts) {
  const std::string good = Build(VerdictStore(3));
  for (std::size_t at = 0; at < good.size(); ++at) {
    std::string flipped = good;
    flipped[at] = static_cast<char>(flipped[at] ^ 4);
    EXPECT_FALSE(VerifiedVerdicts(flipped).IsGood()) << "byte " << at;
    EXPECT_FALSE(VerifiedVerdicts(good.substr(0, at)).IsGood()) << at << " bytes";
  }
}

TEST(VerifyVerdictFile, AnotherKindOfStoreIsWrong) {
  EXPECT_THAT(TextsOf(VerifiedVerdicts(DayFileBytes().Bytes())),
              testing::IsSupersetOf({"16: the flags word is 6, and 1 in a verdict cache",
                                     "20: the size of a key is 0, and 4 in a verdict cache",
                                     "28: the size of the blob is 16, and 0 in a verdict cache"}));
}

TEST(VerifyVerdictFile, ValuesOfAnotherFormAreWrong) {
  StoreFile file = VerdictStore(2);
  file.pages[0] = StoreBytes::CacheRecord(1, 2, true) + StoreBytes::Counted(std::string(16, '\0'));
  EXPECT_THAT(TextsOf(VerifiedVerdicts(Build(file))),
              ElementsAre("40: entry 1 has 16 bytes, and 17 in a verdict cache"));
  file.pages[0] = StoreBytes::Counted(std::string(17, '\2')) + StoreBytes::CacheRecord(1, 2, true);
  EXPECT_THAT(TextsOf(VerifiedVerdicts(Build(file))), ElementsAre("40: entry 0 has a verdict that is neither 0 nor 1"));
}

TEST(VerifyVerdictFile, KeyThatStandsTwiceIsWrong) {
  StoreFile file = VerdictStore(3);
  file.index.replace(8, 4, file.index.substr(0, 4));
  std::string bytes = Build(file);
  EXPECT_THAT(TextsOf(VerifiedVerdicts(bytes)),
              ElementsAre(At(StoreBytes::WordAt(bytes, 24), "key \"00000000\" stands twice")));
  file = VerdictStore(1500);
  file.index.replace(4 * 1400, 4, file.index.substr(4 * 3, 4));
  bytes = Build(file);
  EXPECT_THAT(TextsOf(VerifiedVerdicts(bytes)),
              ElementsAre(At(StoreBytes::WordAt(bytes, 24), "entry 1400 has the key of entry 3")));
}

TEST(VerifyVerdictFile, MoreEntriesThanTheCacheTakesAreWrong) {
  EXPECT_THAT(TextsOf(VerifiedVerdicts(Build(VerdictStore(131072)))), IsEmpty());
  EXPECT_THAT(TextsOf(VerifiedVerdicts(Build(VerdictStore(131073)))),
              ElementsAre("12: there are 131073 entries, and at most 131072 in a verdict cache"));
}

}  // namespace
