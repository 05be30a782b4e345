// One verdict cache in the hands of several threads.
#include <atomic>
#include <thread>

#include "tests/cloud/CloudFixture.h"

namespace CloudTest {
namespace {

template <class T>
class CloudStatusThreadsTest : public CloudTest<T> {
 protected:
  static constexpr u32 kAddresses = 64;

  // Four threads look all addresses up until `work` is done. What is known has the verdict that belongs to its number.
  template <class Work>
  void LookupBeside(CloudStatus<T>& status, Work work) {
    std::atomic<bool> done{false};
    std::atomic<u32> rounds{0};
    std::vector<std::thread> readers;
    for (u32 i = 0; i < 4; ++i) {
      readers.emplace_back([&, i] {
        for (u32 number = i; !done || number < 1000; ++number) {
          const T address = this->Address(number % kAddresses);
          u8 verdict = 0;
          if (status.Lookup(&address, &verdict)) {
            EXPECT_EQ(verdict, number % kAddresses % 2 == 0 ? 1 : 0);
          }
          if (status.IsWhitelisted(&address)) {
            EXPECT_EQ(number % 2, 0U);
          }
          ++rounds;
        }
      });
    }
    while (rounds == 0) {
      std::this_thread::yield();
    }
    work();
    done = true;
    for (std::thread& reader : readers) {
      reader.join();
    }
  }
};

TYPED_TEST_SUITE(CloudStatusThreadsTest, Families, );

TYPED_TEST(CloudStatusThreadsTest, LookupsRunBesideWrites) {
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  this->LookupBeside(status, [&] {
    for (u32 round = 0; round < 20; ++round) {
      for (u32 number = 0; number < this->kAddresses; ++number) {
        EXPECT_TRUE(this->Learn(status, number, number % 2 == 0));
      }
      Access::CountRequest(status, true);
      EXPECT_LE(status.GetItemCount(), this->kAddresses);
      EXPECT_EQ(status.GetCacheSizeOnDisk(), 0U);
      // All verdicts expire while they are read.
      Sim::AdvanceTime(kTwoDays + 1);
    }
  });
  EXPECT_EQ(status.TakeTotalRequests(), 20U);
}

TYPED_TEST(CloudStatusThreadsTest, LookupsRunBesideASwitch) {
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  this->LookupBeside(status, [&] {
    for (u32 round = 0; round < 20; ++round) {
      for (u32 number = 0; number < this->kAddresses; ++number) {
        EXPECT_TRUE(this->Learn(status, number, number % 2 == 0));
      }
      EXPECT_TRUE(status.SetPersistent(round % 2 == 1));
    }
  });
  EXPECT_EQ(status.GetItemCount(), 0U);
}

}  // namespace
}  // namespace CloudTest
