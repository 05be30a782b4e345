#include "Velmar/OS/Threading.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <string>

namespace {

using namespace Velmar;
using OS::ScopedLock;
using OS::Threading;

struct Mutex {
  Mutex() : handle(Threading::MutexCreate()) {}
  ~Mutex() { Threading::MutexDestroy(handle); }
  void* handle;
};

TEST(MutexContract, OneThreadMayLockTwice) {
  Mutex mutex;
  ASSERT_NE(mutex.handle, nullptr);
  EXPECT_TRUE(Threading::MutexLock(mutex.handle));
  EXPECT_TRUE(Threading::MutexLock(mutex.handle));
  EXPECT_TRUE(Threading::MutexUnlock(mutex.handle));
  EXPECT_TRUE(Threading::MutexUnlock(mutex.handle));
}

TEST(MutexContract, NullHandleDoesNothing) {
  void* none = nullptr;
  EXPECT_TRUE(Threading::MutexLock(none));
  EXPECT_TRUE(Threading::MutexUnlock(none));
  Threading::MutexDestroy(none);
  EXPECT_EQ(none, nullptr);
}

TEST(MutexContract, DestroySetsTheHandleToNull) {
  void* handle = Threading::MutexCreate();
  ASSERT_NE(handle, nullptr);
  Threading::MutexDestroy(handle);
  EXPECT_EQ(handle, nullptr);
}

struct SharedCount {
  Mutex mutex;
  int value = 0;
};

void CountUp(void* context) {
  auto* count = static_cast<SharedCount*>(context);
  for (int i = 0; i < 1000; ++i) {
    ScopedLock lock(count->mutex.handle);
    ScopedLock again(count->mutex.handle);
    ++count->value;
  }
}

TEST(MutexContract, ThreadsExcludeEachOther) {
  SharedCount count;
  std::array<void*, 4> threads = {};
  for (void*& thread : threads) {
    thread = Threading::StartThread(&CountUp, &count, "counter");
    ASSERT_TRUE(Threading::IsValidThreadHandle(thread));
  }
  for (void*& thread : threads) {
    EXPECT_TRUE(Threading::WaitForThreadToEnd(thread));
  }
  EXPECT_EQ(count.value, 4000);
}

void StoreName(void* context) {
  std::array<char, 64> name = {};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  *static_cast<std::string*>(context) = name.data();
}

std::string NameOfThread(const char* label) {
  std::string name = "(not run)";
  void* thread = Threading::StartThread(&StoreName, &name, label);
  EXPECT_TRUE(Threading::WaitForThreadToEnd(thread));
  return name;
}

TEST(ThreadContract, ThreadCarriesItsName) {
  EXPECT_EQ(NameOfThread("worker"), "worker");
}

TEST(ThreadContract, NameIsCutAtFifteenBytes) {
  EXPECT_EQ(NameOfThread("0123456789abcdef"), "0123456789abcde");
}

TEST(ThreadContract, NameMayBeMissing) {
  EXPECT_NE(NameOfThread(nullptr), "(not run)");
}

TEST(ThreadContract, WaitJoinsAndClearsTheHandle) {
  int ran = 0;
  void* thread = Threading::StartThread([](void* context) { *static_cast<int*>(context) = 1; }, &ran, "once");
  ASSERT_TRUE(Threading::IsValidThreadHandle(thread));
  EXPECT_TRUE(Threading::WaitForThreadToEnd(thread));
  EXPECT_EQ(thread, nullptr);
  EXPECT_EQ(ran, 1);
}

TEST(ThreadContract, NullIsNoThread) {
  void* none = nullptr;
  EXPECT_FALSE(Threading::IsValidThreadHandle(none));
  EXPECT_FALSE(Threading::WaitForThreadToEnd(none));
  EXPECT_EQ(Threading::StartThread(nullptr, nullptr, "none"), nullptr);
}

struct SelfJoin {
  void* handle = nullptr;
  OS::Event known{false};
  bool joined = true;
};

void JoinSelf(void* context) {
  auto* self = static_cast<SelfJoin*>(context);
  self->known.Wait(60000);
  void* handle = self->handle;
  self->joined = Threading::WaitForThreadToEnd(handle);
}

TEST(ThreadContract, ThreadCannotJoinItself) {
  SelfJoin self;
  self.handle = Threading::StartThread(&JoinSelf, &self, "self");
  self.known.Signal();
  EXPECT_TRUE(Threading::WaitForThreadToEnd(self.handle));
  EXPECT_FALSE(self.joined);
}

}  // namespace
