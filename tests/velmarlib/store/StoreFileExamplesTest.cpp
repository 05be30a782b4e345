// The examples of docs/file-format.md, byte for byte.
#include <algorithm>
#include <string>

#include "Velmar/Collections/DB/StoreBlock.h"
#include "tests/velmarlib/store/StoreBytes.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;

// The bytes that pairs of hex digits say.
std::string Bytes(std::string digits) {
  digits.erase(std::remove(digits.begin(), digits.end(), ' '), digits.end());
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

const char* const kEmpty =
    "52 59 4C 42  02 00 00 00  01 00 00 00  00 00 00 00"
    "02 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00"
    "00 00 00 00  76 17 1E 53";

const char* const kEmptyDay =
    "52 59 4C 42  02 00 00 00  01 00 00 00  00 00 00 00"
    "06 00 00 00  00 00 00 00  00 00 00 00  10 00 00 00"
    "31 5D 56 28  0B BD EF 94"
    "80 B8 52 65 00 00 00 00  00 00 00 00 00 00 00 00";

const char* const kOneEntry =
    "52 59 4C 42  02 00 00 00  01 00 00 00  01 00 00 00"
    "0A 00 00 00  00 00 00 00  3A 00 00 00  00 00 00 00"
    "00 00 00 00  86 7A FE B1"
    "43 4A 10 DA  0A 00 00 00"
    "06 00 00 00  02 00 00 00  68 69"
    "6D 09 FB C1  05 00 00 00"
    "01 00 00 00  70";

const char* const kDayIndexBlock =
    "91 B3 F1 A9  10 00 00 00  10 00 00 00  0A 00 00 00"
    "F2 EE F8 90 79 90 4D 43  FC 46 46 6D BB 48 BA 7F";

// The blob and the key stream of one day.
class DayBinder final : public AddingBinder {
 public:
  bool GetHeader(void* area, u32 /*size*/, u32& outSize) override {
    const std::string bytes = Bytes("80 B8 52 65 00 00 00 00  00 00 00 00 00 00 00 00");
    std::copy(bytes.begin(), bytes.end(), static_cast<char*>(area));
    outSize = static_cast<u32>(bytes.size());
    return true;
  }
  bool Serialize(const void* data, u32 size, Buffer& output) override { return Mix(data, size, output); }
  bool Deserialize(const void* data, u32 size, Buffer& output) override { return Mix(data, size, output); }

 private:
  static bool Mix(const void* data, u32 size, Buffer& output) {
    const std::string stream = Bytes("8A 72 9B F4 19 F0 65 23 F8 54 60 6D B9 A5 BA D8");
    for (u32 i = 0; i < size; ++i) {
      output.PushUInt8(static_cast<u8>(static_cast<const u8*>(data)[i] ^ static_cast<u8>(stream[i])));
    }
    return size <= stream.size();
  }
};

TEST(StoreFileExamples, EmptyStore) {
  MakeFolder();
  TextStore store;
  ASSERT_TRUE(Open(store, AtPath(StoreFlags::kNoSaveOnClose)));
  ASSERT_TRUE(store.Save());
  EXPECT_EQ(FileContent(kPath), Bytes(kEmpty));
}

TEST(StoreFileExamples, EmptyDayFile) {
  MakeFolder();
  DayBinder binder;
  TextStore store;
  Options options = AtPath(StoreFlags::kNoSaveOnClose | StoreFlags::kCipherRequired);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(store.Save());
  EXPECT_EQ(FileContent(kPath), Bytes(kEmptyDay));
}

TEST(StoreFileExamples, OneEntryIsWrittenAndRead) {
  MakeFolder();
  TextStore store;
  ASSERT_TRUE(Open(store, AtPath(StoreFlags::kNoSaveOnClose | StoreFlags::kNoCompression)));
  ASSERT_TRUE(Put(store, "p", "hi"));
  ASSERT_TRUE(store.Save());
  EXPECT_EQ(FileContent(kPath), Bytes(kOneEntry));
  Sim::PutFile(kPath, Bytes(kOneEntry));
  ASSERT_TRUE(store.Clear());
  ASSERT_TRUE(store.Load());
  EXPECT_EQ(Get(store, "p"), "hi");
}

TEST(StoreFileExamples, IndexBlockOfADayFileIsRead) {
  Sim::PutFile("/block", Bytes(kDayIndexBlock));
  OS::File file;
  ASSERT_TRUE(file.OpenRead("/block"));
  WorkBuffer result;
  WorkBuffer scratch;
  ASSERT_TRUE(result.Create() && scratch.Create());
  DayBinder binder;
  EXPECT_TRUE(ReadBlock(file, 0, result.buffer, scratch.buffer, FileFlags::kCiphered, &binder));
  EXPECT_EQ(GetValue(result.buffer), StoreBytes::Counted("p") + StoreBytes::Counted("4"));
}

}  // namespace
