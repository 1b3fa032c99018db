#include "platform/asic/AnySizedBlockAllocator.h"

#include "platform/asic/testing/Keys.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <string>

namespace Asic {
namespace {

class AnySizedBlockAllocatorTest : public testing::Test {
 protected:
   AnySizedBlockAllocatorTest() { allocator->numEntriesIs(10); }

   Index runFor(std::uint32_t number, Index length) {
      NumberKey key(number);
      return allocator->newIndexForBlock(Nuv::nuvType<NumberKey>(), &key, length);
   }
   Index held(std::uint32_t number) const {
      NumberKey key(number);
      return allocator->indexForKey(Nuv::nuvType<NumberKey>(), &key);
   }
   bool release(std::uint32_t number) {
      NumberKey key(number);
      return allocator->releaseIndexForKey(Nuv::nuvType<NumberKey>(), &key);
   }
   std::optional<std::uint32_t> keyAt(Index index) const {
      auto key = allocator->keyForIndex(index);
      return key.type ? std::optional(static_cast<NumberKey const*>(key.value)->number) : std::nullopt;
   }

   Nuv::Ptr<AnySizedBlockAllocator> allocator = Nuv::make<AnySizedBlockAllocator>("Test");
};

TEST_F(AnySizedBlockAllocatorTest, GivesTheLowestRunThatFits) {
   EXPECT_EQ(runFor(1, 2), 0u);
   EXPECT_EQ(runFor(2, 3), 2u);
   EXPECT_EQ(runFor(3, 1), 5u);
   release(1);
   EXPECT_EQ(runFor(4, 3), 6u);
   EXPECT_EQ(runFor(5, 1), 0u);
   EXPECT_EQ(runFor(6, 1), 1u);
   EXPECT_EQ(runFor(7, 1), 9u);
   EXPECT_EQ(allocator->free(), 0u);
}

TEST_F(AnySizedBlockAllocatorTest, ABlockKeepsItsRun) {
   runFor(1, 2);
   EXPECT_EQ(runFor(2, 3), 2u);
   release(1);
   EXPECT_EQ(runFor(2, 3), 2u);
   EXPECT_EQ(held(2), 2u);
   EXPECT_EQ(allocator->used(), 3u);
   EXPECT_EQ(allocator->holders(), 1u);
}

TEST_F(AnySizedBlockAllocatorTest, ReleasingFreesTheWholeRunOnce) {
   runFor(1, 4);
   EXPECT_TRUE(release(1));
   EXPECT_FALSE(release(1));
   EXPECT_EQ(allocator->used(), 0u);
   EXPECT_EQ(allocator->largestFreeRun(), 10u);
   EXPECT_EQ(held(1), invalidIndex);
   EXPECT_EQ(keyAt(0), std::nullopt);
}

TEST_F(AnySizedBlockAllocatorTest, WithoutARunThatFitsItGivesNoneAndRecovers) {
   runFor(1, 4);
   runFor(2, 2);
   EXPECT_EQ(runFor(3, 5), invalidIndex);
   EXPECT_EQ(held(3), invalidIndex);
   EXPECT_EQ(allocator->holders(), 2u);
   EXPECT_EQ(runFor(4, 4), 6u);
   EXPECT_EQ(runFor(5, 1), invalidIndex);
   release(2);
   EXPECT_EQ(allocator->largestFreeRun(), 2u);
   EXPECT_EQ(runFor(3, 3), invalidIndex);
   release(1);
   EXPECT_EQ(runFor(3, 5), 0u);
}

TEST_F(AnySizedBlockAllocatorTest, AnEmptyRunIsAtIndexZeroAndHoldsNothing) {
   EXPECT_EQ(runFor(1, 0), 0u);
   EXPECT_EQ(held(1), invalidIndex);
   EXPECT_EQ(allocator->used(), 0u);
   EXPECT_EQ(allocator->holders(), 0u);
   EXPECT_FALSE(release(1));
   EXPECT_EQ(runFor(2, 10), 0u);
}

TEST_F(AnySizedBlockAllocatorTest, AnEmptyRunIsGrantedWhenAllIsTaken) {
   runFor(1, 10);
   EXPECT_EQ(runFor(2, 0), 0u);
   EXPECT_EQ(allocator->used(), 10u);
   EXPECT_EQ(keyAt(0), 1u);
   allocator = Nuv::make<AnySizedBlockAllocator>("Empty");
   EXPECT_EQ(runFor(2, 0), 0u);
   EXPECT_EQ(runFor(2, 1), invalidIndex);
}

TEST_F(AnySizedBlockAllocatorTest, SaysWhichBlockBeginsAtAnIndex) {
   runFor(1, 2);
   runFor(2, 3);
   EXPECT_EQ(keyAt(0), 1u);
   EXPECT_EQ(keyAt(1), std::nullopt);
   EXPECT_EQ(keyAt(2), 2u);
   EXPECT_EQ(keyAt(9), std::nullopt);
   EXPECT_EQ(keyAt(invalidIndex), std::nullopt);
}

TEST_F(AnySizedBlockAllocatorTest, BlocksAreCopied) {
   auto before = LivingKey::living;
   {
      LivingKey key(1);
      allocator->newIndexForBlock(Nuv::nuvType<LivingKey>(), &key, 3);
      key.number = 2;
      EXPECT_EQ(allocator->indexForKey(Nuv::nuvType<LivingKey>(), &key), invalidIndex);
      key.number = 1;
      EXPECT_EQ(allocator->indexForKey(Nuv::nuvType<LivingKey>(), &key), 0u);
   }
   EXPECT_EQ(LivingKey::living, before + 1);
   allocator = nullptr;
   EXPECT_EQ(LivingKey::living, before);
}

TEST_F(AnySizedBlockAllocatorTest, GrowsWithoutMovingAnybody) {
   runFor(1, 8);
   EXPECT_EQ(runFor(2, 4), invalidIndex);
   allocator->numEntriesIs(12);
   EXPECT_EQ(runFor(2, 4), 8u);
   EXPECT_EQ(held(1), 0u);
   EXPECT_EQ(allocator->free(), 0u);
}

TEST_F(AnySizedBlockAllocatorTest, RandomUseGivesWhatAPlainModelGives) {
   struct Run {
      Index base;
      Index length;
   };
   for (std::uint32_t seed : {1u, std::random_device()()}) {
      std::cout << "seed " << seed << '\n';
      SCOPED_TRACE(seed);
      std::mt19937 random(seed);
      allocator = Nuv::make<AnySizedBlockAllocator>("Random");
      std::string rows;
      std::map<std::uint32_t, Run> model;
      for (int step = 0; step < 5000; ++step) {
         std::uint32_t key = random() % 60;
         auto dice = random() % 100;
         if (dice < 55) {
            Index length = model.contains(key) ? model[key].length : random() % 9;
            auto expected = invalidIndex;
            if (model.contains(key)) {
               expected = model[key].base;
            } else if (auto place = rows.find(std::string(length, '.')); length == 0) {
               expected = 0;
            } else if (place != std::string::npos) {
               expected = Index(place);
               model[key] = {expected, length};
               std::fill_n(rows.begin() + expected, length, 'x');
            }
            ASSERT_EQ(runFor(key, length), expected);
         } else if (dice < 98) {
            ASSERT_EQ(release(key), model.contains(key));
            if (model.contains(key)) {
               std::fill_n(rows.begin() + model[key].base, model[key].length, '.');
               model.erase(key);
            }
         } else if (rows.size() < 150) {
            rows.resize(rows.size() + random() % 30, '.');
            allocator->numEntriesIs(Index(rows.size()));
         }
         ASSERT_EQ(allocator->used(), std::count(rows.begin(), rows.end(), 'x'));
         ASSERT_EQ(allocator->holders(), model.size());
         for (auto const& [each, run] : model) {
            ASSERT_EQ(held(each), run.base);
            ASSERT_EQ(keyAt(run.base), each);
         }
      }
   }
}

TEST(AnySizedBlockAllocatorDeathTest, NeverShrinks) {
   auto allocator = Nuv::make<AnySizedBlockAllocator>("TheAllocator");
   allocator->numEntriesIs(4);
   EXPECT_DEATH(allocator->numEntriesIs(3), "number >= numEntries_.*TheAllocator");
}

} // namespace
} // namespace Asic
