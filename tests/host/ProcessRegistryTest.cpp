#include "host/agent/ProcessRegistry.h"

#include <gtest/gtest.h>

#include <cstring>

#include "RYL/Events/Records.h"
#include "host/Types.h"

namespace {

using namespace Host;
using RYL::Events::GenericEventHolder;

FileDigests Digests(u8 fill) {
  FileDigests digests;
  digests.md5.fill(fill);
  digests.sha256.fill(static_cast<u8>(fill + 1));
  return digests;
}

// The first byte of the MD5 digest that is given for the path, -1 for none.
int FirstByteOf(RecordedHashes& hashes, const char* path) {
  RYL::Module::FileHashBlock block{};
  if (!hashes.GetFileHashes(path, &block, RYL::Module::kDefaultFileHashes)) {
    return -1;
  }
  EXPECT_EQ(block.qid[31], block.md5[0] + 1);
  return block.md5[15];
}

TEST(ProcessRegistry, KnownProcessFillsTheHolder) {
  ProcessRegistry registry;
  registry.Put(5, 42, "/usr/bin/wget");
  u8 area[512];
  GenericEventHolder holder(area, sizeof(area));
  ASSERT_TRUE(registry.GetEventById(5, &holder));
  EXPECT_STREQ(reinterpret_cast<const char*>(holder.GetData()) + RYL::Events::ProcessEvent::kProcessPath,
               "/usr/bin/wget");
}

TEST(ProcessRegistry, PathBeyondTheAreaIsGivenWhole) {
  ProcessRegistry registry;
  const std::string path = "/" + std::string(2000, 'd');
  registry.Put(5, 42, path);
  u8 area[512];
  GenericEventHolder holder(area, sizeof(area));
  ASSERT_TRUE(registry.GetEventById(5, &holder));
  EXPECT_EQ(reinterpret_cast<const char*>(holder.GetData()) + RYL::Events::ProcessEvent::kProcessPath, path);
}

TEST(ProcessRegistry, UnknownAndRemovedProcessesGiveFalse) {
  ProcessRegistry registry;
  u8 area[512];
  GenericEventHolder holder(area, sizeof(area));
  EXPECT_FALSE(registry.GetEventById(5, &holder));
  registry.Put(5, 42, "/a");
  registry.Remove(5);
  EXPECT_FALSE(registry.GetEventById(5, &holder));
  EXPECT_EQ(registry.LastLookup(), 5U);
}

TEST(RecordedHashes, UnknownPathGivesFalse) {
  RecordedHashes hashes;
  EXPECT_EQ(FirstByteOf(hashes, "/bin/sh"), -1);
}

TEST(RecordedHashes, LastPutOfAPathCounts) {
  RecordedHashes hashes;
  hashes.Put("/bin/sh", Digests(1));
  hashes.Put("/bin/sh", Digests(2));
  EXPECT_EQ(FirstByteOf(hashes, "/bin/sh"), 2);
}

TEST(RecordedHashes, WindowsPathIsFoundInAnotherCase) {
  RecordedHashes hashes;
  hashes.Put("C:\\Windows\\Explorer.EXE", Digests(3));
  EXPECT_EQ(FirstByteOf(hashes, "c:\\windows\\explorer.exe"), 3);
}

TEST(RecordedHashes, ExactSpellingComesBeforeAnotherCase) {
  RecordedHashes hashes;
  hashes.Put("C:\\a.exe", Digests(3));
  hashes.Put("C:\\A.exe", Digests(4));
  EXPECT_EQ(FirstByteOf(hashes, "C:\\a.exe"), 3);
  EXPECT_EQ(FirstByteOf(hashes, "c:\\A.EXE"), 4);
}

TEST(RecordedHashes, UnixPathsKeepTheirCase) {
  RecordedHashes hashes;
  hashes.Put("/usr/bin/X", Digests(3));
  EXPECT_EQ(FirstByteOf(hashes, "/usr/bin/x"), -1);
}

TEST(RecordedHashes, DigestsOfTheProcessLookedUpComeFirst) {
  ProcessRegistry registry;
  RecordedHashes hashes(&registry);
  u8 area[512];
  GenericEventHolder holder(area, sizeof(area));
  hashes.Put("/bin/sh", Digests(1));
  hashes.PutForProcess(8, Digests(9));
  registry.Put(7, 1, "/bin/sh");
  registry.Put(8, 2, "/bin/sh");
  ASSERT_TRUE(registry.GetEventById(8, &holder));
  EXPECT_EQ(FirstByteOf(hashes, "/bin/sh"), 9);
  ASSERT_TRUE(registry.GetEventById(7, &holder));
  EXPECT_EQ(FirstByteOf(hashes, "/bin/sh"), 1);
}

}  // namespace
