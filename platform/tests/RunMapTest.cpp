#include "platform/asic/RunMap.h"

#include "platform/nuv/testing/Soak.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Asic::RunMap;

std::optional<std::uint32_t>
at(std::uint32_t index) {
   return index;
}

/// The same as a RunMap, one character per index.
class Model {
 public:
   explicit Model(std::uint32_t size) : text_(size, '.') {}

   std::uint32_t size() const { return std::uint32_t(text_.size()); }
   std::uint32_t used() const { return std::uint32_t(std::count(text_.begin(), text_.end(), 'x')); }
   void grow(std::uint32_t size) { text_.resize(size, '.'); }

   bool change(std::uint32_t base, std::uint32_t length, char from, char to) {
      if (!is(base, length, from)) {
         return false;
      }
      std::fill_n(text_.begin() + base, length, to);
      return true;
   }

   bool is(std::uint32_t base, std::uint32_t length, char state) const {
      return length > 0 && base <= size() && length <= size() - base &&
             std::all_of(text_.begin() + base, text_.begin() + base + length,
                         [state](char c) { return c == state; });
   }

   std::optional<std::uint32_t> firstFit(std::uint32_t length) const {
      std::optional<std::uint32_t> found;
      eachRun([&](std::size_t base, std::size_t runLength) {
         if (!found && runLength >= length) {
            found = std::uint32_t(base);
         }
      });
      return found;
   }

   std::uint32_t freeRuns() const {
      std::uint32_t runs = 0;
      eachRun([&](std::size_t, std::size_t) { ++runs; });
      return runs;
   }

   std::uint32_t largestFreeRun() const {
      std::size_t largest = 0;
      eachRun([&](std::size_t, std::size_t length) { largest = std::max(largest, length); });
      return std::uint32_t(largest);
   }

 private:
   template <class Visitor>
   void eachRun(Visitor visitor) const {
      for (std::size_t base = text_.find('.'); base != std::string::npos;) {
         std::size_t end = std::min(text_.find('x', base), text_.size());
         visitor(base, end - base);
         base = text_.find('.', end);
      }
   }

   std::string text_;
};

class RunMapSizes : public testing::TestWithParam<std::uint32_t> {};

INSTANTIATE_TEST_SUITE_P(Sizes, RunMapSizes,
                         testing::Values(0, 1, 63, 64, 65, 511, 512, 513, 4096, 8192, 8193, 131'072, 131'073,
                                         1 << 20, (1 << 20) + 1));

TEST_P(RunMapSizes, WholeRange) {
   std::uint32_t const size = GetParam();
   RunMap map(size);
   EXPECT_EQ(map.size(), size);
   EXPECT_EQ(map.used(), 0u);
   EXPECT_EQ(map.free(), size);
   EXPECT_EQ(map.largestFreeRun(), size);
   EXPECT_EQ(map.firstFit(size + 1), std::nullopt);
   EXPECT_EQ(map.firstFit(0xffffffff), std::nullopt);
   if (size == 0) {
      EXPECT_FALSE(map.isFree(0, 1));
      EXPECT_FALSE(map.take(0, 1));
      EXPECT_FALSE(map.give(0, 1));
      return;
   }
   EXPECT_EQ(map.firstFit(size), at(0));
   EXPECT_TRUE(map.isFree(0, size));
   EXPECT_TRUE(map.take(0, size));
   EXPECT_EQ(map.used(), size);
   EXPECT_EQ(map.free(), 0u);
   EXPECT_EQ(map.largestFreeRun(), 0u);
   EXPECT_EQ(map.firstFit(1), std::nullopt);
   EXPECT_FALSE(map.isFree(size - 1, 1));
   // It may come back in parts.
   EXPECT_TRUE(map.give(size - 1, 1));
   EXPECT_EQ(map.firstFit(1), at(size - 1));
   if (size > 1) {
      EXPECT_TRUE(map.give(0, size - 1));
   }
   EXPECT_EQ(map.firstFit(size), at(0));
   EXPECT_EQ(map.used(), 0u);
}

TEST_P(RunMapSizes, IsExhaustedAndRecovers) {
   std::uint32_t const size = GetParam();
   std::mt19937 random(size);
   RunMap map(size);
   std::vector<std::pair<std::uint32_t, std::uint32_t>> runs;
   // What is left gets filled with ever shorter runs, to the last index.
   for (std::uint32_t most = 200; map.free() > 0;) {
      std::uint32_t length = random() % most + 1;
      if (auto base = map.firstFit(length)) {
         ASSERT_TRUE(map.take(*base, length));
         runs.emplace_back(*base, length);
      } else {
         most = length;
      }
   }
   EXPECT_EQ(map.used(), size);
   EXPECT_EQ(map.largestFreeRun(), 0u);
   EXPECT_EQ(map.firstFit(1), std::nullopt);
   std::uint64_t sum = 0;
   for (auto [base, length] : runs) {
      sum += length;
   }
   EXPECT_EQ(sum, size);

   std::shuffle(runs.begin(), runs.end(), random);
   for (auto [base, length] : runs) {
      ASSERT_TRUE(map.give(base, length));
      ASSERT_TRUE(map.isFree(base, length));
   }
   EXPECT_EQ(map.free(), size);
   EXPECT_EQ(map.largestFreeRun(), size);
}

TEST_P(RunMapSizes, BadArgumentsChangeNothing) {
   std::uint32_t const size = GetParam();
   RunMap map(size);
   EXPECT_FALSE(map.take(size, 1));
   EXPECT_FALSE(map.take(0, size + 1));
   EXPECT_FALSE(map.take(0xffffffff, 2));
   EXPECT_FALSE(map.take(size / 2, 0xffffffff));
   EXPECT_FALSE(map.take(0, 0));
   EXPECT_FALSE(map.give(0, 0));
   EXPECT_FALSE(map.isFree(0, 0));
   EXPECT_FALSE(map.isFree(size, 1));
   EXPECT_FALSE(map.isFree(1, 0xffffffff));
   EXPECT_EQ(map.firstFit(0), std::nullopt);
   EXPECT_EQ(map.largestFreeRun(), size);
   if (size < 3) {
      return;
   }
   ASSERT_TRUE(map.take(size / 2, 1));
   EXPECT_FALSE(map.take(0, size));
   EXPECT_FALSE(map.take(size / 2, 1));
   EXPECT_FALSE(map.take(size / 2 - 1, 2));
   EXPECT_FALSE(map.give(size / 2, 2));
   EXPECT_FALSE(map.give(size / 2 - 1, 2));
   EXPECT_FALSE(map.give(0, size));
   EXPECT_FALSE(map.give(size, 1));
   EXPECT_FALSE(map.grow(size - 1));
   EXPECT_EQ(map.size(), size);
   EXPECT_EQ(map.used(), 1u);
   EXPECT_EQ(map.largestFreeRun(), std::max(size / 2, size - size / 2 - 1));
   EXPECT_TRUE(map.isFree(0, size / 2));
   EXPECT_TRUE(map.isFree(size / 2 + 1, size - size / 2 - 1));
}

/// Every run around the places where words, blocks and groups meet is found where it is, and no longer one.
TEST(RunMap, RunsAcrossBoundaries) {
   constexpr std::uint32_t size = 1 << 20;
   RunMap map(size);
   ASSERT_TRUE(map.take(0, size));
   for (std::uint32_t boundary : {64u, 512u, 1024u, 8192u, 16'384u, 131'072u, 262'144u, 524'288u}) {
      for (std::uint32_t before : {0u, 1u, 5u, 62u}) {
         for (std::uint32_t after :
              {1u, 2u, 63u, 64u, 65u, 511u, 512u, 600u, 8192u, 9001u, 131'072u, 140'000u}) {
            SCOPED_TRACE(std::to_string(boundary) + " - " + std::to_string(before) + " + " +
                         std::to_string(after));
            std::uint32_t base = boundary - before;
            std::uint32_t length = before + after;
            ASSERT_TRUE(map.give(base, length));
            ASSERT_EQ(map.largestFreeRun(), length);
            ASSERT_EQ(map.firstFit(length), at(base));
            ASSERT_EQ(map.firstFit(1), at(base));
            ASSERT_EQ(map.firstFit(length + 1), std::nullopt);
            ASSERT_TRUE(map.isFree(base, length));
            ASSERT_FALSE(map.isFree(base - 1, length));
            ASSERT_FALSE(map.isFree(base, length + 1));
            // A shorter one in front does not hide it.
            if (length > 1) {
               ASSERT_TRUE(map.give(0, 1));
               ASSERT_EQ(map.firstFit(length), at(base));
               ASSERT_EQ(map.firstFit(1), at(0));
               ASSERT_TRUE(map.take(0, 1));
            }
            ASSERT_TRUE(map.take(base, length));
            ASSERT_EQ(map.largestFreeRun(), 0u);
         }
      }
   }
}

TEST(RunMap, RunsOfEachLengthWithinAWord) {
   for (std::uint32_t length = 1; length <= 64; ++length) {
      for (std::uint32_t base = 64; base + length <= 128; ++base) {
         RunMap map(192);
         ASSERT_TRUE(map.take(0, 192));
         ASSERT_TRUE(map.give(base, length));
         ASSERT_EQ(map.largestFreeRun(), length);
         ASSERT_EQ(map.firstFit(length), at(base));
         ASSERT_EQ(map.firstFit((length + 1) / 2), at(base));
         ASSERT_EQ(map.firstFit(length + 1), std::nullopt);
      }
   }
}

TEST(RunMap, EveryOtherIndexTaken) {
   constexpr std::uint32_t size = 1 << 20;
   RunMap map(size);
   for (std::uint32_t i = 0; i < size; i += 2) {
      if (!map.take(i, 1)) {
         FAIL() << i;
      }
   }
   EXPECT_EQ(map.free(), size / 2);
   EXPECT_EQ(map.largestFreeRun(), 1u);
   EXPECT_EQ(map.firstFit(1), at(1));
   EXPECT_EQ(map.firstFit(2), std::nullopt);
   for (std::uint32_t index : {777'776u, 131'072u, 8192u, 512u, 64u}) {
      ASSERT_TRUE(map.give(index, 1));
      ASSERT_EQ(map.firstFit(2), at(index - 1));
      ASSERT_EQ(map.firstFit(3), at(index - 1));
      ASSERT_EQ(map.firstFit(4), std::nullopt);
   }
   ASSERT_TRUE(map.give(size - 2, 1));
   EXPECT_EQ(map.largestFreeRun(), 3u);
   ASSERT_TRUE(map.give(size - 4, 1));
   EXPECT_EQ(map.firstFit(4), at(size - 5));
   EXPECT_EQ(map.firstFit(5), at(size - 5));
}

/// From each size to each greater one, with all indices taken, and with the last one free.
TEST(RunMap, GrowsAcrossLevels) {
   std::uint32_t const sizes[] = {0,    1,    63,   64,   65,      511,     512,     513,
                                  4096, 8191, 8192, 8193, 131'072, 131'073, 200'000, 2'097'153};
   for (std::uint32_t from : sizes) {
      for (std::uint32_t to : sizes) {
         SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
         RunMap map(from);
         ASSERT_EQ(map.grow(to), to >= from);
         ASSERT_EQ(map.size(), std::max(from, to));
         ASSERT_EQ(map.largestFreeRun(), std::max(from, to));
         if (to <= from || from == 0) {
            continue;
         }
         ASSERT_EQ(map.firstFit(to), at(0));

         RunMap full(from);
         ASSERT_TRUE(full.take(0, from));
         ASSERT_TRUE(full.grow(to));
         ASSERT_EQ(full.used(), from);
         ASSERT_EQ(full.largestFreeRun(), to - from);
         ASSERT_EQ(full.firstFit(1), at(from));
         ASSERT_EQ(full.firstFit(to - from), at(from));
         ASSERT_EQ(full.firstFit(to - from + 1), std::nullopt);

         RunMap last(from);
         ASSERT_TRUE(last.take(0, from));
         ASSERT_TRUE(last.give(from - 1, 1));
         ASSERT_TRUE(last.grow(to));
         ASSERT_EQ(last.largestFreeRun(), to - from + 1);
         ASSERT_EQ(last.firstFit(to - from + 1), at(from - 1));
         ASSERT_TRUE(last.take(from - 1, to - from + 1));
         ASSERT_EQ(last.largestFreeRun(), 0u);
      }
   }
}

/// From each size to each smaller one, with all that stays taken, and back.
TEST(RunMap, ShrinksAcrossLevels) {
   std::uint32_t const sizes[] = {0, 1, 63, 64, 65, 255, 256, 257, 4096, 16'384, 16'385, 65'537, 2'097'153};
   for (std::uint32_t from : sizes) {
      for (std::uint32_t to : sizes) {
         SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
         RunMap map(from);
         ASSERT_EQ(map.shrink(to), to <= from);
         ASSERT_EQ(map.size(), std::min(from, to));
         ASSERT_EQ(map.largestFreeRun(), std::min(from, to));
         if (to >= from || to == 0) {
            continue;
         }
         RunMap held(from);
         ASSERT_TRUE(held.take(to - 1, 1));
         ASSERT_FALSE(held.shrink(to - 1));
         ASSERT_TRUE(held.shrink(to));
         ASSERT_EQ(held.used(), 1u);
         ASSERT_EQ(held.largestFreeRun(), to - 1);
         ASSERT_EQ(held.freeRuns(), to > 1 ? 1u : 0u);
         ASSERT_FALSE(held.isFree(to, 1));
         ASSERT_TRUE(held.grow(from));
         ASSERT_EQ(held.firstFit(from - to), to - 1 >= from - to ? at(0) : at(to));
         ASSERT_EQ(held.firstFit(from), std::nullopt);
         ASSERT_TRUE(held.give(to - 1, 1));
         ASSERT_EQ(held.largestFreeRun(), from);
         ASSERT_EQ(held.freeRuns(), 1u);
      }
   }
}

struct Load {
   std::uint32_t size;
   std::uint32_t longest;
   int steps;
};

class RunMapRandom : public testing::TestWithParam<Load> {};

INSTANTIATE_TEST_SUITE_P(Loads, RunMapRandom,
                         testing::Values(Load{60, 8, 30'000}, Load{700, 20, 40'000}, Load{3000, 150, 25'000},
                                         Load{20'000, 900, 6000}, Load{300'000, 30'000, 1500}));

TEST_P(RunMapRandom, Changes) {
   Nuv::soak(GetParam().steps, [](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      auto [size, longest, phases] = GetParam();
      RunMap map(size / 2);
      Model model(size / 2);
      for (int step = 0; step < steps; ++step) {
         // Mostly short runs.
         std::uint32_t length = random() % (random() % longest + 1) + 1;
         std::uint32_t base = random() % (map.size() + 1);
         bool isFilling = step / (phases / 6) % 2 == 0;
         std::uint32_t dice = random() % 100;
         if (dice == 0 && map.size() < size) {
            std::uint32_t next = map.size() + std::min(std::uint32_t(random() % 100), size - map.size());
            ASSERT_TRUE(map.grow(next));
            model.grow(next);
         } else if (dice < 40) {
            auto expected = model.firstFit(length);
            ASSERT_EQ(map.firstFit(length), expected);
            if (expected && isFilling) {
               ASSERT_TRUE(map.take(*expected, length));
               ASSERT_TRUE(model.change(*expected, length, '.', 'x'));
            }
         } else if ((dice < 60) == isFilling) {
            ASSERT_EQ(map.isFree(base, length), model.is(base, length, '.'));
            ASSERT_EQ(map.take(base, length), model.change(base, length, '.', 'x'));
         } else {
            ASSERT_EQ(map.give(base, length), model.change(base, length, 'x', '.'));
         }
         if (dice == 1) {
            std::uint32_t next = map.size() - std::min(map.size(), std::uint32_t(random() % longest));
            bool isGood = next == map.size() || model.is(next, map.size() - next, '.');
            ASSERT_EQ(map.shrink(next), isGood);
            if (isGood) {
               model.grow(next);
            }
         }
         ASSERT_EQ(map.largestFreeRun(), model.largestFreeRun());
         if (step % 10 == 0) {
            ASSERT_EQ(map.freeRuns(), model.freeRuns());
            ASSERT_EQ(map.used(), model.used());
            ASSERT_EQ(map.free(), model.size() - model.used());
         }
      }
   });
}

} // namespace
