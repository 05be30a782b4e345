// Who holds a socket, on a made /proc and on this machine's own.
#include "host/capture/SocketOwners.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "RYL/Events/Records.h"

namespace {

using Host::ProcessRegistry;
using Host::Capture::SocketOwners;
using Velmar::u32;
using Velmar::u64;
namespace fs = std::filesystem;

class SocketOwnersTest : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/owners-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    fs::create_directories(root_ / "sys/kernel/random");
    std::ofstream(root_ / "sys/kernel/random/boot_id") << "boot-1\n";
  }
  void TearDown() override { fs::remove_all(root_); }

  void AddProcess(u32 pid, u64 startTicks, const std::string& path, u32 inode) const {
    const fs::path folder = root_ / std::to_string(pid);
    fs::create_directories(folder / "fd");
    std::ofstream stat(folder / "stat");
    stat << pid << " (a ) name) S";
    for (int field = 4; field < 22; ++field) {
      stat << " 0";
    }
    stat << " " << startTicks << " 0 0\n";
    std::ofstream(folder / "comm") << "commname\n";
    if (!path.empty()) {
      fs::create_symlink(path, folder / "exe");
    }
    fs::create_symlink("/dev/null", folder / "fd/0");
    fs::create_symlink("socket:[" + std::to_string(inode) + "]", folder / "fd/3");
  }

  std::string PathOf(u64 puid, u32& pid) {
    alignas(8) char area[512];
    RYL::Events::GenericEventHolder holder(area, sizeof(area));
    if (!registry_.GetEventById(puid, &holder)) {
      return "(unknown)";
    }
    namespace Layout = RYL::Events::ProcessEvent;
    std::memcpy(&pid, holder.GetData() + Layout::kProcessPid, sizeof(pid));
    return reinterpret_cast<const char*>(holder.GetData() + Layout::kProcessPath);
  }

  fs::path root_;
  ProcessRegistry registry_;
};

TEST_F(SocketOwnersTest, FindsTheHolderAndRegistersIt) {
  AddProcess(100, 5000, "/usr/bin/browser", 42);
  SocketOwners owners(registry_, root_);
  owners.Refresh(1000);
  const u64 puid = owners.Find(42);
  ASSERT_NE(puid, 0U);
  u32 pid = 0;
  EXPECT_EQ(PathOf(puid, pid), "/usr/bin/browser");
  EXPECT_EQ(pid, 100U);
  EXPECT_EQ(owners.Find(43), 0U);
}

TEST_F(SocketOwnersTest, OfSeveralHoldersTheLongestLivedOwnsTheSocket) {
  AddProcess(200, 9000, "/usr/bin/child", 42);
  AddProcess(100, 5000, "/usr/bin/parent", 42);
  AddProcess(300, 9500, "/usr/bin/grandchild", 42);
  SocketOwners owners(registry_, root_);
  owners.Refresh(1000);
  u32 pid = 0;
  EXPECT_EQ(PathOf(owners.Find(42), pid), "/usr/bin/parent");
}

TEST_F(SocketOwnersTest, ReusedIdIsAnotherProcess) {
  AddProcess(100, 5000, "/usr/bin/first", 42);
  SocketOwners owners(registry_, root_);
  owners.Refresh(1000);
  const u64 first = owners.Find(42);
  fs::remove_all(root_ / "100");
  AddProcess(100, 7000, "/usr/bin/second", 42);
  owners.Refresh(2000);
  const u64 second = owners.Find(42);
  EXPECT_NE(first, second);
  u32 pid = 0;
  EXPECT_EQ(PathOf(first, pid), "/usr/bin/first");
  EXPECT_EQ(PathOf(second, pid), "/usr/bin/second");
}

TEST_F(SocketOwnersTest, IdentifierIsTheSameInAnotherRun) {
  AddProcess(100, 5000, "/usr/bin/browser", 42);
  SocketOwners one(registry_, root_);
  one.Refresh(1000);
  SocketOwners other(registry_, root_);
  other.Refresh(1000);
  EXPECT_EQ(one.Find(42), other.Find(42));
}

TEST_F(SocketOwnersTest, EndedProcessIsForgottenAfterTenMinutes) {
  AddProcess(100, 5000, "/usr/bin/browser", 42);
  SocketOwners owners(registry_, root_);
  owners.Refresh(1000);
  const u64 puid = owners.Find(42);
  u32 pid = 0;
  owners.Refresh(601000);
  EXPECT_EQ(PathOf(puid, pid), "/usr/bin/browser");
  owners.Refresh(601001);
  EXPECT_EQ(PathOf(puid, pid), "(unknown)");
}

TEST_F(SocketOwnersTest, DeletedProgramKeepsItsPathAndAnUnreadableOneItsName) {
  AddProcess(100, 5000, "/usr/bin/gone (deleted)", 42);
  AddProcess(101, 5000, "", 43);
  SocketOwners owners(registry_, root_);
  owners.Refresh(1000);
  u32 pid = 0;
  EXPECT_EQ(PathOf(owners.Find(42), pid), "/usr/bin/gone");
  EXPECT_EQ(PathOf(owners.Find(43), pid), "commname");
}

TEST_F(SocketOwnersTest, OwnSocketIsFoundInTheRealProc) {
  const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  struct stat status {};
  ASSERT_EQ(fstat(descriptor, &status), 0);
  SocketOwners owners(registry_, "/proc");
  owners.Refresh(1000);
  u32 pid = 0;
  EXPECT_EQ(PathOf(owners.Find(static_cast<u32>(status.st_ino)), pid), fs::read_symlink("/proc/self/exe").string());
  EXPECT_EQ(pid, static_cast<u32>(getpid()));
  close(descriptor);
}

}  // namespace
