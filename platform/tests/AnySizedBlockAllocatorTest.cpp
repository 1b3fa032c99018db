#include "platform/asic/AnySizedBlockAllocator.h"

#include "platform/asic/testing/Keys.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace Asic {
namespace {

class AnySizedBlockAllocatorTest : public testing::Test {
 protected:
   AnySizedBlockAllocatorTest() { allocator->numEntriesIs(10); }

   Index runFor(std::uint32_t number, Index length) {
      BlockKey key(number, length);
      return allocator->newIndexForBlock(Nuv::nuvType<BlockKey>(), &key);
   }
   Index held(std::uint32_t number) const {
      BlockKey key(number, 0);
      return allocator->indexForKey(Nuv::nuvType<BlockKey>(), &key);
   }
   bool release(std::uint32_t number) {
      BlockKey key(number, 0);
      return allocator->releaseIndexForKey(Nuv::nuvType<BlockKey>(), &key);
   }
   std::optional<std::uint32_t> keyAt(Index index) const {
      auto key = allocator->keyForIndex(index);
      return key ? std::optional(static_cast<BlockKey const*>(key.value)->number) : std::nullopt;
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

TEST_F(AnySizedBlockAllocatorTest, SaysWhichBlockHoldsAnIndex) {
   runFor(1, 2);
   runFor(2, 3);
   runFor(3, 1);
   EXPECT_EQ(keyAt(0), 1u);
   EXPECT_EQ(keyAt(1), 1u);
   EXPECT_EQ(keyAt(2), 2u);
   EXPECT_EQ(keyAt(4), 2u);
   EXPECT_EQ(keyAt(5), 3u);
   EXPECT_EQ(keyAt(6), std::nullopt);
   auto holding = allocator->holdingAt(4);
   EXPECT_EQ(holding.base, 2u);
   EXPECT_EQ(holding.length, 3u);
   release(2);
   EXPECT_EQ(keyAt(4), std::nullopt);
   EXPECT_EQ(allocator->holdingAt(4).base, invalidIndex);
   EXPECT_EQ(keyAt(9), std::nullopt);
   EXPECT_EQ(keyAt(invalidIndex), std::nullopt);
}

TEST_F(AnySizedBlockAllocatorTest, BlocksAreCopied) {
   auto before = LivingKey::living;
   {
      LivingKey key(1);
      allocator->newIndexForBlock(Nuv::nuvType<LivingKey>(), &key);
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

TEST_F(AnySizedBlockAllocatorTest, ListsWhatIsHeldInTheOrderOfIndices) {
   runFor(7, 2);
   runFor(5, 3);
   runFor(6, 1);
   release(7);
   runFor(9, 1);
   std::vector<std::array<std::uint32_t, 3>> all;
   for (auto const& holding : allocator->holdings()) {
      all.push_back({static_cast<BlockKey const*>(holding.key.value)->number, holding.base, holding.length});
   }
   using Held = std::array<std::uint32_t, 3>;
   EXPECT_THAT(all, testing::ElementsAre(Held{9, 0, 1}, Held{5, 2, 3}, Held{6, 5, 1}));
}

TEST_F(AnySizedBlockAllocatorTest, CountsFreeRunsAndTheMostThatWasInUse) {
   EXPECT_EQ(allocator->freeRuns(), 1u);
   runFor(1, 2);
   runFor(2, 2);
   runFor(3, 2);
   release(1);
   EXPECT_EQ(allocator->freeRuns(), 2u);
   EXPECT_EQ(allocator->largestFreeRun(), 4u);
   release(2);
   EXPECT_EQ(allocator->freeRuns(), 2u);
   release(3);
   EXPECT_EQ(allocator->freeRuns(), 1u);
   EXPECT_EQ(allocator->used(), 0u);
   EXPECT_EQ(allocator->reserved(), 0u);
   EXPECT_EQ(allocator->highWaterMark(), 6u);
   runFor(4, 10);
   EXPECT_EQ(allocator->freeRuns(), 0u);
   EXPECT_EQ(allocator->highWaterMark(), 10u);
}

TEST_F(AnySizedBlockAllocatorTest, RunsMayBeReleasedInEveryOrder) {
   std::array<Index, 5> const lengths{1, 1, 2, 3, 3};
   std::array<std::uint32_t, 5> order{0, 1, 2, 3, 4};
   do {
      Index next = 0;
      for (std::uint32_t key = 0; key < lengths.size(); ++key) {
         ASSERT_EQ(runFor(key, lengths[key]), next);
         next += lengths[key];
      }
      ASSERT_EQ(allocator->free(), 0u);
      for (auto key : order) {
         ASSERT_TRUE(release(key));
      }
      ASSERT_EQ(allocator->largestFreeRun(), 10u);
      ASSERT_EQ(allocator->freeRuns(), 1u);
      ASSERT_EQ(allocator->holders(), 0u);
   } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(AnySizedBlockAllocatorTest, ShrinksDownToWhatIsHeld) {
   runFor(1, 2);
   runFor(2, 3);
   release(1);
   allocator->numEntriesIs(5);
   EXPECT_EQ(allocator->free(), 2u);
   EXPECT_EQ(runFor(3, 3), invalidIndex);
   EXPECT_EQ(runFor(3, 2), 0u);
   EXPECT_EQ(held(2), 2u);
   allocator->numEntriesIs(8);
   EXPECT_EQ(runFor(4, 3), 5u);
}

TEST(AnySizedBlockAllocatorDeathTest, NeverShrinksBelowWhatIsHeld) {
   auto allocator = Nuv::make<AnySizedBlockAllocator>("TheAllocator");
   allocator->numEntriesIs(9);
   BlockKey key(1, 4);
   allocator->newIndexForBlock(Nuv::nuvType<BlockKey>(), &key);
   EXPECT_DEATH(allocator->numEntriesIs(3), "number >= heldEnd\\(\\).*TheAllocator");
}

TEST(AnySizedBlockAllocatorDeathTest, RefusesKeysThatHaveNoSize) {
   auto allocator = Nuv::make<AnySizedBlockAllocator>("TheAllocator");
   NumberKey key(1);
   EXPECT_DEATH(allocator->newIndexForBlock(Nuv::nuvType<NumberKey>(), &key), "type.size.*Test::NumberKey");
}

} // namespace
} // namespace Asic
