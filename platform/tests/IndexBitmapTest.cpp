#include "platform/asic/IndexBitmap.h"

#include <gtest/gtest.h>

#include <iostream>
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

TEST(IndexBitmap, RandomChanges) {
   for (std::uint32_t seed : {1u, 2u, std::random_device()()}) {
      std::cout << "seed " << seed << '\n';
      SCOPED_TRACE(seed);
      std::mt19937 random(seed);
      std::uint32_t size = 100;
      IndexBitmap bitmap(size);
      std::string model(size, '.');
      std::uint32_t used = 0;
      for (int step = 0; step < 100'000; ++step) {
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
         index = random() % (size + 5);
         ASSERT_EQ(bitmap.isTaken(index), index < size && model[index] == 'x');
         ASSERT_EQ(bitmap.used(), used);
         ASSERT_EQ(bitmap.size(), size);
      }
   }
}

} // namespace
