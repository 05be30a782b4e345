// Array when memory runs out at each single point, and under several threads.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "Velmar/Collections/Array.h"
#include "platform/sim/Sim.h"
#include "tests/support/LogCapture.h"
#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/collections/TestElements.h"

namespace {

using namespace Velmar;
using namespace Velmar::Collections;

// Fills, inserts and removes until the first refusal, and checks after each step that the array is what a vector is
// that did the same.
bool Exercise() {
  Array<NamedRow> array;
  if (!array.Create(2, 64, 3, false, GrowType::kFixedStep)) {
    return false;
  }
  std::vector<std::string> expected;
  for (u32 i = 0; i < 20; ++i) {
    const std::string name = "row with a name of some length, number " + std::to_string(i);
    const u32 at = i % 3 == 0 ? 0 : array.count;
    const NamedRow row(name.c_str());
    if (row.name.length == 0) {
      return false;
    }
    const bool inserted = array.InsertAt(at, row);
    if (inserted) {
      expected.insert(expected.begin() + at, name);
    }
    EXPECT_EQ(array.count, expected.size());
    for (u32 k = 0; k < array.count; ++k) {
      EXPECT_EQ(array.data[k].name.text, expected[k]);
    }
    if (!inserted) {
      return false;
    }
  }
  return array.RemoveAt(4) && array.PopBack();
}

TEST(ArrayMemory, EachFailedModuleAllocationIsRefusedWithoutALeak) {
  TestAllocator memory;
  u64 n = 0;
  for (bool done = false; !done; ++n) {
    LogCapture log;
    memory.FailRequest(n);
    done = Exercise();
    EXPECT_EQ(memory.live, 0) << n;
    EXPECT_EQ(log.Lines(), done ? std::vector<std::string>{} : std::vector<std::string>{"5 velmar.ArrayNoMemory"}) << n;
  }
  EXPECT_EQ(n, 8U) << "one for the storage, six for its growth, and the run that none fails";
}

TEST(ArrayMemory, EachFailedAllocationOfAnElementIsRefusedWithoutALeak) {
  TestAllocator memory;
  u64 refusals = 0;
  for (u64 n = 0;; ++n) {
    LogCapture log;
    Sim::FailAllocation(n);
    const bool done = Exercise();
    EXPECT_EQ(memory.live, 0) << n;
    EXPECT_EQ(log.CountLevel(3), 0) << n;
    refusals += static_cast<u64>(log.Count("velmar.ArrayElementNotCopied"));
    if (done) {
      break;
    }
  }
  EXPECT_EQ(refusals, 20U) << "the copy of each row once; the others failed before they reached the array";
}

constexpr u32 kThreads = 4;
constexpr u32 kPerThread = 500;

template <class Work>
void InThreads(Work work) {
  std::vector<std::thread> threads;
  for (u32 t = 0; t < kThreads; ++t) {
    threads.emplace_back([&work, t] { work(t); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(ArrayThreads, EveryElementArrivesOnce) {
  Array<u32> array;
  ASSERT_TRUE(array.Create(0, kThreads * kPerThread, 7, true, GrowType::kFixedStep));
  InThreads([&array](u32 t) {
    for (u32 i = 0; i < kPerThread; ++i) {
      EXPECT_TRUE(array.Add(t * kPerThread + i));
      u32 first = 0;
      EXPECT_TRUE(array.Get(0, first));
    }
  });
  ASSERT_EQ(array.GetCount(), kThreads * kPerThread);
  array.Sort(true);
  for (u32 i = 0; i < array.count; ++i) {
    EXPECT_EQ(array.data[i], i);
  }
}

TEST(ArrayThreads, MixedOperationsKeepObjectsWhole) {
  Array<NamedRow> array;
  ASSERT_TRUE(array.Create(1, 4096, 50, true, GrowType::kPercent));
  InThreads([&array](u32 t) {
    const NamedRow own(std::string(40 + t, static_cast<char>('a' + t)).c_str());
    for (u32 i = 0; i < kPerThread; ++i) {
      EXPECT_TRUE(array.InsertAt(0, own));
      EXPECT_TRUE(array.Set(0, own));
      NamedRow seen;
      EXPECT_TRUE(array.Get(0, seen));
      EXPECT_EQ(seen.name.length, 40 + (seen.name.text[0] - 'a'));
      if (i % 2 == 1) {
        EXPECT_TRUE(array.RemoveAt(0));
        EXPECT_TRUE(array.PopBack());
      }
      if (i % 100 == 0) {
        array.Sort(true);
      }
    }
  });
  EXPECT_EQ(array.GetCount(), 0U);
}

TEST(ArrayThreads, StoredFormIsOfOneMoment) {
  Array<PlainRow> array;
  ASSERT_TRUE(array.Create(0, 4096, 16, true, GrowType::kFixedStep));
  InThreads([&array](u32 t) {
    Buffer out(true);
    ASSERT_TRUE(out.Create(64, 1 << 20, 100, false, GrowType::kPercent));
    for (u32 i = 0; i < 100; ++i) {
      EXPECT_TRUE(array.Add(PlainRow{i, static_cast<u16>(t)}));
      ASSERT_TRUE(array.Serialize(out));
      Array<PlainRow> copy;
      StreamBuffer in(out, 0, out.size, true);
      ASSERT_TRUE(copy.Deserialize(in));
      EXPECT_EQ(out.size, 14 + copy.count * 6);
    }
  });
  EXPECT_EQ(array.GetCount(), kThreads * 100);
}

}  // namespace
