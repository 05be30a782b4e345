// Loading files that were put together byte by byte: what is taken, what is ignored, what is refused.
#include <string>

#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/StoreBytes.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using StoreBytes::BufferRecord;
using StoreBytes::Build;
using StoreBytes::Counted;
using StoreBytes::TextFile;
using StoreBytes::Word;
using Texts = std::vector<std::string>;

std::string Cipher(const std::string& plain) {
  std::string bytes = plain;
  for (char& byte : bytes) {
    byte = static_cast<char>(byte + 7);
  }
  return bytes;
}

Options Reading(ISerializedDataBinder* binder = nullptr, u32 flags = 0) {
  Options options = AtPath(StoreFlags::kNoSaveOnClose | flags);
  options.maximum = 10;
  options.binder = binder;
  return options;
}

// Loads `bytes`; false with the records at level 2 and above in `lines`.
template <class Store>
bool Loads(Store& store, const std::string& bytes, const Options& options, Lines* lines = nullptr) {
  Sim::PutFile(kPath, bytes);
  LogCapture log;
  const bool loaded = Open(store, options);
  if (lines != nullptr) {
    *lines = log.Lines();
  }
  return loaded;
}

// The record in which a load of `bytes` was refused; those that follow every refusal are checked here.
template <class Store = TextStore>
std::string RefusalOf(const std::string& bytes, const Options& options = Reading()) {
  Store store;
  Lines lines;
  EXPECT_FALSE(Loads(store, bytes, options, &lines));
  if (lines.size() < 3) {
    ADD_FAILURE() << "a failed load has more records";
    return "";
  }
  EXPECT_EQ(lines.back(), "3 velmar.StoreInitLoadFailed");
  lines.pop_back();
  EXPECT_EQ(lines.back(), "5 velmar.StoreNotLoaded");
  lines.pop_back();
  if (lines.back() == "3 velmar.StoreHeaderRefused") {
    lines.pop_back();
    return lines.empty() ? "" : lines.back();
  }
  EXPECT_EQ(lines.size(), 1U);
  return lines.back();
}

// Replaces the word at `offset` of a header and seals it again.
std::string WithHeaderWord(std::string bytes, std::size_t offset, u32 value) {
  bytes.replace(offset, 4, Word(value));
  StoreBytes::SealHeader(bytes);
  return bytes;
}

const StoreBytes::StoreFile& TwoEntries() {
  static const StoreBytes::StoreFile file = TextFile({{"b", "1"}, {"a", "22"}});
  return file;
}

TEST(StoreFileRead, EntriesComeBackInFileOrder) {
  TextStore store;
  ASSERT_TRUE(Loads(store, Build(TwoEntries()), Reading()));
  EXPECT_EQ(KeysOf(store), (Texts{"b", "a"}));
  EXPECT_EQ(Get(store, "a"), "22");
}

TEST(StoreFileRead, UncompressedFileLoadsWhateverTheStoreWouldWrite) {
  StoreBytes::StoreFile file = TwoEntries();
  file.fileFlags |= 8;
  TextStore store;
  ASSERT_TRUE(Loads(store, Build(file), Reading()));
  EXPECT_EQ(Get(store, "b"), "1");
}

TEST(StoreFileRead, EmptyFileReadsNoBlock) {
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(TextFile({})), Reading()));
  EXPECT_EQ(store.GetCount(), 0U);
}

TEST(StoreFileRead, CountOfZeroIgnoresTheBlocks) {
  TextStore store;
  const std::string bytes = WithHeaderWord(Build(TwoEntries()), 12, 0);
  EXPECT_TRUE(Loads(store, bytes.substr(0, 60), Reading()));
  EXPECT_EQ(store.GetCount(), 0U);
}

TEST(StoreFileRead, BytesBehindTheIndexAreIgnored) {
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(TwoEntries()) + "more", Reading()));
  EXPECT_EQ(store.GetCount(), 2U);
}

TEST(StoreFileRead, FileThatIsTooShortForItsHeaderFails) {
  const std::string bytes = Build(TwoEntries());
  for (std::size_t size = 0; size < 40; ++size) {
    EXPECT_EQ(RefusalOf(bytes.substr(0, size)), "5 velmar.StoreHeaderNotRead") << size;
  }
}

TEST(StoreFileRead, WrongMagicFails) {
  EXPECT_EQ(RefusalOf(WithHeaderWord(Build(TwoEntries()), 0, 0)), "5 velmar.StoreHeaderMagicWrong");
}

TEST(StoreFileRead, UnknownFormatVersionFailsWithoutARecordOfItsOwn) {
  EXPECT_EQ(RefusalOf(WithHeaderWord(Build(TwoEntries()), 4, 3)), "");
  EXPECT_EQ(RefusalOf(WithHeaderWord(Build(TwoEntries()), 4, 0)), "");
}

TEST(StoreFileRead, WrongHeaderCrcFails) {
  std::string bytes = Build(TwoEntries());
  bytes[36] = static_cast<char>(bytes[36] ^ 1);
  EXPECT_EQ(RefusalOf(bytes), "5 velmar.StoreHeaderCrcWrong");
}

// The 36 bytes of a version 1 header.
std::string Version1Header() {
  const std::string fields = "RYLB" + Word(1) + Word(1) + Word(2) + Word(2) + Word(0) + Word(60) + Word(0);
  return fields + Word(StoreBytes::Crc32(fields));
}

TEST(StoreFileRead, Version1FileIsVerifiedAndCountsAsEmpty) {
  TextStore store;
  Lines lines;
  EXPECT_TRUE(Loads(store, Version1Header() + "whatever follows", Reading(), &lines));
  EXPECT_EQ(store.GetCount(), 0U);
  EXPECT_EQ(lines, Lines{});
  TextStore bare;
  EXPECT_TRUE(Loads(bare, Version1Header(), Reading())) << "36 bytes are all of it";
}

TEST(StoreFileRead, DamagedVersion1FileFails) {
  std::string bytes = Version1Header();
  bytes[12] = '\3';
  EXPECT_EQ(RefusalOf(bytes), "5 velmar.StoreHeaderCrcWrong");
}

TEST(StoreFileRead, NewerDataVersionCountsAsEmptyWithAWarning) {
  StoreBytes::StoreFile file = TwoEntries();
  file.dataVersion = 0x10001;
  TextStore store;
  Lines lines;
  EXPECT_TRUE(Loads(store, Build(file), Reading(), &lines));
  EXPECT_EQ(store.GetCount(), 0U);
  EXPECT_EQ(lines, Lines{"3 velmar.StoreFileOfOtherVersion"});
}

TEST(StoreFileRead, OlderDataVersionLoadsUnlessItMustBeExact) {
  Options options = Reading();
  options.version = 5;
  TextStore tolerant;
  EXPECT_TRUE(Loads(tolerant, Build(TwoEntries()), options));
  EXPECT_EQ(tolerant.GetCount(), 2U);
  options.flags |= StoreFlags::kExactVersionOnly;
  TextStore exact;
  Sim::PutFile(kPath, Build(TwoEntries()));
  LogCapture log;
  EXPECT_TRUE(Open(exact, options));
  EXPECT_EQ(exact.GetCount(), 0U);
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreFileOfOtherVersion"});
  EXPECT_EQ(log.Arguments("velmar.StoreFileOfOtherVersion"), (Texts{"1", "5"}));
}

TEST(StoreFileRead, SameDataVersionLoadsWhenItMustBeExact) {
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(TwoEntries()), Reading(nullptr, StoreFlags::kExactVersionOnly)));
  EXPECT_EQ(store.GetCount(), 2U);
}

StoreBytes::StoreFile WithBlob(u32 moreFlags) {
  StoreBytes::StoreFile file = TwoEntries();
  file.fileFlags |= moreFlags;
  file.dataVersion = 1;
  file.blob = "0123456789abcdef";
  return file;
}

TEST(StoreFileRead, BinderGetsTheBlobThenTheBlocksInTheirOrder) {
  StoreBytes::StoreFile file = WithBlob(4 | 8);
  file.pages = {BufferRecord("1"), BufferRecord("22"), BufferRecord("333")};
  file.index += Counted("c");
  file.entryCount = 3;
  AddingBinder binder;
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(file, Cipher), Reading(&binder)));
  EXPECT_EQ(binder.blob, file.blob);
  EXPECT_EQ(binder.calls,
            (Texts{"SetHeader 16 1", "Deserialize 9", "Deserialize 15", "Deserialize 10", "Deserialize 11"}));
  EXPECT_EQ(KeysOf(store), (Texts{"b", "a", "c"}));
  EXPECT_EQ(Get(store, "c"), "333");
}

TEST(StoreFileRead, BlobWithoutACipherGoesToTheBinderAllTheSame) {
  AddingBinder binder;
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(WithBlob(0)), Reading(&binder)));
  EXPECT_EQ(binder.calls, Texts{"SetHeader 16 1"});
}

TEST(StoreFileRead, BlobWithoutACipherIsSkippedWithoutABinder) {
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(WithBlob(0)), Reading()));
  EXPECT_EQ(store.GetCount(), 2U);
}

TEST(StoreFileRead, FileWithoutABlobDoesNotCallTheBinderForIt) {
  AddingBinder binder;
  StoreBytes::StoreFile file = TwoEntries();
  file.fileFlags |= 4;
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(file, Cipher), Reading(&binder)));
  EXPECT_EQ(binder.calls.size(), 2U);
  EXPECT_EQ(store.GetCount(), 2U);
}

TEST(StoreFileRead, EmptyFileGivesItsBlobToTheBinderAllTheSame) {
  StoreBytes::StoreFile file = TextFile({});
  file.fileFlags |= 4;
  file.blob = "0123456789abcdef";
  AddingBinder binder;
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(file), Reading(&binder)));
  EXPECT_EQ(binder.calls, Texts{"SetHeader 16 1"});
  EXPECT_EQ(RefusalOf(Build(file)), "3 velmar.StoreBinderMissing") << "the cipher is asked for before the entries";
}

TEST(StoreFileRead, FileOfAnotherVersionNeverReachesTheBinder) {
  StoreBytes::StoreFile newer = WithBlob(4);
  newer.dataVersion = 2;
  AddingBinder binder;
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(newer, Cipher), Reading(&binder)));
  Lines lines;
  TextStore bare;
  EXPECT_TRUE(Loads(bare, Build(newer, Cipher), Reading(), &lines)) << "not even one is needed";
  EXPECT_EQ(lines, Lines{"3 velmar.StoreFileOfOtherVersion"});
  Options exact = Reading(&binder, StoreFlags::kExactVersionOnly);
  exact.version = 3;
  TextStore older;
  EXPECT_TRUE(Loads(older, Build(newer, Cipher), exact));
  TextStore old;
  EXPECT_TRUE(Loads(old, Version1Header() + "whatever follows", Reading(&binder)));
  EXPECT_EQ(binder.calls, Texts{});
  EXPECT_EQ(store.GetCount() + bare.GetCount() + older.GetCount() + old.GetCount(), 0U);
}

TEST(StoreFileRead, CipheredFileWithoutABinderFails) {
  EXPECT_EQ(RefusalOf(Build(WithBlob(4), Cipher)), "3 velmar.StoreBinderMissing");
}

TEST(StoreFileRead, RefusedBlobFails) {
  AddingBinder binder;
  binder.takesHeader = false;
  EXPECT_EQ(RefusalOf(Build(WithBlob(0)), Reading(&binder)), "3 velmar.StoreBlobRefused");
}

TEST(StoreFileRead, DamagedBlobNeverReachesTheBinder) {
  AddingBinder binder;
  std::string bytes = Build(WithBlob(0));
  bytes[45] = 'x';
  EXPECT_EQ(RefusalOf(bytes, Reading(&binder)), "3 velmar.StoreBlobCrcWrong");
  EXPECT_EQ(binder.calls, Texts{});
}

TEST(StoreFileRead, BlobWithoutACrcIsNotChecked) {
  AddingBinder binder;
  TextStore store;
  EXPECT_TRUE(Loads(store, WithHeaderWord(Build(WithBlob(0)), 32, 0), Reading(&binder)));
}

TEST(StoreFileRead, BlobThatIsTooLargeOrTooShortFails) {
  AddingBinder binder;
  const std::string bytes = Build(WithBlob(0));
  EXPECT_EQ(RefusalOf(WithHeaderWord(bytes, 28, 8193), Reading(&binder)), "3 velmar.StoreBlobTooLarge");
  EXPECT_EQ(RefusalOf(WithHeaderWord(bytes, 28, 0xFFFFFFFF)), "3 velmar.StoreBlobTooLarge");
  EXPECT_EQ(RefusalOf(bytes.substr(0, 50), Reading(&binder)), "3 velmar.StoreBlobNotRead");
}

TEST(StoreFileRead, CountAboveTheMaximumFails) {
  Options options = Reading();
  options.maximum = 3;
  const std::string bytes = Build(TextFile({{"a", ""}, {"b", ""}, {"c", ""}, {"d", ""}}));
  EXPECT_EQ(RefusalOf(bytes, options), "3 velmar.StoreAboveMaximum");
  EXPECT_EQ(RefusalOf(WithHeaderWord(bytes, 12, 0xFFFFFFFF), options), "3 velmar.StoreAboveMaximum");
  options.flags |= StoreFlags::kClearOnLoadFailure;
  TextStore store;
  EXPECT_TRUE(Loads(store, bytes, options));
  EXPECT_EQ(store.GetCount(), 0U);
}

TEST(StoreFileRead, CountThatTheFileCannotHoldTakesNoMemory) {
  TestAllocator memory;
  Options options = Reading();
  options.maximum = 0xFFFFFFFF;
  const std::string bytes = Build(TwoEntries());
  for (const u32 count : {100000U, 0x10000000U, 0xFFFFFFFFU}) {
    memory.lastSize = 0;
    EXPECT_EQ(RefusalOf(WithHeaderWord(bytes, 12, count), options), "3 velmar.StoreFileTooSmall") << count;
    EXPECT_LT(memory.lastSize, 200U);
  }
  // Pages that are only claimed hold nothing either.
  const std::string far = WithHeaderWord(WithHeaderWord(bytes, 12, 100000), 24, 0xFFFFFFFF);
  EXPECT_EQ(RefusalOf(far, options), "3 velmar.StoreFileTooSmall");
}

TEST(StoreFileRead, FileThatIsMostlyZeroesIsNotTakenForTooSmall) {
  StoreBytes::StoreFile file;
  file.entryCount = 100000;
  file.hasIndex = true;
  file.keyEntrySize = 4;
  file.fileFlags = 1;
  file.pages.emplace_back();
  for (u32 i = 0; i < file.entryCount; ++i) {
    file.pages[0] += StoreBytes::CacheRecord(0, 0, false);
    file.index += Word(i);
  }
  Options options = Reading();
  options.maximum = 100000;
  NumberStore store;
  EXPECT_TRUE(Loads(store, Build(file), options));
  EXPECT_EQ(store.GetCount(), 100000U);
}

TEST(StoreFileRead, CountAboveWhatThePagesHoldFailsAtTheIndex) {
  Options options = Reading();
  const std::string bytes = Build(TwoEntries());
  EXPECT_EQ(RefusalOf(WithHeaderWord(bytes, 12, 3), options), "3 velmar.StoreFilePagesEnd");
}

TEST(StoreFileRead, KeyThatStandsTwiceFails) {
  EXPECT_EQ(RefusalOf(Build(TextFile({{"a", "1"}, {"b", "2"}, {"a", "3"}}))), "3 velmar.StoreKeyStandsTwice");
}

TEST(StoreFileRead, KeyOutsideTheTableOfAnIndexFails) {
  StoreBytes::StoreFile file;
  file.entryCount = 1;
  file.hasIndex = true;
  file.fileFlags = 1;
  file.keyEntrySize = 4;
  file.pages = {StoreBytes::CacheRecord(1, 2, true)};
  file.index = Word(10);
  Options options = Reading();
  options.flags = StoreFlags::kIndexSearch;
  Sim::PutFile(kPath, Build(file));
  NumberStore store;
  LogCapture log;
  EXPECT_FALSE(Open(store, options));
  EXPECT_EQ(log.Names(2).front(), "velmar.IndexPositionOutOfRange");
  EXPECT_EQ(log.Count("velmar.StoreIndexRefusedEntry"), 1);
}

TEST(StoreFileRead, KeysThatLeaveTheIndexFail) {
  StoreBytes::StoreFile file = TwoEntries();
  for (const std::string& second : {std::string(), std::string("\1\0", 2), Word(1), Word(2) + "a",
                                    Word(0x7FFFFFFF) + "a", Word(0xFFFFFFFF) + "a"}) {
    file.index = Counted("b") + second;
    EXPECT_EQ(RefusalOf(Build(file)), "3 velmar.StoreKeyNotRead");
  }
}

TEST(StoreFileRead, NumberKeysMustHaveTheirSize) {
  StoreBytes::StoreFile file;
  file.entryCount = 1;
  file.hasIndex = true;
  file.fileFlags = 1;
  file.pages = {StoreBytes::CacheRecord(1, 2, true)};
  file.index = std::string(16, '\1');
  for (const u32 size : {0U, 3U, 5U, 16U, 0xFFFFFFFFU}) {
    file.keyEntrySize = size;
    EXPECT_EQ(RefusalOf<NumberStore>(Build(file)), "3 velmar.StoreKeyNotRead");
  }
  for (const u32 size : {0U, 4U, 17U, 0xFFFFFFFFU}) {
    file.keyEntrySize = size;
    EXPECT_EQ(RefusalOf<WideStore>(Build(file)), "3 velmar.StoreKeyNotRead");
  }
  file.keyEntrySize = 4;
  file.index = "abc";
  EXPECT_EQ(RefusalOf<NumberStore>(Build(file)), "3 velmar.StoreKeyNotRead");
  file.fileFlags = 2;
  file.index = Counted("abcd");
  EXPECT_EQ(RefusalOf<NumberStore>(Build(file)), "3 velmar.StoreKeyNotRead") << "eight bytes with its length";
}

TEST(StoreFileRead, TextStoreTakesKeysOfOneSizeFromAFileThatHasThem) {
  StoreBytes::StoreFile file = TwoEntries();
  file.fileFlags = 1;
  file.keyEntrySize = 3;
  file.index = "keybox";
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(file), Reading()));
  EXPECT_EQ(KeysOf(store), (Texts{"key", "box"}));
  file.keyEntrySize = 0;
  EXPECT_EQ(RefusalOf(Build(file)), "3 velmar.StoreKeyStandsTwice") << "two empty ones";
}

TEST(StoreFileRead, RecordsThatLeaveThePageFail) {
  StoreBytes::StoreFile file = TextFile({{"a", "1"}});
  for (const std::string& page : {Word(6) + Word(1) + "1", Word(0xFFFFFFFF) + Word(1) + "1", std::string("\5\0\0", 3),
                                  Word(0), Word(3) + "abc", Counted(Word(2) + "1"), Counted(Word(0xFFFFFFFF) + "1")}) {
    file.pages = {page};
    EXPECT_EQ(RefusalOf(Build(file)), "3 velmar.StoreValueNotRead");
  }
}

TEST(StoreFileRead, BytesBehindAValueInItsRecordAreIgnored) {
  StoreBytes::StoreFile file = TwoEntries();
  file.pages = {Counted(Counted("1") + "rest") + BufferRecord("22")};
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(file), Reading()));
  EXPECT_EQ(Get(store, "b"), "1");
  EXPECT_EQ(Get(store, "a"), "22");
}

TEST(StoreFileRead, CacheValueThatIsTooShortFails) {
  StoreBytes::StoreFile file;
  file.entryCount = 1;
  file.hasIndex = true;
  file.fileFlags = 1;
  file.keyEntrySize = 4;
  file.index = Word(1);
  file.pages = {Counted(std::string(16, '\1'))};
  Sim::PutFile(kPath, Build(file));
  NumberStore store;
  LogCapture log;
  EXPECT_FALSE(Open(store, Reading()));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.CacheValueNotRead", "3 velmar.StoreValueNotRead", "5 velmar.StoreNotLoaded",
                                "3 velmar.StoreInitLoadFailed"}));
}

TEST(StoreFileRead, EmptyPageInFrontIsUsedUpAtOnce) {
  StoreBytes::StoreFile file = TwoEntries();
  file.fileFlags |= 8;
  file.pages.insert(file.pages.begin(), "");
  TextStore store;
  EXPECT_TRUE(Loads(store, Build(file), Reading()));
  EXPECT_EQ(store.GetCount(), 2U);
  file.pages.insert(file.pages.begin(), "");
  EXPECT_EQ(RefusalOf(Build(file)), "3 velmar.StoreValueNotRead") << "the second is a page without its record";
}

TEST(StoreFileRead, IndexPositionThatPointsElsewhereFails) {
  const std::string bytes = Build(TwoEntries());
  EXPECT_EQ(RefusalOf(WithHeaderWord(bytes, 24, 0)), "3 velmar.StoreBlockCrcWrong");
  EXPECT_EQ(RefusalOf(WithHeaderWord(bytes, 24, 41)), "3 velmar.StoreBlockTooLarge");
  EXPECT_EQ(RefusalOf(WithHeaderWord(bytes, 24, 0xFFFFFFFF)), "3 velmar.StoreBlockNotRead");
}

}  // namespace
