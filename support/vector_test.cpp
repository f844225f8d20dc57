#include "support/vector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <span>
#include <string>
#include <vector>

#include "tests/scripted_platform.h"

namespace {

using Log = std::vector<std::string>;
using Ints = zv_loc_fw::vector<int>;

void Fill(Ints& array, int count) {
  for (int i = 0; i < count; ++i) ASSERT_EQ(array.push_back(i), 0);
}

void ExpectCounting(const Ints& array, uint32_t count) {
  ASSERT_EQ(array.count, count);
  for (uint32_t i = 0; i < count; ++i) EXPECT_EQ(array[i], static_cast<int>(i));
}

// A slot that tells how many of its kind are alive and how often one was given a value.
struct Slot {
  Slot() { ++alive; }
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) { return ++assignments, *this; }
  ~Slot() { --alive; }
  static inline int alive = 0;
  static inline int assignments = 0;
};

TEST(Vector, HoldsNothingUntilTheFirstAppendAndThenDoublesWhenFull) {
  Ints array;
  EXPECT_EQ(array.data, nullptr);
  EXPECT_EQ(array.capacity, 0u);
  const struct {
    int count;
    uint32_t capacity;
  } kSteps[] = {{1, 64}, {64, 64}, {65, 128}, {128, 128}, {129, 256}, {257, 512}};
  for (const auto& step : kSteps) {
    while (array.count < static_cast<uint32_t>(step.count)) array.push_back(static_cast<int>(array.count));
    EXPECT_EQ(array.capacity, step.capacity) << step.count;
    ExpectCounting(array, static_cast<uint32_t>(step.count));
  }
}

TEST(Vector, ConstructsAndDestroysEverySlotOfItsBlockUsedOrNot) {
  Slot element;
  {
    zv_loc_fw::vector<Slot> array;
    array.push_back(element);
    EXPECT_EQ(Slot::alive, 65);
    for (int i = 0; i < 64; ++i) array.push_back(element);
    EXPECT_EQ(Slot::alive, 129) << "the old block's slots are gone";
    EXPECT_EQ(Slot::assignments, 65 + 64) << "growing assigns each old element once";
  }
  EXPECT_EQ(Slot::alive, 1);
}

TEST(Vector, AssignmentCopiesContentsAndCapacityOrLeavesNothing) {
  Ints from, to;
  const Ints none;
  from.data = new int[100];  // a capacity that no append makes
  from.capacity = 100;
  Fill(from, 70);
  Fill(to, 3);
  to = from;
  ExpectCounting(to, 70);
  EXPECT_EQ(to.capacity, 100u);
  EXPECT_NE(to.data, from.data);

  Ints& self = to;
  to = self;
  ExpectCounting(to, 70);

  scripted::TakeLog();
  for (const bool fails : {true, false}) {
    {
      const scripted::FailingMemory noMemory(0, 1);
      to = *(fails ? &from : &none);
    }
    EXPECT_EQ(to.data, nullptr);
    EXPECT_EQ(to.capacity, 0u);
    EXPECT_EQ(to.count, 0u);
    Fill(to, 3);
  }
  EXPECT_EQ(scripted::TakeLog(), Log{"E vector assignment failed 2"});
}

TEST(Vector, AFailedBlockIsLoggedChangesNothingAndIsTriedAgain) {
  for (const int there : {0, 64}) {
    Ints array;
    Fill(array, there);
    scripted::TakeLog();
    const int failure = there == 0 ? -1 : -2;
    {
      const scripted::FailingMemory noMemory(0, 1);
      EXPECT_EQ(array.push_back(there), failure);
    }
    EXPECT_EQ(scripted::TakeLog(), Log{"E vector insertion failed " + std::to_string(failure)});
    EXPECT_EQ(array.capacity, 64u);
    ExpectCounting(array, static_cast<uint32_t>(there));
    EXPECT_EQ(array.push_back(there), 0);
    ExpectCounting(array, static_cast<uint32_t>(there) + 1);
  }
}

TEST(Vector, ACapacityThatCannotBeDoubledIn32BitsIsAFailedLargerBlock) {
  Ints array;
  Fill(array, 1);
  array.capacity = array.count = 0x80000000;
  scripted::TakeLog();
  EXPECT_EQ(array.push_back(1), -2);
  EXPECT_EQ(scripted::TakeLog(), Log{"E vector insertion failed -2"});
  EXPECT_EQ(array.capacity, 0x80000000);
}

TEST(Vector, AppendsRunsAsAPushBackOfEachElementWould) {
  using Bytes = zv_loc_fw::vector<signed char>;
  std::vector<signed char> elements(700);
  std::iota(elements.begin(), elements.end(), static_cast<signed char>(1));
  const auto fill = [&](Bytes& array, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) array.push_back(elements[i]);
  };
  scripted::TakeLog();
  for (const uint32_t start : {0u, 1u, 63u, 64u, 65u, 127u, 128u, 255u, 256u}) {
    for (const uint32_t length : {0u, 1u, 2u, 24u, 62u, 63u, 64u, 65u, 128u, 129u, 192u, 257u, 700u}) {
      for (const int skip : {0, 1, 2}) {
        for (const int failures : {0, 1, 2, 26, 1000}) {
          SCOPED_TRACE(testing::Message() << start << " there, " << length << " more, allocations: " << skip
                                          << " succeed, then " << failures << " fail");
          Bytes one, other;
          fill(one, start);
          fill(other, start);
          const std::span<const signed char> run(elements.data(), length);
          const std::span first = run.first(std::min(length, 2u));
          {
            const scripted::FailingMemory noMemory(skip, failures);
            for (const signed char element : run) one.push_back(element);
          }
          const Log log = scripted::TakeLog();
          {
            const scripted::FailingMemory noMemory(skip, failures);
            other.append(first, run.subspan(first.size()));
          }
          ASSERT_EQ(scripted::TakeLog(), log);
          ASSERT_EQ(other.capacity, one.capacity);
          ASSERT_EQ(other.data == nullptr, one.data == nullptr);
          ASSERT_EQ(std::vector(other.data, other.data + other.count), std::vector(one.data, one.data + one.count));
        }
      }
    }
  }
}

TEST(Vector, AnIndexOutOfRangeIsLoggedAndYieldsElementZeroOrADefaultOne) {
  Ints array;
  scripted::TakeLog();
  array[0] = 9;
  EXPECT_EQ(array[0], 0) << "the fallback is made anew each time";
  array.push_back(5);
  EXPECT_EQ(&array[1], &array[0]);
  EXPECT_EQ(static_cast<const Ints&>(array)[0xFFFFFFFF], 5);
  Ints damaged;
  damaged.count = 3;
  EXPECT_EQ(damaged[1], 0);
  EXPECT_EQ(scripted::TakeLog(), Log(5, "E vector index out of range\n"));
}

}  // namespace
