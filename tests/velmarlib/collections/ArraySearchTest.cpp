// Binary search and heap sort of Array.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Velmar/Collections/Array.h"
#include "tests/support/LogCapture.h"
#include "tests/velmarlib/collections/TestElements.h"

namespace {

using namespace Velmar;
using namespace Velmar::Collections;
using Types::UInt128;
using Types::UInt256;
using Strings = std::vector<std::string>;

template <class T>
T Key(u32 n) {
  return static_cast<T>(n);
}
// Every second number differs from its neighbour in the last word alone.
template <>
UInt128 Key<UInt128>(u32 n) {
  return UInt128{{n / 2, n % 2}};
}
template <>
UInt256 Key<UInt256>(u32 n) {
  return UInt256{{0, n / 2, 0, n % 2}};
}

template <class T>
class ArrayBinarySearch : public testing::Test {};
using KeyTypes = testing::Types<u16, u32, UInt128, UInt256>;
TYPED_TEST_SUITE(ArrayBinarySearch, KeyTypes);

// `below` smaller keys, five equal ones, `above` larger ones: the halving hits each of the five in turn.
TYPED_TEST(ArrayBinarySearch, FiveEqualKeysGiveTheLeftmostAndFive) {
  for (u32 below = 0; below < 12; ++below) {
    for (u32 above = 0; above < 12; ++above) {
      Array<TypeParam> array;
      for (u32 i = 0; i < below; ++i) {
        ASSERT_TRUE(array.Add(Key<TypeParam>(i)));
      }
      for (u32 i = 0; i < 5; ++i) {
        ASSERT_TRUE(array.Add(Key<TypeParam>(50)));
      }
      for (u32 i = 0; i < above; ++i) {
        ASSERT_TRUE(array.Add(Key<TypeParam>(51 + i)));
      }
      u32 first = 0;
      u32 number = 0;
      ASSERT_TRUE(array.BinarySearch(Key<TypeParam>(50), &first, &number));
      EXPECT_EQ(first, below);
      EXPECT_EQ(number, 5U);
    }
  }
}

TYPED_TEST(ArrayBinarySearch, EachKeyIsFoundAndNoOther) {
  Array<TypeParam> array;
  for (u32 i = 0; i < 40; ++i) {
    ASSERT_TRUE(array.Add(Key<TypeParam>(i * 2 + 1)));
  }
  for (u32 i = 0; i < 40; ++i) {
    u32 first = 0;
    u32 number = 0;
    EXPECT_TRUE(array.BinarySearch(Key<TypeParam>(i * 2 + 1), &first, &number));
    EXPECT_EQ(first, i);
    EXPECT_EQ(number, 1U);
  }
  for (u32 i = 0; i <= 40; ++i) {
    u32 first = 77;
    u32 number = 78;
    EXPECT_FALSE(array.BinarySearch(Key<TypeParam>(i * 2), &first, &number));
    EXPECT_EQ(first, 77U);
    EXPECT_EQ(number, 78U);
  }
}

TYPED_TEST(ArrayBinarySearch, OutputsAreOptional) {
  Array<TypeParam> array;
  EXPECT_FALSE(array.BinarySearch(Key<TypeParam>(1), nullptr, nullptr)) << "an empty array holds nothing";
  ASSERT_TRUE(array.Add(Key<TypeParam>(1)));
  ASSERT_TRUE(array.Add(Key<TypeParam>(1)));
  EXPECT_TRUE(array.BinarySearch(Key<TypeParam>(1), nullptr, nullptr));
  u32 first = 9;
  EXPECT_TRUE(array.BinarySearch(Key<TypeParam>(1), &first, nullptr));
  EXPECT_EQ(first, 0U);
}

TYPED_TEST(ArrayBinarySearch, NumberWithoutFirstIsRefused) {
  LogCapture log;
  Array<TypeParam> array;
  ASSERT_TRUE(array.Add(Key<TypeParam>(1)));
  u32 number = 78;
  EXPECT_FALSE(array.BinarySearch(Key<TypeParam>(1), nullptr, &number));
  EXPECT_EQ(number, 78U);
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArraySearchWithoutFirst"});
}

TEST(ArrayBinarySearchOrder, WideKeysCompareFromTheFirstWord) {
  Array<UInt128> array;
  ASSERT_TRUE(array.Add(UInt128{{1, ~u64{0}}}));
  ASSERT_TRUE(array.Add(UInt128{{2, 0}}));
  ASSERT_TRUE(array.Add(UInt128{{~u64{0}, 5}}));
  u32 first = 9;
  EXPECT_TRUE(array.BinarySearch(UInt128{{1, ~u64{0}}}, &first, nullptr));
  EXPECT_EQ(first, 0U);
  EXPECT_TRUE(array.BinarySearch(UInt128{{~u64{0}, 5}}, &first, nullptr));
  EXPECT_EQ(first, 2U);
  EXPECT_FALSE(array.BinarySearch(UInt128{{2, 1}}, &first, nullptr));
}

TEST(ArraySort, BothOrdersOfEveryLength) {
  std::mt19937 random(7);
  for (u32 length = 0; length <= 70; ++length) {
    std::vector<u32> numbers;
    Array<u32> array;
    for (u32 i = 0; i < length; ++i) {
      numbers.push_back(static_cast<u32>(random() % (length / 2 + 1)));
      ASSERT_TRUE(array.Add(numbers.back()));
    }
    std::sort(numbers.begin(), numbers.end());
    array.Sort(true);
    EXPECT_EQ(std::vector<u32>(array.data, array.data + array.count), numbers);
    array.Sort(true);
    EXPECT_EQ(std::vector<u32>(array.data, array.data + array.count), numbers) << "sorted input";
    std::reverse(numbers.begin(), numbers.end());
    array.Sort(false);
    EXPECT_EQ(std::vector<u32>(array.data, array.data + array.count), numbers);
  }
}

TEST(ArraySort, ObjectsMoveWhole) {
  Array<NamedRow> array;
  for (const char* name : {"delta", "alpha", "echo", "", "bravo", "charlie", "alpha"}) {
    ASSERT_TRUE(array.Add(NamedRow(name)));
  }
  array.Sort(true);
  Strings names;
  for (u32 i = 0; i < array.count; ++i) {
    names.emplace_back(array.data[i].name.text);
  }
  EXPECT_EQ(names, (Strings{"", "alpha", "alpha", "bravo", "charlie", "delta", "echo"}));
}

struct OperatorCounter {
  static inline int greater = 0;
  static inline int less = 0;
  int value = 0;
  bool operator>(const OperatorCounter& other) const {
    ++greater;
    return value > other.value;
  }
  bool operator<(const OperatorCounter& other) const {
    ++less;
    return value < other.value;
  }
};

TEST(ArraySort, EachOrderHasItsOwnOperator) {
  Array<OperatorCounter> array;
  for (int i : {3, 1, 2, 5, 4}) {
    ASSERT_TRUE(array.Add(OperatorCounter{i}));
  }
  array.Sort(true);
  EXPECT_GT(OperatorCounter::greater, 0);
  EXPECT_EQ(OperatorCounter::less, 0);
  EXPECT_EQ(array.data[0].value, 1);
  OperatorCounter::greater = 0;
  array.Sort(false);
  EXPECT_GT(OperatorCounter::less, 0);
  EXPECT_EQ(OperatorCounter::greater, 0);
  EXPECT_EQ(array.data[0].value, 5);
}

TEST(ArraySort, FewerThanTwoElementsCompareNothing) {
  OperatorCounter::greater = 0;
  Array<OperatorCounter> array;
  array.Sort(true);
  ASSERT_TRUE(array.Add(OperatorCounter{1}));
  array.Sort(true);
  EXPECT_EQ(OperatorCounter::greater, 0);
  EXPECT_EQ(array.count, 1U);
}

TEST(HeapSort, OrdersByTheGivenComparison) {
  const u32 weights[] = {5, 3, 9, 1, 7, 3};
  u32 rows[] = {0, 1, 2, 3, 4, 5};
  HeapSort(rows, 6U, [&weights](u32 a, u32 b) {
    if (weights[a] != weights[b]) {
      return weights[a] < weights[b] ? -1 : 1;
    }
    return a < b ? -1 : (a > b ? 1 : 0);
  });
  EXPECT_EQ(std::vector<u32>(rows, rows + 6), (std::vector<u32>{3, 1, 5, 0, 4, 2}));
}

}  // namespace
