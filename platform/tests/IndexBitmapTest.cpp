#include "platform/asic/IndexBitmap.h"

#include "platform/nuv/testing/Soak.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>

namespace {

using Asic::IndexBitmap;

class IndexBitmapSizes : public testing::TestWithParam<std::uint32_t> {};

INSTANTIATE_TEST_SUITE_P(Sizes, IndexBitmapSizes,
                         testing::Values(0, 1, 63, 64, 65, 4095, 4096, 4097, 262'144, 1 << 20,
                                         (1 << 20) + 1));

TEST_P(IndexBitmapSizes, IsExhaustedInOrderAndRecovers) {
   std::uint32_t const size = GetParam();
   IndexBitmap bitmap(size);
   ASSERT_EQ(bitmap.size(), size);
   ASSERT_EQ(bitmap.used(), 0u);
   for (std::uint32_t i = 0; i < size; ++i) {
      if (bitmap.lowestFree() != i || bitmap.isTaken(i) || !bitmap.take(i) || !bitmap.isTaken(i)) {
         FAIL() << i;
      }
   }
   EXPECT_EQ(bitmap.used(), size);
   EXPECT_EQ(bitmap.lowestFree(), std::nullopt);

   // From the end, each index that is given back is the lowest; and it is the only one when taken again.
   for (std::uint32_t i = size; i-- > 0;) {
      if (!bitmap.give(i) || bitmap.lowestFree() != i) {
         FAIL() << i;
      }
      if (i % 3 == 0 && (!bitmap.take(i) || !bitmap.give(i))) {
         FAIL() << i;
      }
   }
   EXPECT_EQ(bitmap.used(), 0u);
   EXPECT_EQ(bitmap.lowestFree(), size ? std::optional<std::uint32_t>(0) : std::nullopt);
}

TEST_P(IndexBitmapSizes, RefusesWhatDoesNotFit) {
   std::uint32_t const size = GetParam();
   IndexBitmap bitmap(size);
   EXPECT_FALSE(bitmap.take(size));
   EXPECT_FALSE(bitmap.give(size));
   EXPECT_FALSE(bitmap.isTaken(size));
   EXPECT_FALSE(bitmap.take(0xffffffff));
   EXPECT_FALSE(bitmap.give(0xffffffff));
   EXPECT_FALSE(bitmap.isTaken(0xffffffff));
   EXPECT_EQ(bitmap.used(), 0u);
   if (size > 0) {
      EXPECT_FALSE(bitmap.give(size - 1));
      EXPECT_TRUE(bitmap.take(size - 1));
      EXPECT_FALSE(bitmap.take(size - 1));
      EXPECT_EQ(bitmap.used(), 1u);
      EXPECT_TRUE(bitmap.give(size - 1));
      EXPECT_FALSE(bitmap.give(size - 1));
      EXPECT_EQ(bitmap.used(), 0u);
      EXPECT_FALSE(bitmap.grow(size - 1));
      EXPECT_EQ(bitmap.size(), size);
   }
   EXPECT_TRUE(bitmap.grow(size));
   EXPECT_EQ(bitmap.size(), size);
}

TEST_P(IndexBitmapSizes, OneFreeIndexIsFound) {
   std::uint32_t const size = GetParam();
   IndexBitmap bitmap(size);
   for (std::uint32_t i = 0; i < size; ++i) {
      bitmap.take(i);
   }
   for (std::uint64_t i = 1; i <= size; i *= 2) {
      auto index = std::uint32_t(i - 1);
      ASSERT_TRUE(bitmap.give(index));
      ASSERT_EQ(bitmap.lowestFree(), index);
      ASSERT_TRUE(bitmap.take(index));
      ASSERT_EQ(bitmap.lowestFree(), std::nullopt);
   }
   EXPECT_EQ(bitmap.used(), size);
}

/// From each size to each greater one, with all indices taken, and with one left.
TEST(IndexBitmap, GrowsAcrossLevels) {
   std::uint32_t const sizes[] = {0, 1, 63, 64, 65, 128, 4095, 4096, 4097, 262'144, 262'145, 300'000};
   for (std::uint32_t from : sizes) {
      for (std::uint32_t to : sizes) {
         SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
         IndexBitmap bitmap(from);
         for (std::uint32_t i = 0; i < from; ++i) {
            bitmap.take(i);
         }
         ASSERT_EQ(bitmap.grow(to), to >= from);
         if (to < from) {
            ASSERT_EQ(bitmap.size(), from);
            continue;
         }
         ASSERT_EQ(bitmap.size(), to);
         ASSERT_EQ(bitmap.used(), from);
         ASSERT_EQ(bitmap.lowestFree(), to > from ? std::optional(from) : std::nullopt);
         ASSERT_FALSE(bitmap.isTaken(from));
         for (std::uint32_t i = from; i < to; ++i) {
            if (bitmap.lowestFree() != i || !bitmap.take(i)) {
               FAIL() << i;
            }
         }
         ASSERT_EQ(bitmap.lowestFree(), std::nullopt);
         if (from > 0) {
            ASSERT_TRUE(bitmap.give(from - 1));
            ASSERT_EQ(bitmap.lowestFree(), from - 1);

            IndexBitmap other(from);
            for (std::uint32_t i = 0; i + 1 < from; ++i) {
               other.take(i);
            }
            ASSERT_TRUE(other.grow(to));
            ASSERT_EQ(other.lowestFree(), from - 1);
         }
      }
   }
}

/// How many runs of free indices there are, and the length of the longest.
std::pair<std::uint32_t, std::uint32_t>
freeRunsIn(std::string const& model) {
   std::uint32_t runs = 0;
   std::uint32_t longest = 0;
   std::uint32_t open = 0;
   for (char state : model) {
      open = state == '.' ? open + 1 : 0;
      runs += open == 1;
      longest = std::max(longest, open);
   }
   return {runs, longest};
}

TEST(IndexBitmap, ShrinksDownToWhatIsTaken) {
   IndexBitmap bitmap(5000);
   bitmap.take(70);
   EXPECT_FALSE(bitmap.shrink(5001));
   EXPECT_FALSE(bitmap.shrink(70));
   EXPECT_EQ(bitmap.size(), 5000u);
   EXPECT_TRUE(bitmap.shrink(71));
   EXPECT_EQ(bitmap.size(), 71u);
   EXPECT_EQ(bitmap.used(), 1u);
   EXPECT_EQ(bitmap.largestFreeRun(), 70u);
   EXPECT_TRUE(bitmap.grow(5000));
   EXPECT_EQ(bitmap.freeRuns(), 2u);
   EXPECT_EQ(bitmap.largestFreeRun(), 4929u);
   EXPECT_TRUE(bitmap.give(70));
   EXPECT_TRUE(bitmap.shrink(0));
   EXPECT_EQ(bitmap.lowestFree(), std::nullopt);
   EXPECT_EQ(bitmap.freeRuns(), 0u);
}

TEST(IndexBitmap, RandomChanges) {
   Nuv::soak(100'000, [](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      std::uint32_t size = 100;
      IndexBitmap bitmap(size);
      std::string model(size, '.');
      std::uint32_t used = 0;
      for (int step = 0; step < steps; ++step) {
         std::uint32_t index = random() % (size + 5);
         std::uint32_t dice = random() % 1000;
         // Phases that fill it up and phases that empty it.
         bool isFilling = step / 15'000 % 2 == 0;
         if (dice == 0 && size < 9000) {
            size += random() % 400;
            ASSERT_TRUE(bitmap.grow(size));
            model.resize(size, '.');
         } else if (dice < 500 && isFilling) {
            if (auto free = bitmap.lowestFree()) {
               ASSERT_TRUE(bitmap.take(*free));
               ASSERT_EQ(model[*free], '.');
               model[*free] = 'x';
               ++used;
            }
         } else if ((dice < 750) == isFilling) {
            bool isGood = index < size && model[index] == '.';
            ASSERT_EQ(bitmap.take(index), isGood);
            if (isGood) {
               model[index] = 'x';
               ++used;
            }
         } else {
            bool isGood = index < size && model[index] == 'x';
            ASSERT_EQ(bitmap.give(index), isGood);
            if (isGood) {
               model[index] = '.';
               --used;
            }
         }
         std::size_t free = model.find('.');
         ASSERT_EQ(bitmap.lowestFree(),
                   free == std::string::npos ? std::nullopt : std::optional(std::uint32_t(free)));
         if (dice == 1) {
            std::uint32_t next = size - std::min(size, std::uint32_t(random() % 100));
            bool isGood = model.find('x', next) == std::string::npos;
            ASSERT_EQ(bitmap.shrink(next), isGood);
            if (isGood) {
               size = next;
               model.resize(size);
               free = model.find('.');
               ASSERT_EQ(bitmap.lowestFree().has_value(), free != std::string::npos);
            }
         }
         if (step % 100 == 0) {
            ASSERT_EQ(std::pair(bitmap.freeRuns(), bitmap.largestFreeRun()), freeRunsIn(model));
         }
         index = random() % (size + 5);
         ASSERT_EQ(bitmap.isTaken(index), index < size && model[index] == 'x');
         ASSERT_EQ(bitmap.used(), used);
         ASSERT_EQ(bitmap.size(), size);
      }
   });
}

} // namespace
