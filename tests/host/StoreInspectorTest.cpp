#include "host/inspect/StoreInspector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include "Velmar/Hashes/CRC32.h"
#include "tests/host/History.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Inspect;

constexpr u64 kDay = 1699920000;

StoreReport InspectBytes(const std::string& bytes) {
  MemoryBytes source(reinterpret_cast<const u8*>(bytes.data()), bytes.size());
  return InspectStore(source);
}

std::vector<std::string> ProblemsOf(const StoreReport& report) {
  std::vector<std::string> texts;
  for (const Problem& problem : report.problems) {
    texts.push_back(std::to_string(problem.position) + ": " + problem.text);
  }
  return texts;
}

void PutWord(std::string& bytes, std::size_t at, u32 value) {
  std::memcpy(bytes.data() + at, &value, sizeof(value));
}

// Makes the header's CRC right again after a change.
void SealHeader(std::string& bytes) {
  Velmar::Hashes::CRC32 crc;
  crc.ComputeFromBuffer(bytes.data(), 36);
  PutWord(bytes, 36, crc.GetValue());
}

class StoreInspectorTest : public testing::Test {
 protected:
  // A day of three rows and two processes.
  static std::string DayFile() {
    const TemporaryFolder folder;
    PutHistory(folder.Path(), {{kDay + 1, 1, 0, "/bin/a"}, {kDay + 2, 2, 0, "/bin/b"}, {kDay + 3, 3}});
    return TemporaryFolder::Get(folder.Path("netdb/" + std::to_string(kDay) + ".db"));
  }
  std::string bytes_ = DayFile();
  const StoreReport good_ = InspectBytes(bytes_);
};

TEST_F(StoreInspectorTest, WholeDayFileIsDescribed) {
  EXPECT_TRUE(good_.isStore);
  EXPECT_THAT(ProblemsOf(good_), testing::IsEmpty());
  EXPECT_EQ(good_.fileSize, bytes_.size());
  EXPECT_EQ(good_.header->FormatVersion, 2U);
  EXPECT_EQ(good_.header->EntryCount, 2U);
  ASSERT_TRUE(good_.blob);
  EXPECT_EQ(good_.blob->dayStamp, kDay);
  EXPECT_EQ(good_.blob->filterStamp, 0U);
  ASSERT_EQ(good_.blocks.size(), 2U);
  EXPECT_FALSE(good_.blocks[0].isIndex);
  EXPECT_EQ(good_.blocks[0].position, 56U);
  EXPECT_TRUE(good_.blocks[0].isReadable);
  EXPECT_TRUE(good_.blocks[1].isIndex);
  EXPECT_EQ(good_.blocks[1].position, good_.header->IndexPosition);
  EXPECT_EQ(good_.blocks[1].position + good_.blocks[1].size, bytes_.size());
  ASSERT_EQ(good_.tables.size(), 2U);
  for (const TableReport& table : good_.tables) {
    EXPECT_TRUE(table.isWhole);
    EXPECT_EQ(table.rows, table.key == "p" ? 2U : 3U);
  }
}

TEST_F(StoreInspectorTest, EveryFlippedBitIsNoticed) {
  for (std::size_t at = 0; at < bytes_.size(); ++at) {
    std::string flipped = bytes_;
    flipped[at] = static_cast<char>(flipped[at] ^ 1 << at % 8);
    EXPECT_FALSE(InspectBytes(flipped).problems.empty()) << "byte " << at;
  }
}

TEST_F(StoreInspectorTest, EveryCutIsNoticed) {
  for (std::size_t size = 0; size < bytes_.size(); ++size) {
    EXPECT_FALSE(InspectBytes(bytes_.substr(0, size)).problems.empty()) << size << " bytes";
  }
}

TEST_F(StoreInspectorTest, BytesBehindTheIndexAreNoticed) {
  EXPECT_THAT(ProblemsOf(InspectBytes(bytes_ + "x")),
              testing::ElementsAre(std::to_string(bytes_.size()) + ": there are bytes behind the index"));
}

TEST_F(StoreInspectorTest, SaveThatWasCutShortIsTold) {
  PutWord(bytes_, 0, 0);
  const StoreReport report = InspectBytes(bytes_);
  EXPECT_FALSE(report.isStore);
  EXPECT_THAT(ProblemsOf(report), testing::ElementsAre("0: the header was never finished: the save was cut short"));
}

TEST_F(StoreInspectorTest, OtherFilesAreNoStores) {
  EXPECT_THAT(ProblemsOf(InspectBytes("")), testing::ElementsAre("0: the file is too short for a header"));
  EXPECT_THAT(ProblemsOf(InspectBytes(std::string(100, 'x'))), testing::ElementsAre("0: this is no store file"));
}

TEST_F(StoreInspectorTest, UnknownFormatVersionIsTold) {
  PutWord(bytes_, 4, 3);
  SealHeader(bytes_);
  const StoreReport report = InspectBytes(bytes_);
  EXPECT_FALSE(report.isStore);
  EXPECT_THAT(ProblemsOf(report), testing::ElementsAre("4: format version 3 is not known"));
}

TEST_F(StoreInspectorTest, OldFormatIsVerifiedAndNotRead) {
  std::string old = bytes_.substr(0, 36);
  PutWord(old, 4, 1);
  Velmar::Hashes::CRC32 crc;
  crc.ComputeFromBuffer(old.data(), 32);
  PutWord(old, 32, crc.GetValue());
  const StoreReport report = InspectBytes(old);
  EXPECT_TRUE(report.isStore);
  EXPECT_EQ(report.headerSize, 36U);
  EXPECT_THAT(ProblemsOf(report), testing::IsEmpty());
  EXPECT_NE(ToText(report, "f").find("an old format"), std::string::npos);
  PutWord(old, 8, 77);
  EXPECT_THAT(ProblemsOf(InspectBytes(old)), testing::ElementsAre("32: the header's CRC is wrong"));
}

TEST_F(StoreInspectorTest, DamagedPageIsShownWithItsChecksums) {
  bytes_[80] = static_cast<char>(bytes_[80] ^ 1);
  const StoreReport report = InspectBytes(bytes_);
  EXPECT_THAT(ProblemsOf(report), testing::ElementsAre("56: page: the block's CRC is wrong"));
  ASSERT_EQ(report.blocks.size(), 2U);
  EXPECT_FALSE(report.blocks[0].crc.IsGood());
  EXPECT_EQ(report.blocks[0].crc.stored, good_.blocks[0].crc.stored);
  EXPECT_TRUE(report.blocks[1].isReadable);
  EXPECT_TRUE(report.tables.empty());
}

TEST_F(StoreInspectorTest, DamagedIndexLeavesThePagesReadable) {
  bytes_.back() = static_cast<char>(bytes_.back() ^ 1);
  const StoreReport report = InspectBytes(bytes_);
  EXPECT_THAT(ProblemsOf(report),
              testing::ElementsAre(std::to_string(good_.header->IndexPosition) + ": index: the block's CRC is wrong"));
  EXPECT_TRUE(report.blocks[0].isReadable);
  EXPECT_EQ(report.entryCount, 2U);
}

TEST_F(StoreInspectorTest, SizesThatLieAreToldBeforeMemoryIsTaken) {
  PutWord(bytes_, 60, 26214401);
  EXPECT_THAT(ProblemsOf(InspectBytes(bytes_)),
              testing::Contains("56: page: a size in the block's header is above 26214400"));
  PutWord(bytes_, 60, 26214400);
  EXPECT_THAT(ProblemsOf(InspectBytes(bytes_)), testing::Contains(testing::HasSubstr("bytes too late")));
}

TEST_F(StoreInspectorTest, AnotherDayDeciphersToNothing) {
  bytes_[40] = static_cast<char>(bytes_[40] ^ 0x80);
  bytes_[42] = static_cast<char>(bytes_[42] ^ 0x80);
  PutWord(bytes_, 32, 0);  // no CRC of the blob
  SealHeader(bytes_);
  const StoreReport report = InspectBytes(bytes_);
  EXPECT_FALSE(report.blocks[0].isReadable);
  EXPECT_TRUE(report.blocks[0].crc.IsGood());
}

TEST_F(StoreInspectorTest, ShortBlobTellsNoDay) {
  std::string shorter = bytes_;
  shorter.erase(48, 8);
  PutWord(shorter, 24, good_.header->IndexPosition - 8);
  PutWord(shorter, 28, 8);
  PutWord(shorter, 32, 0);
  SealHeader(shorter);
  const StoreReport report = InspectBytes(shorter);
  ASSERT_TRUE(report.blob);
  EXPECT_EQ(report.blob->dayStamp, std::nullopt);
  EXPECT_THAT(ProblemsOf(report),
              testing::Contains("48: page: the block is ciphered and the file does not say its day"));
}

TEST_F(StoreInspectorTest, WrongPromisesOfTheHeaderAreTold) {
  std::string wrong = bytes_;
  PutWord(wrong, 12, 3);
  SealHeader(wrong);
  EXPECT_THAT(ProblemsOf(InspectBytes(wrong)),
              testing::ElementsAre("12: the header promises 3 entries and the pages hold 2"));
  wrong = bytes_;
  PutWord(wrong, 24, 0xFFFFFFFF);
  SealHeader(wrong);
  EXPECT_THAT(ProblemsOf(InspectBytes(wrong)), testing::ElementsAre("24: the index would lie outside the file"));
  PutWord(wrong, 24, 0);
  SealHeader(wrong);
  EXPECT_THAT(ProblemsOf(InspectBytes(wrong)),
              testing::ElementsAre("24: the header promises entries and has no index"));
  wrong = bytes_;
  PutWord(wrong, 28, 8193);
  SealHeader(wrong);
  EXPECT_THAT(ProblemsOf(InspectBytes(wrong)), testing::Contains("28: the binder blob is larger than it may be"));
}

// A store without cipher and compression: pages of values, an index of keys.
std::string PlainStore(const std::string& page, const std::string& index, u32 entries, u32 flags, u32 keySize) {
  const auto block = [](const std::string& content) {
    std::string size(4, '\0');
    PutWord(size, 0, static_cast<u32>(content.size()));
    Velmar::Hashes::CRC32 crc;
    crc.ComputeFromBuffer((size + content).data(), static_cast<u32>(size.size() + content.size()));
    std::string head(4, '\0');
    PutWord(head, 0, crc.GetValue());
    return head + size + content;
  };
  std::string bytes("RYLB\2\0\0\0\1\0\0\0", 12);
  bytes.resize(40);
  PutWord(bytes, 12, entries);
  PutWord(bytes, 16, flags | 8);
  PutWord(bytes, 20, keySize);
  bytes += block(page);
  PutWord(bytes, 24, static_cast<u32>(bytes.size()));
  SealHeader(bytes);
  return bytes + block(index);
}

std::string Sized(const std::string& text) {
  std::string size(4, '\0');
  PutWord(size, 0, static_cast<u32>(text.size()));
  return size + text;
}

TEST(InspectStore, PlainStoreIsRead) {
  const StoreReport report = InspectBytes(PlainStore(Sized("one") + Sized(""), Sized("k1") + Sized("k2"), 2, 2, 0));
  EXPECT_THAT(ProblemsOf(report), testing::IsEmpty());
  ASSERT_EQ(report.entries.size(), 2U);
  EXPECT_EQ(report.entries[0].key, "k1");
  EXPECT_EQ(report.entries[0].valueSize, 3U);
  EXPECT_EQ(report.entries[1].key, "k2");
}

TEST(InspectStore, KeysOfAFixedSizeAreHexDigits) {
  const StoreReport report = InspectBytes(PlainStore(Sized("v"), std::string("\xCB\0\x71\1", 4), 1, 1, 4));
  EXPECT_THAT(ProblemsOf(report), testing::IsEmpty());
  ASSERT_EQ(report.entries.size(), 1U);
  EXPECT_EQ(report.entries[0].key, "cb007101");
}

TEST(InspectStore, KeysAndValuesThatDoNotMatchAreTold) {
  EXPECT_THAT(ProblemsOf(InspectBytes(PlainStore(Sized("v") + Sized("w"), Sized("k"), 2, 2, 0))),
              testing::Contains(testing::HasSubstr("the index has no key for value 2")));
  EXPECT_THAT(ProblemsOf(InspectBytes(PlainStore(Sized("v"), Sized("k") + Sized("l"), 1, 2, 0))),
              testing::Contains(testing::HasSubstr("the index holds more keys than there are values")));
  EXPECT_THAT(ProblemsOf(InspectBytes(PlainStore(Sized("v") + Sized("w"), Sized("k") + Sized("k"), 2, 2, 0))),
              testing::Contains(testing::HasSubstr("key \"k\" stands twice")));
  EXPECT_THAT(ProblemsOf(InspectBytes(PlainStore(Sized("v"), "keys", 1, 1, 0))),
              testing::Contains("20: the header does not say how large a key is"));
}

TEST(InspectStore, PagesThatEndTooEarlyAreTold) {
  EXPECT_THAT(ProblemsOf(InspectBytes(PlainStore(Sized("v") + "ab", Sized("k"), 1, 2, 0))),
              testing::Contains("40: page: its content ends inside the length of a value"));
  EXPECT_THAT(ProblemsOf(InspectBytes(PlainStore(Sized("value").substr(0, 6), Sized("k"), 1, 2, 0))),
              testing::Contains("40: page: its content ends inside a value"));
}

TEST(InspectStore, TableValuesMustHaveTheLengthTheySay) {
  EXPECT_THAT(ProblemsOf(InspectBytes(PlainStore(Sized("abc"), Sized("4"), 1, 2, 0))),
              testing::Contains("40: value of key \"4\" is too short"));
  EXPECT_THAT(ProblemsOf(InspectBytes(PlainStore(Sized(Sized("abcd") + "x"), Sized("p"), 1, 2, 0))),
              testing::Contains("40: value of key \"p\" does not have the length that it says"));
}

TEST(InspectStore, ManyEntriesAreCountedAndTheFirstListed) {
  std::string page;
  std::string index;
  for (u32 i = 0; i < 1500; ++i) {
    page += Sized("");
    index += std::string(reinterpret_cast<const char*>(&i), sizeof(i));
  }
  const StoreReport report = InspectBytes(PlainStore(page, index, 1500, 1, 4));
  EXPECT_THAT(ProblemsOf(report), testing::IsEmpty());
  EXPECT_EQ(report.entryCount, 1500U);
  EXPECT_EQ(report.entries.size(), kMaxListedEntries);
  EXPECT_NE(ToText(report, "f").find("(500 more)"), std::string::npos);
}

TEST(InspectStore, StoreWithoutEntriesIsWhole) {
  std::string bytes = PlainStore("", "", 0, 2, 0).substr(0, 40);
  PutWord(bytes, 24, 0);
  SealHeader(bytes);
  EXPECT_THAT(ProblemsOf(InspectBytes(bytes)), testing::IsEmpty());
  EXPECT_THAT(ProblemsOf(InspectBytes(bytes + "x")),
              testing::ElementsAre("40: there are bytes behind a store without entries"));
}

TEST_F(StoreInspectorTest, JsonHoldsTheReport) {
  bytes_[80] = static_cast<char>(bytes_[80] ^ 1);
  const auto json = nlohmann::json::parse(ToJson(InspectBytes(bytes_), "a \"b\""), nullptr, false);
  ASSERT_TRUE(json.is_object());
  EXPECT_EQ(json["file"], "a \"b\"");
  EXPECT_EQ(json["store"], true);
  EXPECT_EQ(json["header"]["entry_count"], 2);
  EXPECT_EQ(json["header"]["crc_good"], true);
  EXPECT_EQ(json["blob"]["day"], kDay);
  EXPECT_EQ(json["blocks"][0]["crc_good"], false);
  EXPECT_EQ(json["blocks"][0]["position"], 56);
  EXPECT_EQ(json["problems"][0]["position"], 56);
  const auto whole = nlohmann::json::parse(ToJson(good_, "f"), nullptr, false);
  EXPECT_EQ(whole["tables"].size(), 2U);
  EXPECT_EQ(whole["problems"].size(), 0U);
  const auto none = nlohmann::json::parse(ToJson(InspectBytes(""), "f"), nullptr, false);
  EXPECT_TRUE(none["header"].is_null());
}

}  // namespace
