// Blocks whose words or bytes are wrong, every flipped bit and every cut: refused before the binder or zlib sees them.
#include <string>

#include "Velmar/Collections/DB/StoreBlock.h"
#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/StoreBytes.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using StoreBytes::Build;
using StoreBytes::Word;
using Texts = std::vector<std::string>;

constexpr u32 kLargest = 26214400;

std::string Cipher(const std::string& plain) {
  std::string bytes = plain;
  for (char& byte : bytes) {
    byte = static_cast<char>(byte + 7);
  }
  return bytes;
}

// Reads a block of `bytes` at their start.
struct BlockReader {
  explicit BlockReader(const std::string& bytes) {
    Sim::PutFile("/block", bytes);
    EXPECT_TRUE(file.OpenRead("/block"));
    EXPECT_TRUE(result.Create());
    EXPECT_TRUE(scratch.Create());
  }
  bool Read(u32 flags) { return ReadBlock(file, 0, result.buffer, scratch.buffer, flags, &binder); }

  AddingBinder binder;
  OS::File file;
  WorkBuffer result;
  WorkBuffer scratch;
};

// A block with the size words and the payload given, and the right CRC.
std::string Sealed(const std::vector<u32>& sizes, const std::string& payload) {
  std::string covered;
  for (const u32 size : sizes) {
    covered += Word(size);
  }
  covered += payload;
  return Word(StoreBytes::Crc32(covered)) + covered;
}

// The records of reading `bytes`, which must fail, with at most `memory` allocations.
Lines BlockRefusal(const std::string& bytes, u32 flags, AddingBinder* settings = nullptr, Texts* calls = nullptr) {
  BlockReader reader(bytes);
  if (settings != nullptr) {
    reader.binder = *settings;
  }
  LogCapture log;
  EXPECT_FALSE(reader.Read(flags));
  if (calls != nullptr) {
    *calls = reader.binder.calls;
  }
  return log.Lines();
}

TEST(StoreBlock, EachFormIsReadBack) {
  for (const u32 flags : {0U, 4U, 8U, 12U}) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{8192}, std::size_t{100000}}) {
      StoreBytes::StoreFile file;
      file.fileFlags = flags;
      BlockReader reader(StoreBytes::Block(file, std::string(size, 'x'), Cipher) + "behind");
      ASSERT_TRUE(reader.Read(flags)) << flags;
      EXPECT_EQ(GetValue(reader.result.buffer), std::string(size, 'x'));
      char next = 0;
      EXPECT_TRUE(reader.file.Read(&next, 1, nullptr));
      EXPECT_EQ(next, 'b') << "the stream is behind the block";
    }
  }
}

TEST(StoreBlock, EmptyBlockIsReadWithoutAnyTransformation) {
  BlockReader reader(Sealed({0}, ""));
  EXPECT_TRUE(reader.Read(8));
  EXPECT_EQ(reader.result.buffer.size, 0U);
}

TEST(StoreBlock, WrittenBlockLeavesThePlainBufferEmpty) {
  for (const u32 flags : {0U, 4U, 8U, 12U}) {
    AddingBinder binder;
    WorkBuffer plain;
    WorkBuffer scratch;
    ASSERT_TRUE(plain.Create() && scratch.Create());
    ASSERT_TRUE(SetValue(plain.buffer, "content"));
    OS::File file;
    ASSERT_TRUE(file.Create("/block", false, true));
    EXPECT_TRUE(WriteBlock(plain.buffer, scratch.buffer, file, flags, &binder));
    EXPECT_EQ(plain.buffer.size, 0U);
    ASSERT_TRUE(file.Close());
    BlockReader reader(FileContent("/block"));
    EXPECT_TRUE(reader.Read(flags));
    EXPECT_EQ(GetValue(reader.result.buffer), "content");
  }
}

TEST(StoreBlock, EachSizeAboveTheLimitIsRefused) {
  const Lines tooLarge = {"3 velmar.StoreBlockTooLarge"};
  EXPECT_EQ(BlockRefusal(Sealed({kLargest + 1}, ""), 8), tooLarge);
  EXPECT_EQ(BlockRefusal(Sealed({kLargest + 1, 1}, ""), 0), tooLarge);
  EXPECT_EQ(BlockRefusal(Sealed({1, kLargest + 1}, "x"), 0), tooLarge);
  EXPECT_EQ(BlockRefusal(Sealed({kLargest + 1, 1, 1}, ""), 4), tooLarge);
  EXPECT_EQ(BlockRefusal(Sealed({1, 0xFFFFFFFF, 1}, "x"), 4), tooLarge);
  EXPECT_EQ(BlockRefusal(Sealed({1, 1, 0x80000000}, "x"), 4), tooLarge);
  EXPECT_EQ(BlockRefusal(Sealed({1, kLargest + 1}, "x"), 12), tooLarge);
}

TEST(StoreBlock, PayloadThatTheFileDoesNotHoldTakesNoMemory) {
  for (const u32 size : {101U, 8193U, kLargest}) {
    const u64 before = Sim::CountAllocations();
    EXPECT_EQ(BlockRefusal(Sealed({size}, std::string(100, 'x')), 8), Lines{"3 velmar.StoreBlockNotRead"});
    EXPECT_EQ(Sim::CountAllocations(), before) << size;
  }
}

TEST(StoreBlock, CutBlockIsRefused) {
  StoreBytes::StoreFile file;
  file.fileFlags = 4;
  const std::string bytes = StoreBytes::Block(file, "content", Cipher);
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_EQ(BlockRefusal(bytes.substr(0, size), 4), Lines{"3 velmar.StoreBlockNotRead"}) << size;
  }
}

TEST(StoreBlock, WrongCrcReachesNeitherBinderNorZlib) {
  std::string bytes = Sealed({5, 5, 100}, "noise");
  bytes[17] = 'y';
  Texts calls;
  EXPECT_EQ(BlockRefusal(bytes, 4, nullptr, &calls), Lines{"3 velmar.StoreBlockCrcWrong"});
  EXPECT_EQ(calls, Texts{});
}

TEST(StoreBlock, BinderThatDoesNotDecipherFails) {
  AddingBinder settings;
  settings.deciphers = false;
  EXPECT_EQ(BlockRefusal(Sealed({5, 5}, "noise"), 12, &settings), Lines{"3 velmar.StoreBlockNotDeciphered"});
}

TEST(StoreBlock, DecipheredFormMayNotPassItsSizes) {
  AddingBinder settings;
  settings.surplus = 1;
  EXPECT_EQ(BlockRefusal(Sealed({5, 5}, "noise"), 12, &settings), Lines{"3 velmar.StoreBlockNotDeciphered"});
  EXPECT_EQ(BlockRefusal(Sealed({5, 6}, "noise"), 12), Lines{"3 velmar.StoreBlockSizeWrong"});
  BlockReader exact(Sealed({5, 6}, "noise"));
  exact.binder.surplus = 1;
  EXPECT_TRUE(exact.Read(12));
}

TEST(StoreBlock, BytesThatAreNoDeflateStreamFail) {
  EXPECT_EQ(BlockRefusal(Sealed({5, 100}, "noise"), 0), Lines{"3 velmar.StoreBlockNotDecompressed"});
  EXPECT_EQ(BlockRefusal(Sealed({0, 0}, ""), 0), Lines{"3 velmar.StoreBlockNotDecompressed"});
}

TEST(StoreBlock, RawSizeMustBeThatOfTheStream) {
  const std::string packed = StoreBytes::Deflate("content");
  const auto size = static_cast<u32>(packed.size());
  EXPECT_EQ(BlockRefusal(Sealed({size, 8}, packed), 0), Lines{"3 velmar.StoreBlockNotDecompressed"});
  EXPECT_EQ(BlockRefusal(Sealed({size, 6}, packed), 0), Lines{"3 velmar.StoreBlockNotDecompressed"});
  BlockReader reader(Sealed({size, 7}, packed));
  EXPECT_TRUE(reader.Read(0));
}

TEST(StoreBlock, RawSizeThatDeflateCannotReachTakesNoMemory) {
  const std::string packed = StoreBytes::Deflate("content");
  const auto size = static_cast<u32>(packed.size());
  const u64 before = Sim::CountAllocations();
  EXPECT_EQ(BlockRefusal(Sealed({size, kLargest}, packed), 0), Lines{"3 velmar.StoreBlockNotDecompressed"});
  EXPECT_EQ(BlockRefusal(Sealed({size, kLargest, kLargest}, packed), 4), Lines{"3 velmar.StoreBlockNotDecompressed"});
  EXPECT_EQ(Sim::CountAllocations(), before);
}

TEST(StoreBlock, DensestStreamIsWithinTheBound) {
  StoreBytes::StoreFile file;
  const std::string zeroes(5000000, '\0');
  BlockReader reader(StoreBytes::Block(file, zeroes));
  EXPECT_TRUE(reader.Read(0));
  EXPECT_EQ(reader.result.buffer.size, zeroes.size());
}

struct Form {
  const char* name;
  u32 fileFlags;
  bool hasBinder;
};

// The file of each form, with two pages.
std::string SmallFile(const Form& form) {
  StoreBytes::StoreFile file = StoreBytes::TextFile({{"p", "first value"}, {"4", "second value"}});
  file.pages = {StoreBytes::BufferRecord("first value"), StoreBytes::BufferRecord("second value")};
  file.fileFlags = form.fileFlags;
  if (form.hasBinder) {
    file.blob = "0123456789abcdef";
  }
  return Build(file, Cipher);
}

// Whether `bytes` load. When they do, the content must be that of the whole file.
bool LoadsUnchanged(const std::string& bytes, AddingBinder* binder, LogCapture& log) {
  Sim::PutFile(kPath, bytes);
  log.Clear();
  TextStore store;
  Options options = AtPath(StoreFlags::kNoSaveOnClose);
  options.binder = binder;
  if (!Open(store, options)) {
    EXPECT_EQ(log.Count("velmar.StoreNotLoaded"), 1);
    return false;
  }
  EXPECT_EQ(KeysOf(store), (Texts{"p", "4"}));
  EXPECT_EQ(Get(store, "p"), "first value");
  EXPECT_EQ(Get(store, "4"), "second value");
  return true;
}

class StoreFileDamage : public testing::TestWithParam<Form> {};

// Every bit is under a checksum: the header's, the blob's or a block's.
TEST_P(StoreFileDamage, EveryFlippedBitFailsTheLoad) {
  const std::string whole = SmallFile(GetParam());
  LogCapture log;
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string bytes = whole;
      bytes[at] = static_cast<char>(bytes[at] ^ (1 << bit));
      AddingBinder binder;
      EXPECT_FALSE(LoadsUnchanged(bytes, GetParam().hasBinder ? &binder : nullptr, log)) << at << " bit " << bit;
      EXPECT_EQ(log.Count("velmar.StoreBlockNotDecompressed"), 0) << at << " bit " << bit;
      EXPECT_EQ(log.Count("velmar.StoreBlockNotDeciphered"), 0) << at << " bit " << bit;
    }
  }
}

class CipheredFileDamage : public StoreFileDamage {};

// A block in front of the flipped one may be deciphered, none behind it, and never the damaged one.
TEST_P(CipheredFileDamage, DamagedBlockNeverReachesTheBinder) {
  const std::string whole = SmallFile(GetParam());
  const StoreBytes::StoreFile parsed = StoreBytes::Parse(whole, [](const std::string& bytes) {
    std::string plain = bytes;
    for (char& byte : plain) {
      byte = static_cast<char>(byte - 7);
    }
    return plain;
  });
  ASSERT_EQ(parsed.blockPositions.size(), 3U);
  LogCapture log;
  // In reading order: first page, index, second page.
  const std::size_t order[] = {0, 2, 1};
  for (std::size_t turn = 0; turn < 3; ++turn) {
    const std::size_t first = parsed.blockPositions[order[turn]];
    const std::size_t end = order[turn] == 2 ? whole.size() : parsed.blockPositions[order[turn] + 1];
    for (std::size_t at = first; at < end; ++at) {
      std::string bytes = whole;
      bytes[at] = static_cast<char>(bytes[at] ^ 0x10);
      AddingBinder binder;
      EXPECT_FALSE(LoadsUnchanged(bytes, &binder, log));
      EXPECT_EQ(binder.calls.size(), 1 + turn) << "the blob, and the blocks read before; byte " << at;
    }
  }
}

TEST_P(StoreFileDamage, EveryCutFailsTheLoad) {
  const std::string whole = SmallFile(GetParam());
  LogCapture log;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    AddingBinder binder;
    EXPECT_FALSE(LoadsUnchanged(whole.substr(0, size), GetParam().hasBinder ? &binder : nullptr, log)) << size;
  }
  AddingBinder binder;
  EXPECT_TRUE(LoadsUnchanged(whole, GetParam().hasBinder ? &binder : nullptr, log));
}

const auto nameOf = [](const testing::TestParamInfo<Form>& instance) { return std::string(instance.param.name); };

INSTANTIATE_TEST_SUITE_P(Forms, StoreFileDamage,
                         testing::Values(Form{"Compressed", 2, false}, Form{"Plain", 2 | 8, false},
                                         Form{"Ciphered", 2 | 4, true}, Form{"CipheredOnly", 2 | 4 | 8, true},
                                         Form{"BlobOnly", 2, true}),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Forms, CipheredFileDamage,
                         testing::Values(Form{"Compressed", 2 | 4, true}, Form{"Plain", 2 | 4 | 8, true}), nameOf);

}  // namespace
