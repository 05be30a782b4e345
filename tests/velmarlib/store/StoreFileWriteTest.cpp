// The bytes of a saved store.
#include <string>

#include "tests/velmarlib/store/StoreBytes.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using StoreBytes::BufferRecord;
using StoreBytes::Counted;
using StoreBytes::Parse;
using StoreBytes::Word;
using Texts = std::vector<std::string>;

constexpr u32 kPageLimit = 0x500000;
constexpr u32 kLargest = 26214400;

std::string Decipher(const std::string& bytes) {
  std::string plain = bytes;
  for (char& byte : plain) {
    byte = static_cast<char>(byte - 7);
  }
  return plain;
}

template <class K, class V>
std::string Saved(MapDB<K, V>& store) {
  EXPECT_TRUE(store.Save());
  return FileContent(kPath);
}

class StoreFileWrite : public testing::Test {
 protected:
  void SetUp() override { MakeFolder(); }

  Options WithFlags(u32 flags) {
    Options options = AtPath(StoreFlags::kNoSaveOnClose | flags);
    options.maximum = 10;
    return options;
  }
};

TEST_F(StoreFileWrite, EmptyStoreIs40Bytes) {
  TextStore store;
  Options options = WithFlags(0);
  options.version = 0x1234;
  ASSERT_TRUE(Open(store, options));
  const std::string header =
      "RYLB" + Word(2) + Word(0x1234) + Word(0) + Word(2) + Word(0) + Word(0) + Word(0) + Word(0);
  EXPECT_EQ(Saved(store), header + Word(StoreBytes::Crc32(header)));
}

TEST_F(StoreFileWrite, EmptyStoreWithABinderEndsBehindTheBlob) {
  AddingBinder binder;
  TextStore store;
  Options options = WithFlags(StoreFlags::kCipherRequired);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  const std::string bytes = Saved(store);
  EXPECT_EQ(bytes.size(), 56U);
  const StoreBytes::StoreFile file = Parse(bytes, Decipher);
  EXPECT_EQ(file.fileFlags, 6U);
  EXPECT_EQ(file.indexPosition, 0U);
  EXPECT_EQ(file.blob.substr(0, 3), "\xA0\xA1\xA2");
  EXPECT_EQ(binder.calls, Texts{"GetHeader 8192"});
}

TEST_F(StoreFileWrite, TextEntriesStandInAgeOrder) {
  TextStore store;
  ASSERT_TRUE(Open(store, WithFlags(0)));
  for (const char* key : {"p", "4", "", "longer"}) {
    ASSERT_TRUE(Put(store, key, std::string("value of ") + key));
  }
  const StoreBytes::StoreFile file = Parse(Saved(store));
  EXPECT_EQ(file.formatVersion, 2U);
  EXPECT_EQ(file.dataVersion, 1U);
  EXPECT_EQ(file.entryCount, 4U);
  EXPECT_EQ(file.fileFlags, 2U);
  EXPECT_EQ(file.keyEntrySize, 0U);
  EXPECT_EQ(file.blob, "");
  EXPECT_EQ(file.index, Counted("p") + Counted("4") + Counted("") + Counted("longer"));
  EXPECT_EQ(file.pages, Texts{BufferRecord("value of p") + BufferRecord("value of 4") + BufferRecord("value of ") +
                              BufferRecord("value of longer")});
}

TEST_F(StoreFileWrite, StringValuesHaveTheFormOfBuffers) {
  StringStore store;
  ASSERT_TRUE(Open(store, WithFlags(0)));
  ASSERT_TRUE(Put(store, "k", "text"));
  const StoreBytes::StoreFile file = Parse(Saved(store));
  EXPECT_EQ(file.fileFlags, 2U);
  EXPECT_EQ(file.pages, Texts{BufferRecord("text")});
}

TEST_F(StoreFileWrite, NumberKeysAre4BytesAndValues17) {
  NumberStore store;
  ASSERT_TRUE(Open(store, WithFlags(StoreFlags::kNoCompression)));
  ASSERT_TRUE(Put(store, 0x01020304, "8589934593"));
  ASSERT_TRUE(Put(store, 7, "2"));
  const std::string bytes = Saved(store);
  const StoreBytes::StoreFile file = Parse(bytes);
  EXPECT_EQ(file.fileFlags, 1U | 8U);
  EXPECT_EQ(file.keyEntrySize, 4U);
  EXPECT_EQ(file.index, std::string("\x04\x03\x02\x01\x07\0\0\0", 8));
  EXPECT_EQ(file.pages,
            Texts{StoreBytes::CacheRecord(8589934593, 8589934594, true) + StoreBytes::CacheRecord(2, 3, false)});
  EXPECT_EQ(bytes.size(), 40U + 8 + 42 + 8 + 8);
}

TEST_F(StoreFileWrite, WideKeysAre16BytesAsInMemory) {
  WideStore store;
  ASSERT_TRUE(Open(store, WithFlags(0)));
  ASSERT_TRUE(Put(store, Types::UInt128{{1, 2}}, "3"));
  const StoreBytes::StoreFile file = Parse(Saved(store));
  EXPECT_EQ(file.fileFlags, 1U);
  EXPECT_EQ(file.keyEntrySize, 16U);
  EXPECT_EQ(file.index, std::string("\1\0\0\0\0\0\0\0\2\0\0\0\0\0\0\0", 16));
}

TEST_F(StoreFileWrite, BlocksAreCompressedThenCiphered) {
  AddingBinder binder;
  TextStore store;
  Options options = WithFlags(StoreFlags::kCipherRequired);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "p", std::string(5000, 'x')));
  const std::string bytes = Saved(store);
  EXPECT_LT(bytes.size(), 300U);
  const StoreBytes::StoreFile file = Parse(bytes, Decipher);
  EXPECT_EQ(file.fileFlags, 2U | 4U);
  EXPECT_EQ(file.pages, Texts{BufferRecord(std::string(5000, 'x'))});
  EXPECT_EQ(file.index, Counted("p"));
  ASSERT_EQ(binder.calls.size(), 3U);
  EXPECT_EQ(binder.calls[1], "Serialize " + std::to_string(StoreBytes::Deflate(file.pages[0]).size()));
  EXPECT_EQ(binder.calls[2], "Serialize " + std::to_string(StoreBytes::Deflate(file.index).size()));
}

TEST_F(StoreFileWrite, CipherWithoutCompressionHasOneMoreSizeOnly) {
  AddingBinder binder;
  TextStore store;
  Options options = WithFlags(StoreFlags::kCipherRequired | StoreFlags::kNoCompression);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "p", "abc"));
  const std::string bytes = Saved(store);
  const StoreBytes::StoreFile file = Parse(bytes, Decipher);
  EXPECT_EQ(file.fileFlags, 2U | 4U | 8U);
  EXPECT_EQ(bytes.size(), 40U + 16 + 12 + 11 + 12 + 5);
  EXPECT_EQ(binder.calls, (Texts{"GetHeader 8192", "Serialize 11", "Serialize 5"}));
}

TEST_F(StoreFileWrite, BinderOfAStoreThatDoesNotCipherOnlyGivesTheBlob) {
  AddingBinder binder;
  TextStore store;
  Options options = WithFlags(0);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "p", "abc"));
  EXPECT_EQ(Parse(Saved(store)).blob.size(), 16U);
  EXPECT_EQ(binder.calls, Texts{"GetHeader 8192"});
}

TEST_F(StoreFileWrite, BinderWithoutAHeaderIsAWarningAndGivesNoBlob) {
  AddingBinder binder;
  binder.givesHeader = false;
  TextStore store;
  Options options = WithFlags(0);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "p", "abc"));
  LogCapture log;
  const StoreBytes::StoreFile file = Parse(Saved(store));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreBlobMissing"});
  EXPECT_EQ(file.blob, "");
  EXPECT_EQ(file.entryCount, 1U);
}

TEST_F(StoreFileWrite, BlobOf8192BytesIsTheLargest) {
  AddingBinder binder;
  binder.blobSize = 8192;
  TextStore store;
  Options options = WithFlags(0);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  EXPECT_EQ(Parse(Saved(store)).blob.size(), 8192U);
  binder.blobSize = 8193;
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreBlobTooLarge", "3 velmar.StoreNotWritten"}));
  EXPECT_EQ(log.Arguments("velmar.StoreBlobTooLarge"), Texts{"8193"});
}

TEST_F(StoreFileWrite, CipherWithoutABinderFails) {
  AddingBinder binder;
  TextStore store;
  Options options = WithFlags(StoreFlags::kCipherRequired);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  MapDBTestAccess::ForgetBinder(store);
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreBinderMissing", "3 velmar.StoreNotWritten"}));
}

TEST_F(StoreFileWrite, BinderThatDoesNotCipherFailsTheSave) {
  AddingBinder binder;
  binder.ciphers = false;
  TextStore store;
  Options options = WithFlags(StoreFlags::kCipherRequired);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "p", "abc"));
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreBlockNotCiphered", "3 velmar.StoreNotWritten"}));
}

TEST_F(StoreFileWrite, EmptyCipheredBlockFailsTheSave) {
  class SilentBinder final : public AddingBinder {
   public:
    bool Serialize(const void* /*data*/, u32 /*size*/, Buffer& /*output*/) override { return true; }
  };
  SilentBinder binder;
  TextStore store;
  Options options = WithFlags(StoreFlags::kCipherRequired);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "p", "abc"));
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreBlockNotCiphered", "3 velmar.StoreNotWritten"}));
}

TEST_F(StoreFileWrite, BaseBinderNeitherCiphersNorDeciphers) {
  class BlobBinder final : public ISerializedDataBinder {
   public:
    bool GetHeader(void* /*area*/, u32 /*size*/, u32& outSize) override {
      outSize = 0;
      return true;
    }
    bool SetHeader(const void* /*data*/, u32 /*size*/, u32 /*dataVersion*/) override { return true; }
  };
  BlobBinder binder;
  Buffer output(true);
  EXPECT_FALSE(binder.Serialize("a", 1, output));
  EXPECT_FALSE(binder.Deserialize("a", 1, output));
}

TEST_F(StoreFileWrite, PageIsClosedBeforeItWouldPassItsLimit) {
  TextStore store;
  ASSERT_TRUE(Open(store, WithFlags(StoreFlags::kNoCompression)));
  // With both length words the first two records fill a page exactly.
  const u32 half = kPageLimit / 2 - 8;
  for (const char* key : {"a", "b", "c", "d", "e"}) {
    ASSERT_TRUE(Put(store, key, std::string(key == std::string("d") ? half + 1 : half, key[0])));
  }
  const StoreBytes::StoreFile file = Parse(Saved(store));
  ASSERT_EQ(file.pages.size(), 4U);
  EXPECT_EQ(file.pages[0].size(), kPageLimit);
  EXPECT_EQ(file.pages[1], BufferRecord(std::string(half, 'c'))) << "one byte more would not fit";
  EXPECT_EQ(file.pages[2], BufferRecord(std::string(half + 1, 'd')));
  EXPECT_EQ(file.pages[3], BufferRecord(std::string(half, 'e')));
  TextStore copy;
  ASSERT_TRUE(Open(copy, WithFlags(0)));
  EXPECT_EQ(KeysOf(copy), (Texts{"a", "b", "c", "d", "e"}));
  EXPECT_EQ(Get(copy, "d"), std::string(half + 1, 'd'));
}

TEST_F(StoreFileWrite, ValueLargerThanAPageStandsAlone) {
  TextStore store;
  ASSERT_TRUE(Open(store, WithFlags(0)));
  ASSERT_TRUE(Put(store, "a", "small"));
  ASSERT_TRUE(Put(store, "b", std::string(kPageLimit + 1, 'b')));
  ASSERT_TRUE(Put(store, "c", "small"));
  const StoreBytes::StoreFile file = Parse(Saved(store));
  ASSERT_EQ(file.pages.size(), 3U);
  EXPECT_EQ(file.pages[0], BufferRecord("small"));
  EXPECT_EQ(file.pages[1].size(), kPageLimit + 9);
  EXPECT_EQ(file.pages[2], BufferRecord("small"));
  TextStore copy;
  ASSERT_TRUE(Open(copy, WithFlags(0)));
  EXPECT_EQ(Get(copy, "b"), std::string(kPageLimit + 1, 'b'));
  EXPECT_EQ(Get(copy, "c"), "small");
}

TEST_F(StoreFileWrite, LargestValueFillsABlockAndComesBack) {
  TextStore store;
  ASSERT_TRUE(Open(store, WithFlags(StoreFlags::kNoCompression)));
  ASSERT_TRUE(Put(store, "a", std::string(kLargest - 8, 'a')));
  EXPECT_EQ(StoreBytes::WordAt(Saved(store), 44), kLargest);
  TextStore copy;
  ASSERT_TRUE(Open(copy, WithFlags(StoreFlags::kNoCompression)));
  EXPECT_EQ(Get(copy, "a")->size(), kLargest - 8);
}

TEST_F(StoreFileWrite, ValueThatCannotBeSerialisedFailsTheSaveOrIsSkipped) {
  for (const u32 skip : {0U, StoreFlags::kSkipUnserializable}) {
    TextStore store;
    ASSERT_TRUE(Open(store, WithFlags(skip)));
    ASSERT_TRUE(Put(store, "a", "1"));
    ASSERT_TRUE(Put(store, "b", std::string(kLargest, 'b')));
    ASSERT_TRUE(Put(store, "c", "3"));
    LogCapture log;
    EXPECT_EQ(store.Save(), skip != 0);
    EXPECT_EQ(log.Lines(), skip != 0 ? Lines{"3 velmar.StoreValueNotSerialised"}
                                     : (Lines{"3 velmar.StoreValueNotSerialised", "3 velmar.StoreNotWritten"}));
  }
  const StoreBytes::StoreFile file = Parse(FileContent(kPath));
  EXPECT_EQ(file.entryCount, 2U);
  EXPECT_EQ(file.index, Counted("a") + Counted("c"));
  EXPECT_EQ(file.pages, Texts{BufferRecord("1") + BufferRecord("3")});
}

TEST_F(StoreFileWrite, ValueThatFitsNoPageFailsTheSaveWithEitherFlag) {
  for (const u32 skip : {0U, StoreFlags::kSkipUnserializable}) {
    TextStore store;
    ASSERT_TRUE(Open(store, WithFlags(skip)));
    ASSERT_TRUE(Put(store, "b", std::string(kLargest - 4, 'b')));
    LogCapture log;
    EXPECT_FALSE(store.Save());
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StorePageFull", "3 velmar.StoreNotWritten"}));
    EXPECT_FALSE(FileIsThere(kPath));
  }
}

TEST_F(StoreFileWrite, PageWhoseCompressionCouldPassABlockFailsTheSave) {
  TextStore store;
  ASSERT_TRUE(Open(store, WithFlags(0)));
  ASSERT_TRUE(Put(store, "b", std::string(kLargest - 8, 'b')));
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreBlockNotCompressed", "3 velmar.StoreNotWritten"}));
}

TEST_F(StoreFileWrite, KeyThatFitsNoIndexFailsTheSaveOrIsSkippedWithItsValue) {
  // The length word of the second still fits behind the key "a", its bytes do not.
  for (const u32 length : {kLargest, kLargest - 8}) {
    for (const u32 skip : {0U, StoreFlags::kSkipUnserializable}) {
      const std::string key(length, 'k');
      TextStore store;
      ASSERT_TRUE(Open(store, WithFlags(skip | StoreFlags::kNoLoadOnInit)));
      ASSERT_TRUE(Put(store, "a", "1"));
      ASSERT_TRUE(Put(store, key.c_str(), "2"));
      ASSERT_TRUE(Put(store, "c", "3"));
      LogCapture log;
      EXPECT_EQ(store.Save(), skip != 0);
      EXPECT_EQ(log.Names(2).front(), "velmar.StoreKeyNotSerialised");
      EXPECT_EQ(log.CountLevel(3), skip != 0 ? 1 : 2);
    }
    const StoreBytes::StoreFile file = Parse(FileContent(kPath));
    EXPECT_EQ(file.entryCount, 2U);
    EXPECT_EQ(file.index, Counted("a") + Counted("c"));
    EXPECT_EQ(file.pages, Texts{BufferRecord("1") + BufferRecord("3")});
  }
}

TEST_F(StoreFileWrite, SaveThatSkippedEverythingHasAnEmptyIndexBlock) {
  for (const u32 plain : {0U, StoreFlags::kNoCompression}) {
    TextStore store;
    ASSERT_TRUE(Open(store, WithFlags(StoreFlags::kSkipUnserializable | StoreFlags::kNoLoadOnInit | plain)));
    ASSERT_TRUE(Put(store, "b", std::string(kLargest, 'b')));
    const StoreBytes::StoreFile file = Parse(Saved(store));
    EXPECT_EQ(file.entryCount, 0U);
    EXPECT_EQ(file.indexPosition, 40U);
    EXPECT_TRUE(file.hasIndex);
    EXPECT_EQ(file.index, "");
    TextStore copy;
    EXPECT_TRUE(Open(copy, WithFlags(plain)));
    EXPECT_EQ(copy.GetCount(), 0U);
  }
}

TEST_F(StoreFileWrite, EmptyIndexThatIsOnlyCipheredFailsTheSave) {
  AddingBinder binder;
  TextStore store;
  Options options =
      WithFlags(StoreFlags::kSkipUnserializable | StoreFlags::kCipherRequired | StoreFlags::kNoCompression);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "b", std::string(kLargest, 'b')));
  LogCapture log;
  EXPECT_FALSE(store.Save()) << "a ciphered block may not be empty";
  EXPECT_EQ(log.Names(2)[1], "velmar.StoreBlockNotCiphered");
}

TEST_F(StoreFileWrite, EachFailedWriteIsToldByItsPlace) {
  AddingBinder binder;
  TextStore store;
  Options options = WithFlags(StoreFlags::kCipherRequired);
  options.binder = &binder;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "p", "abc"));
  // In file order: placeholder, blob, words and payload of a page and of the index, the sealed header.
  const Texts places = {"HeaderNotWritten", "BlobNotWritten",  "BlockNotWritten", "BlockNotWritten",
                        "BlockNotWritten",  "BlockNotWritten", "HeaderNotWritten"};
  for (u64 n = 0; n < places.size(); ++n) {
    LogCapture log;
    Sim::FailFileOperation(Sim::Operation::kWrite, n, Sim::Fault::kTear);
    EXPECT_FALSE(store.Save());
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.Store" + places[n], "3 velmar.StoreNotWritten"})) << n;
    EXPECT_FALSE(FileIsThere(kPath));
    EXPECT_FALSE(FileIsThere(kTemporaryPath));
  }
  Sim::FailFileOperation(Sim::Operation::kWrite, places.size(), Sim::Fault::kTear);
  EXPECT_TRUE(store.Save()) << "those were all writes";
  Sim::ClearFaults();
}

TEST_F(StoreFileWrite, HeaderHasNoMagicUntilTheLastWrite) {
  TextStore store;
  ASSERT_TRUE(Open(store, WithFlags(0)));
  ASSERT_TRUE(Put(store, "a", "1"));
  Sim::FailFileOperation(Sim::Operation::kSeek, 0, Sim::Fault::kKill);
  EXPECT_FALSE(store.Save());
  Sim::Reboot(0);
  const std::string bytes = FileContent(kTemporaryPath);
  EXPECT_EQ(bytes.substr(0, 4), Word(0));
  EXPECT_EQ(StoreBytes::WordAt(bytes, 4), 2U);
  EXPECT_EQ(StoreBytes::WordAt(bytes, 36), 0U);
  EXPECT_GT(bytes.size(), 60U);
}

TEST_F(StoreFileWrite, StoreThatIsNotInitialisedHasNoStoredForm) {
  TextStore store;
  OS::File file;
  LogCapture log;
  EXPECT_FALSE(store.WriteStoreFile(file));
  EXPECT_FALSE(store.ReadStoreFile(file));
  EXPECT_EQ(log.Lines(), Lines(2, "3 velmar.StoreNoWorkBuffers"));
}

}  // namespace
