// NetDBCryptor, its key text and RC4.
#include "common/netdb_storage/NetDBCryptor.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "Velmar/Hashes/CRC32.h"
#include "Velmar/Hashes/MD5.h"
#include "common/netdb_storage/KeyText.h"
#include "common/netdb_storage/Rc4.h"
#include "platform/sim/Sim.h"
#include "tests/netdb_storage/Folder.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Lines = std::vector<std::string>;

std::vector<u8> FromHex(const std::string& hex) {
  std::vector<u8> bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    bytes.push_back(static_cast<u8>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::vector<u8> KeyStream(const std::vector<u8>& key, u32 size) {
  u8 fixed[Rc4::kKeySize];
  std::memcpy(fixed, key.data(), sizeof(fixed));
  u8 state[256];
  Rc4::Start(state, fixed);
  std::vector<u8> stream(size, 0);
  Rc4::Apply(state, stream.data(), size, stream.data());
  return stream;
}

struct StreamCase {
  const char* key;
  u32 offset;
  const char* bytes;
};

// RFC 6229, the 128-bit keys.
constexpr StreamCase kStreams[] = {
    {"0102030405060708090a0b0c0d0e0f10", 0, "9ac7cc9a609d1ef7b2932899cde41b975248c4959014126a6e8a84f11d1a9e1c"},
    {"0102030405060708090a0b0c0d0e0f10", 240, "065902e4b620f6cc36c8589f66432f2bd39d566bc6bce3010768151549f3873f"},
    {"0102030405060708090a0b0c0d0e0f10", 4080, "ff38265c1642c1abe8d3c2fe5e572bf8a36a4c301ae8ac13610ccbc12256cacc"},
    {"ebb46227c6cc8b37641910833222772a", 0, "720c94b63edf44e131d950ca211a5a30c366fdeacf9ca80436be7c358424d20b"},
    {"ebb46227c6cc8b37641910833222772a", 240, "b3394a40aabf75cba42282ef25a0059f4847d81da4942dbc249defc48c922b9f"},
    {"ebb46227c6cc8b37641910833222772a", 4080, "a2221a11b833ccb498a59540f0545f4a5bbeb4787d59e5373fdbea6c6f75c29b"},
};

TEST(Rc4, KeyStreamsAreThePublishedOnes) {
  for (const StreamCase& published : kStreams) {
    const std::vector<u8> expected = FromHex(published.bytes);
    const std::vector<u8> stream =
        KeyStream(FromHex(published.key), published.offset + static_cast<u32>(expected.size()));
    EXPECT_EQ((std::vector<u8>(stream.begin() + published.offset, stream.end())), expected)
        << published.key << " " << published.offset;
  }
}

std::string KeyText(i32 year, i32 month, i32 day) {
  char text[kKeyTextRoom];
  const u32 length = MakeKeyText(text, year, month, day);
  return {text, length};
}

// Written so that this file does not hold the text either.
std::string PlainPrefix() {
  return std::string("ryl-") + "netdb" + "/";
}

TEST(KeyText, HoldsYearMonthAndDay) {
  EXPECT_EQ(KeyText(2023, 11, 14), PlainPrefix() + "2023-11-14");
  EXPECT_EQ(KeyText(1, 2, 3), PlainPrefix() + "0001-02-03");
  EXPECT_EQ(KeyText(-2147483647 - 1, 12, 31), PlainPrefix() + "-2147483648-12-31") << "the longest that there is";
}

TEST(KeyText, TextThatDoesNotFitHasNoLength) {
  char text[kKeyTextRoom];
  EXPECT_EQ(MakeKeyText(text, -2147483647 - 1, -2147483647 - 1, -2147483647 - 1), 0U);
  EXPECT_EQ(std::string(text, sizeof(text)), std::string(sizeof(text), '\0')) << "and leaves no part of itself";
}

TEST(KeyText, WipedMemoryIsZero) {
  char area[16] = "something";
  WipeMemory(area, sizeof(area));
  EXPECT_EQ(std::string(area, sizeof(area)), std::string(16, '\0'));
}

// The archive as it was built, debug information included.
TEST(KeyText, PlainFormStandsNowhereInTheLibrary) {
  std::ifstream file(STORAGE_ARCHIVE, std::ios::binary);
  const std::string archive((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  ASSERT_GT(archive.size(), 10000U);
  EXPECT_NE(archive.find("DBManager"), std::string::npos) << "names are found, so the text would be too";
  EXPECT_EQ(archive.find("ryl-"
                         "netdb"),
            std::string::npos);
  EXPECT_EQ(archive.find("%04d-%02d"), std::string::npos);
}

class NetDBCryptorTest : public testing::Test {
 protected:
  std::vector<u8> Cipher(NetDBCryptor& with, const std::vector<u8>& plain) {
    Value out;
    EXPECT_TRUE(with.Serialize(plain.data(), static_cast<u32>(plain.size()), *out));
    return Bytes(*out);
  }

  NetDBCryptor cryptor;
};

TEST_F(NetDBCryptorTest, HeaderIsTheTwoStampsLittleEndian) {
  cryptor.SetDayStamp(0x0807060504030201);
  cryptor.SetFilterStamp(0x1817161514131211);
  u8 area[8192] = {};
  u32 size = 0;
  LogCapture log;
  ASSERT_TRUE(cryptor.GetHeader(area, sizeof(area), size));
  EXPECT_EQ(size, 16U);
  const u8 expected[16] = {1, 2, 3, 4, 5, 6, 7, 8, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18};
  EXPECT_EQ(std::memcmp(area, expected, 16), 0);
  EXPECT_EQ(log.Lines(1), (Lines{"1 netdb_storage.StampsWritten"}));

  NetDBCryptor other;
  log.Clear();
  ASSERT_TRUE(other.SetHeader(area, 16, 77));
  EXPECT_EQ(other.GetDayStamp(), 0x0807060504030201U);
  EXPECT_EQ(other.GetFilterStamp(), 0x1817161514131211U);
  EXPECT_EQ(log.Lines(1), (Lines{"1 netdb_storage.StampsRead"}));
}

TEST_F(NetDBCryptorTest, AreaThatIsTooSmallGetsNoHeaderButItsSize) {
  u8 area[15] = {0xAA};
  u32 size = 0;
  LogCapture log;
  EXPECT_FALSE(cryptor.GetHeader(area, sizeof(area), size));
  EXPECT_EQ(size, 16U);
  EXPECT_EQ(area[0], 0xAA);
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.BinderAreaTooSmall"}));
}

TEST_F(NetDBCryptorTest, BlobThatIsTooSmallLeavesTheStamps) {
  cryptor.SetDayStamp(kDay);
  cryptor.SetFilterStamp(5);
  const u8 blob[15] = {};
  LogCapture log;
  EXPECT_FALSE(cryptor.SetHeader(blob, sizeof(blob), 1));
  EXPECT_EQ(cryptor.GetDayStamp(), kDay);
  EXPECT_EQ(cryptor.GetFilterStamp(), 5U);
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.BinderBlobTooSmall"}));
}

TEST_F(NetDBCryptorTest, EmptyBlockGivesAnEmptyOutput) {
  cryptor.SetDayStamp(kDay);
  Value out;
  EXPECT_TRUE(cryptor.Serialize("", 0, *out));
  EXPECT_EQ(out->size, 0U);
  EXPECT_TRUE(cryptor.Deserialize(nullptr, 0, *out));
}

TEST_F(NetDBCryptorTest, DecipheringGivesTheBlockBack) {
  cryptor.SetDayStamp(kDay);
  std::vector<u8> plain(100000);
  for (std::size_t i = 0; i < plain.size(); ++i) {
    plain[i] = static_cast<u8>(i * i >> 3);
  }
  const std::vector<u8> ciphered = Cipher(cryptor, plain);
  ASSERT_EQ(ciphered.size(), plain.size());
  EXPECT_NE(ciphered, plain);
  NetDBCryptor other;
  other.SetDayStamp(kDay);
  Value back;
  LogCapture log;
  ASSERT_TRUE(other.Deserialize(ciphered.data(), static_cast<u32>(ciphered.size()), *back));
  EXPECT_EQ(Bytes(*back), plain);
  EXPECT_EQ(log.Lines(1), (Lines{"1 netdb_storage.BlockToRead", "1 netdb_storage.CipherStarts"}));
}

TEST_F(NetDBCryptorTest, EveryBlockOfAFileStartsTheStreamAnew) {
  cryptor.SetDayStamp(kDay);
  const std::vector<u8> plain(64, 0x55);
  const std::vector<u8> first = Cipher(cryptor, plain);
  EXPECT_EQ(Cipher(cryptor, plain), first);
  std::vector<u8> start = Cipher(cryptor, std::vector<u8>(32, 0x55));
  EXPECT_EQ(start, std::vector<u8>(first.begin(), first.begin() + 32));
}

TEST_F(NetDBCryptorTest, OutputIsAppended) {
  cryptor.SetDayStamp(kDay);
  const std::vector<u8> plain(16, 0);
  Value out;
  ASSERT_NE(out->PushUInt32(0x11223344), kNone);
  ASSERT_TRUE(cryptor.Serialize(plain.data(), 16, *out));
  ASSERT_EQ(out->size, 20U);
  const std::vector<u8> all = Bytes(*out);
  EXPECT_EQ(all[0], 0x44);
  EXPECT_EQ(std::vector<u8>(all.begin() + 4, all.end()), Cipher(cryptor, plain));
}

// The key is the MD5 of the day's text, whatever the folder; each day has its own.
TEST_F(NetDBCryptorTest, KeyIsMadeOfTheDay) {
  const std::pair<u64, const char*> kDays[] = {
      {kDay, "2023-11-14"}, {kDay + 86399, "2023-11-14"}, {kNextDay, "2023-11-15"}, {0, "1970-01-01"}};
  for (const auto& [day, date] : kDays) {
    Velmar::Hashes::MD5 digest;
    ASSERT_TRUE(digest.ComputeFromString((PlainPrefix() + date).c_str(), kNone));
    const std::vector<u8> key(digest.GetDigest(), digest.GetDigest() + 16);
    cryptor.SetDayStamp(day);
    EXPECT_EQ(Cipher(cryptor, std::vector<u8>(48, 0)), KeyStream(key, 48)) << date;
  }
}

// The format page gives these bytes to other readers.
TEST_F(NetDBCryptorTest, KeyStreamOfADayIsTheDocumentedOne) {
  cryptor.SetDayStamp(kDay);
  EXPECT_EQ(Cipher(cryptor, std::vector<u8>(16, 0)), FromHex("8a729bf419f06523f854606db9a5bad8"));
}

TEST_F(NetDBCryptorTest, DayOutOfRangeFails) {
  for (const u64 day : {u64{0x7FFFFFFFFFFFFFFF}, kAllOnes64}) {
    cryptor.SetDayStamp(day);
    Value out;
    LogCapture log;
    EXPECT_FALSE(cryptor.Serialize("x", 1, *out));
    EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.DayOutOfCipherRange", "5 netdb_storage.NoCipherKey"}));
    EXPECT_EQ(out->size, 0U);
  }
}

TEST_F(NetDBCryptorTest, DayWithoutACalendarYearFails) {
  cryptor.SetDayStamp(0x7FFFFFFFFFFFFFFE);
  Value out;
  LogCapture log;
  EXPECT_FALSE(cryptor.Serialize("x", 1, *out));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.KeyTextNotMade", "5 netdb_storage.NoCipherKey"}));
}

TEST_F(NetDBCryptorTest, OutputWithoutMemoryFails) {
  cryptor.SetDayStamp(kDay);
  const std::vector<u8> plain(5000, 1);
  u8 area[100];
  Buffer small(true);
  ASSERT_TRUE(small.CreateFromExistingBuffer(area, sizeof(area), true, false, 100, 1, false, GrowType::kFixedStep));
  LogCapture log;
  EXPECT_FALSE(cryptor.Serialize(plain.data(), 5000, small));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.NoCipherOutput"}));
  EXPECT_EQ(log.Arguments("netdb_storage.NoCipherOutput"), (Lines{"5000"}));
}

class NetDBCryptorFileTest : public FolderTest {};

TEST_F(NetDBCryptorFileTest, SaveOfADayOutOfRangeFailsAndLeavesNoFile) {
  DBManager manager;
  ASSERT_TRUE(manager.SetFolder(kFolder));
  ASSERT_TRUE(manager.Add(MakeMessage(kDay, Address(10, 0, 0, 1), 1), nullptr));
  DBManagerTestAccess::Cryptor(manager).SetDayStamp(kAllOnes64);
  EXPECT_FALSE(manager.Flush());
  EXPECT_EQ(Files(), std::vector<std::string>{});
  DBManagerTestAccess::Cryptor(manager).SetDayStamp(kDay);
  EXPECT_TRUE(manager.Flush());
}

// Puts the CRC-32 of `size` bytes from `from` on at `to`, little-endian.
void Reseal(std::string& file, std::size_t to, std::size_t from, u32 size) {
  Velmar::Hashes::CRC32 crc;
  ASSERT_TRUE(crc.Init());
  ASSERT_TRUE(crc.Update(file.data() + from, size));
  for (u32 i = 0; i < 4; ++i) {
    file[to + i] = static_cast<char>(crc.GetValue() >> (8 * i));
  }
}

// The stamps lie in plain behind the header of 40 bytes.
TEST_F(NetDBCryptorFileTest, LoadOfADayOutOfRangeFails) {
  WriteDay(kDay, {1});
  std::string file = Content(DayPath(kDay));
  file.replace(40, 8, std::string(8, '\xFF'));
  Reseal(file, 32, 40, NetDBCryptor::kHeaderSize);
  Reseal(file, 36, 0, 36);
  Sim::PutFile(DayPath(kDay), file);
  DBManager reader;
  LogCapture log;
  EXPECT_FALSE(reader.SyncWith(DayPath(kDay).c_str(), true));
  const Lines lines = log.Lines(5);
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines[0], "5 netdb_storage.DayOutOfCipherRange");
  EXPECT_EQ(lines[1], "5 netdb_storage.NoCipherKey");
  EXPECT_EQ(lines.back(), "5 netdb_storage.FileNotOpened");
}

TEST_F(NetDBCryptorFileTest, FileOpensWithItsOwnDayWhateverTheManagerHad) {
  WriteDay(kDay, {1});
  DBManager reader;
  DBManagerTestAccess::Cryptor(reader).SetDayStamp(kNextDay);
  ASSERT_TRUE(reader.SyncWith(DayPath(kDay).c_str(), true));
  EXPECT_EQ(reader.GetDayStamp(), kDay);
}

}  // namespace
