// The verdict cache's file: when it is written, read, given up and deleted.
#include <functional>

#include "tests/cloud/CloudFixture.h"
#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/StoreBytes.h"

namespace CloudTest {
namespace {

using Sim::Fault;
using Sim::Operation;

template <class T>
class CloudStatusFileTest : public CloudTest<T> {
 protected:
  // The records of the folder `cloud` alone, those of level 1 included.
  static Lines CloudLines(const LogCapture& log) {
    Lines lines;
    for (const std::string& line : log.Lines(1)) {
      if (line.find(" cloud.") != std::string::npos) {
        lines.push_back(line);
      }
    }
    return lines;
  }
  // A file that cannot be loaded is in its place: it is given up, and the cache opens empty.
  void ExpectGivenUp(const std::string& content, const std::string& what) {
    SCOPED_TRACE(what);
    Sim::PutFile(this->File(), content);
    CloudStatus<T> status;
    LogCapture log;
    EXPECT_TRUE(status.Open(kFolder, true));
    EXPECT_EQ(CloudLines(log), (Lines{"3 cloud.CacheNotOpened", "3 cloud.CacheFileGivenUp"}));
    EXPECT_EQ(log.Arguments("cloud.CacheNotOpened"), (Lines{this->File(), "1"}));
    EXPECT_EQ(log.Arguments("cloud.CacheFileGivenUp"), Lines{this->File()});
    EXPECT_FALSE(this->FileIsThere());
    EXPECT_EQ(status.GetItemCount(), 0U);
    EXPECT_EQ(this->Verdict(status, 0), "unknown");
    EXPECT_TRUE(this->Learn(status, 0, true));
  }
};

TYPED_TEST_SUITE(CloudStatusFileTest, Families, );

TYPED_TEST(CloudStatusFileTest, FileWithoutAFolderIsRefused) {
  for (const char* folder : {static_cast<const char*>(nullptr), ""}) {
    CloudStatus<TypeParam> status;
    LogCapture log;
    EXPECT_FALSE(status.Open(folder, true));
    EXPECT_EQ(log.Lines(1), Lines{"5 cloud.CacheWithoutFolder"});
    this->ExpectKnowsNothing(status);
  }
}

TYPED_TEST(CloudStatusFileTest, WithoutAFolderTheCacheIsInMemory) {
  for (const char* folder : {static_cast<const char*>(nullptr), ""}) {
    const u64 operations = Sim::CountFileOperations();
    {
      CloudStatus<TypeParam> status;
      LogCapture log;
      EXPECT_TRUE(status.Open(folder, false));
      EXPECT_TRUE(log.Entries().empty());
      EXPECT_TRUE(this->Learn(status, 1, true));
      EXPECT_EQ(this->Verdict(status, 1), "harmless");
      EXPECT_EQ(status.GetCacheSizeOnDisk(), 0U);
      EXPECT_FALSE(status.SetPersistent(true)) << "there is no path";
      EXPECT_EQ(log.Lines(1), Lines{"5 cloud.CacheWithoutPath"});
      EXPECT_EQ(this->Verdict(status, 1), "harmless");
    }
    EXPECT_EQ(Sim::CountFileOperations(), operations);
  }
}

TYPED_TEST(CloudStatusFileTest, FolderMustExist) {
  Sim::PutFile("/data/file", "");
  for (const char* folder : {"/data/missing", "/data/file"}) {
    CloudStatus<TypeParam> status;
    LogCapture log;
    EXPECT_FALSE(status.Open(folder, false));
    EXPECT_EQ(log.Lines(1), Lines{"5 cloud.CacheFolderMissing"});
    EXPECT_EQ(log.Arguments("cloud.CacheFolderMissing"), Lines{folder});
    this->ExpectKnowsNothing(status);
  }
}

TYPED_TEST(CloudStatusFileTest, PathWithoutMemoryIsAnError) {
  CloudStatus<TypeParam> status;
  LogCapture log;
  Sim::FailAllocation(0);
  EXPECT_FALSE(status.Open(kFolder, true));
  EXPECT_EQ(log.Lines(1), Lines{"5 cloud.CachePathNotMade"});
  this->ExpectKnowsNothing(status);
  EXPECT_TRUE(status.Open(kFolder, true));
}

// Two trees, of nodes and of the root's children each.
TYPED_TEST(CloudStatusFileTest, TreesWithoutMemoryAreAnError) {
  for (u64 n = 0; n < 4; ++n) {
    CloudStatus<TypeParam> status;
    LogCapture log;
    Sim::FailAllocation(n);
    EXPECT_FALSE(status.Open(nullptr, false));
    Sim::FailAllocation(~u64{0});
    EXPECT_EQ(log.Lines(1), Lines{"5 cloud.CloudTreesNotCreated"}) << n;
    this->ExpectKnowsNothing(status);
    EXPECT_TRUE(status.Open(nullptr, false));
    EXPECT_TRUE(this->Learn(status, 1, true));
  }
}

TYPED_TEST(CloudStatusFileTest, PathThatTheStoreRefusesFailsAtOnce) {
  const std::string folder = "/" + std::string(185, 'd');
  ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(folder.c_str()));
  CloudStatus<TypeParam> status;
  LogCapture log;
  EXPECT_FALSE(status.Open(folder.c_str(), true));
  EXPECT_EQ(this->CloudLines(log), Lines{"3 cloud.CacheNotOpened"});
  EXPECT_EQ(log.Count("velmar.StorePathTooLong"), 1);
  this->ExpectKnowsNothing(status);
}

TYPED_TEST(CloudStatusFileTest, VerdictsSurviveARestartAndKeepTheirEnd) {
  {
    CloudStatus<TypeParam> status;
    ASSERT_TRUE(status.Open(kFolder, true));
    ASSERT_TRUE(this->Learn(status, 1, true));
    ASSERT_TRUE(this->Learn(status, 2, false));
    EXPECT_FALSE(this->FileIsThere()) << "a verdict is not written by itself";
    EXPECT_EQ(status.GetCacheSizeOnDisk(), 0U);
  }
  Sim::SetEpochTime(kTenOClock + kTwoDays);
  {
    CloudStatus<TypeParam> status;
    LogCapture log;
    ASSERT_TRUE(status.Open(kFolder, true));
    EXPECT_TRUE(log.Entries().empty());
    EXPECT_EQ(status.GetCacheSizeOnDisk(), this->Content().size());
    EXPECT_GT(status.GetCacheSizeOnDisk(), 40U);
    EXPECT_EQ(this->Verdict(status, 1), "harmless");
    EXPECT_EQ(this->Verdict(status, 2), "harmful");
  }
  Sim::SetEpochTime(kTenOClock + kTwoDays + 1);
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  EXPECT_EQ(status.GetItemCount(), 2U);
  EXPECT_EQ(this->Verdict(status, 1), "unknown");
  EXPECT_EQ(status.GetItemCount(), 1U);
}

// As docs/file-format.md has it.
TYPED_TEST(CloudStatusFileTest, FileHoldsTheAddressAnd17BytesOfEachVerdict) {
  this->WriteFile(2);
  const StoreBytes::StoreFile file = StoreBytes::Parse(this->Content());
  EXPECT_EQ(file.dataVersion, 1U);
  EXPECT_EQ(file.entryCount, 2U);
  EXPECT_EQ(file.fileFlags, 1U);
  EXPECT_EQ(file.keyEntrySize, TypeParam::kSize);
  std::string keys;
  for (const u32 number : {0U, 1U}) {
    const TypeParam address = this->Address(number);
    keys.append(reinterpret_cast<const char*>(address.bytes), TypeParam::kSize);
  }
  EXPECT_EQ(file.index, keys);
  EXPECT_EQ(file.pages, Lines{StoreBytes::CacheRecord(kTenOClock + kTwoDays, kTwoDays, true) +
                              StoreBytes::CacheRecord(kTenOClock + kTwoDays, kTwoDays, false)});
}

TYPED_TEST(CloudStatusFileTest, SwitchToWhatIsThereTouchesNothing) {
  this->WriteFile(2);
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  ASSERT_TRUE(this->Learn(status, 2, true));
  const u64 operations = Sim::CountFileOperations();
  const u64 allocations = Sim::CountAllocations();
  EXPECT_TRUE(status.SetPersistent(true));
  EXPECT_TRUE(status.Open(kFolder, true)) << "nor does a second opening but for the look at the folder";
  EXPECT_EQ(Sim::CountFileOperations(), operations + 1);
  EXPECT_LE(Sim::CountAllocations(), allocations + 1) << "the path; the trees that a job may be using stay";
  EXPECT_EQ(status.GetItemCount(), 3U);
  ASSERT_TRUE(status.SetPersistent(false));
  ASSERT_TRUE(this->Learn(status, 2, true));
  EXPECT_TRUE(status.SetPersistent(false));
  EXPECT_EQ(this->Verdict(status, 2), "harmless");
}

TYPED_TEST(CloudStatusFileTest, SwitchToMemoryForgetsAllAndDeletesTheFile) {
  this->WriteFile(2);
  const u64 saves = Sim::CountFileOperations(Operation::kMove);
  {
    CloudStatus<TypeParam> status;
    ASSERT_TRUE(status.Open(kFolder, true));
    LogCapture log;
    EXPECT_TRUE(status.SetPersistent(false));
    EXPECT_EQ(log.Lines(1), Lines{"1 cloud.CacheFileDeleted"});
    EXPECT_EQ(log.Arguments("cloud.CacheFileDeleted"), Lines{this->File()});
    EXPECT_EQ(Sim::CountFileOperations(Operation::kMove), saves + 1) << "saved before it is deleted";
    EXPECT_FALSE(this->FileIsThere());
    EXPECT_EQ(status.GetItemCount(), 0U);
    EXPECT_EQ(status.GetCacheSizeOnDisk(), 0U);
    EXPECT_TRUE(this->Learn(status, 5, true));
  }
  EXPECT_EQ(Sim::ListFiles(), Lines{}) << "and nothing is saved any more";
}

TYPED_TEST(CloudStatusFileTest, SwitchBackToTheFileStartsEmpty) {
  this->WriteFile(2);
  {
    CloudStatus<TypeParam> status;
    ASSERT_TRUE(status.Open(kFolder, true));
    ASSERT_TRUE(status.SetPersistent(false));
    ASSERT_TRUE(this->Learn(status, 1, true));
    LogCapture log;
    EXPECT_TRUE(status.SetPersistent(true));
    EXPECT_TRUE(log.Entries().empty());
    EXPECT_EQ(status.GetItemCount(), 0U) << "neither what was in memory nor what was on disk";
    EXPECT_TRUE(this->Learn(status, 7, true));
  }
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  EXPECT_EQ(status.GetItemCount(), 1U);
  EXPECT_EQ(this->Verdict(status, 7), "harmless");
}

TYPED_TEST(CloudStatusFileTest, OpeningInMemoryDeletesAnOldFile) {
  this->WriteFile(2);
  CloudStatus<TypeParam> status;
  EXPECT_TRUE(status.Open(kFolder, false));
  EXPECT_FALSE(this->FileIsThere());
  EXPECT_EQ(status.GetItemCount(), 0U);
}

TYPED_TEST(CloudStatusFileTest, FileThatCannotBeDeletedFailsTheSwitch) {
  this->WriteFile(2);
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  LogCapture log;
  // The first deletion is the save's, of the file that it replaces.
  Sim::FailFileOperation(Operation::kDelete, 1, Fault::kFail);
  EXPECT_FALSE(status.SetPersistent(false));
  EXPECT_EQ(log.Lines(1), Lines{"5 cloud.CacheFileNotDeleted"});
  EXPECT_EQ(log.Arguments("cloud.CacheFileNotDeleted"), Lines{this->File()});
  this->ExpectKnowsNothing(status);
  EXPECT_GT(status.GetCacheSizeOnDisk(), 0U) << "of the file, whether there is a cache or not";
  EXPECT_TRUE(status.SetPersistent(false)) << "the same again is done, as there is no cache";
  EXPECT_FALSE(this->FileIsThere());
  EXPECT_TRUE(this->Learn(status, 1, true));
}

TYPED_TEST(CloudStatusFileTest, CacheWithoutMemoryIsAnError) {
  TestAllocator memory;
  this->WriteFile(2);
  CloudStatus<TypeParam> status;
  LogCapture log;
  memory.FailRequest(0);
  EXPECT_FALSE(status.Open(kFolder, true));
  EXPECT_EQ(log.Lines(1), Lines{"5 cloud.NoCacheMemory"});
  this->ExpectKnowsNothing(status);
  EXPECT_TRUE(status.SetPersistent(true));
  EXPECT_EQ(status.GetItemCount(), 2U);
}

TYPED_TEST(CloudStatusFileTest, StoreWithoutMemoryFailsAtOnceWhereThereIsNoFile) {
  TestAllocator memory;
  for (const bool persistent : {true, false}) {
    CloudStatus<TypeParam> status;
    LogCapture log;
    memory.FailRequest(1);
    EXPECT_FALSE(status.Open(persistent ? kFolder : nullptr, persistent));
    EXPECT_EQ(this->CloudLines(log), Lines{"3 cloud.CacheNotOpened"});
    EXPECT_EQ(log.Arguments("cloud.CacheNotOpened"), (Lines{persistent ? this->File() : "", "1"}));
    this->ExpectKnowsNothing(status);
  }
}

TYPED_TEST(CloudStatusFileTest, DamagedFileIsGivenUpAndTheCacheOpensEmpty) {
  this->WriteFile(300);
  const std::string whole = this->Content();
  for (const std::size_t length :
       {std::size_t{0}, std::size_t{1}, std::size_t{39}, std::size_t{40}, whole.size() / 2, whole.size() - 1}) {
    this->ExpectGivenUp(whole.substr(0, length), "the first " + std::to_string(length) + " bytes");
  }
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::string bytes = whole;
    bytes[at] = static_cast<char>(bytes[at] ^ 0x10);
    this->ExpectGivenUp(bytes, "a wrong bit in byte " + std::to_string(at));
  }
  this->ExpectGivenUp("no store at all, but long enough for the header of one", "a text");
}

// A file whose checksums are right, and whose content is not that of this cache.
TYPED_TEST(CloudStatusFileTest, FileOfAnotherKindIsGivenUp) {
  using StoreBytes::StoreFile;
  this->WriteFile(2);
  const StoreFile whole = StoreBytes::Parse(this->Content());
  const std::string firstKey = whole.index.substr(0, TypeParam::kSize);
  const std::vector<std::pair<std::string, std::function<void(StoreFile&)>>> changes = {
      {"keys of another size", [](StoreFile& file) { file.keyEntrySize = 20 - TypeParam::kSize; }},
      {"text keys", [](StoreFile& file) { file.fileFlags = 2; }},
      {"a ciphered file", [](StoreFile& file) { file.fileFlags |= 4; }},
      {"more entries than the cache may have", [](StoreFile& file) { file.entryCount = 131073; }},
      {"more entries than it holds", [](StoreFile& file) { file.entryCount = 3; }},
      {"a key that stands twice", [&](StoreFile& file) { file.index = firstKey + firstKey; }},
      {"half of a key", [](StoreFile& file) { file.index.resize(file.index.size() - 1); }},
      {"half of a value", [](StoreFile& file) { file.pages[0].resize(file.pages[0].size() - 1); }},
      {"a value that is too short",
       [](StoreFile& file) {
         file.entryCount = 1;
         file.pages = {StoreBytes::Counted(std::string(16, 'v'))};
       }},
      {"no page", [](StoreFile& file) { file.pages.clear(); }},
  };
  for (const auto& [what, change] : changes) {
    StoreFile file = whole;
    file.hasIndex = true;
    change(file);
    this->ExpectGivenUp(StoreBytes::Build(file, [](const std::string& plain) { return plain; }), what);
  }
}

TYPED_TEST(CloudStatusFileTest, FileOfAnotherVersionIsAnEmptyOne) {
  for (const bool format : {true, false}) {
    StoreBytes::StoreFile file;
    file.fileFlags = 1;
    file.keyEntrySize = TypeParam::kSize;
    std::string bytes = StoreBytes::Build(file);
    if (format) {
      bytes = bytes.substr(0, 4) + StoreBytes::Word(1) + bytes.substr(8, 24);
      bytes += StoreBytes::Word(StoreBytes::Crc32(bytes));
    } else {
      bytes = bytes.substr(0, 8) + StoreBytes::Word(2) + bytes.substr(12);
      StoreBytes::SealHeader(bytes);
    }
    Sim::PutFile(this->File(), bytes);
    CloudStatus<TypeParam> status;
    LogCapture log;
    EXPECT_TRUE(status.Open(kFolder, true));
    EXPECT_EQ(this->CloudLines(log), Lines{});
    EXPECT_EQ(log.Lines(5), Lines{});
    EXPECT_EQ(status.GetItemCount(), 0U);
  }
}

TYPED_TEST(CloudStatusFileTest, DamagedFileThatCannotBeDeletedFailsAfterThreeAttempts) {
  Sim::PutFile(this->File(), "damaged");
  CloudStatus<TypeParam> status;
  LogCapture log;
  Sim::FailFileOperation(Operation::kDelete, 0, Fault::kFail, 3);
  const u64 deletions = Sim::CountFileOperations(Operation::kDelete);
  EXPECT_FALSE(status.Open(kFolder, true));
  EXPECT_EQ(this->CloudLines(log),
            (Lines{"3 cloud.CacheNotOpened", "3 cloud.CacheFileGivenUp", "3 cloud.CacheNotOpened",
                   "3 cloud.CacheFileGivenUp", "3 cloud.CacheNotOpened", "3 cloud.CacheFileGivenUp"}));
  EXPECT_EQ(log.Arguments("cloud.CacheNotOpened"), (Lines{this->File(), "3"}));
  EXPECT_EQ(Sim::CountFileOperations(Operation::kDelete), deletions + 3);
  this->ExpectKnowsNothing(status);
  EXPECT_EQ(this->Content(), "damaged");
  EXPECT_TRUE(status.SetPersistent(true)) << "now that it can be deleted";
}

TYPED_TEST(CloudStatusFileTest, FileThatGoesOnlyAfterTheThirdAttemptIsTooLate) {
  for (const u64 refusals : {u64{1}, u64{2}}) {
    Sim::PutFile(this->File(), "damaged");
    CloudStatus<TypeParam> status;
    LogCapture log;
    Sim::FailFileOperation(Operation::kDelete, 0, Fault::kFail, refusals);
    EXPECT_EQ(status.Open(kFolder, true), refusals == 1);
    EXPECT_EQ(log.Count("cloud.CacheNotOpened"), static_cast<int>(refusals + 1));
    EXPECT_EQ(Access::HasCache(status), refusals == 1);
    EXPECT_FALSE(this->FileIsThere());
  }
}

}  // namespace
}  // namespace CloudTest
