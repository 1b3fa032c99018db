#include "platform/asic/FirstFreeIndexAllocator.h"

#include "platform/asic/testing/Keys.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace Asic {
namespace {

class FirstFreeIndexAllocatorTest : public testing::Test {
 protected:
   explicit FirstFreeIndexAllocatorTest(Index size = 4) { allocator->numEntriesIs(size); }

   Index indexFor(std::uint32_t number) {
      NumberKey key(number);
      return allocator->newIndexForKey(Nuv::nuvType<NumberKey>(), &key);
   }
   Index held(std::uint32_t number) const {
      NumberKey key(number);
      return allocator->indexForKey(Nuv::nuvType<NumberKey>(), &key);
   }
   bool request(Index index, std::uint32_t number) {
      NumberKey key(number);
      return allocator->requestIndexForKey(index, Nuv::nuvType<NumberKey>(), &key);
   }
   GenericIndexAllocator::Key getKey(std::uint32_t number) const {
      NumberKey key(number);
      return allocator->getKey(Nuv::nuvType<NumberKey>(), &key);
   }
   bool release(std::uint32_t number) {
      NumberKey key(number);
      return allocator->releaseIndexForKey(Nuv::nuvType<NumberKey>(), &key);
   }
   std::optional<std::uint32_t> keyAt(Index index) const {
      auto key = allocator->keyForIndex(index);
      return key.type ? std::optional(static_cast<NumberKey const*>(key.value)->number) : std::nullopt;
   }

   Nuv::Ptr<FirstFreeIndexAllocator> allocator = Nuv::make<FirstFreeIndexAllocator>("Test");
};

TEST_F(FirstFreeIndexAllocatorTest, GivesTheLowestFreeIndex) {
   EXPECT_EQ(indexFor(10), 0u);
   EXPECT_EQ(indexFor(11), 1u);
   EXPECT_EQ(indexFor(12), 2u);
   EXPECT_TRUE(release(10));
   EXPECT_TRUE(release(11));
   EXPECT_EQ(indexFor(13), 0u);
   EXPECT_EQ(indexFor(14), 1u);
   EXPECT_EQ(indexFor(15), 3u);
}

TEST_F(FirstFreeIndexAllocatorTest, AKeyKeepsItsIndex) {
   EXPECT_EQ(held(10), invalidIndex);
   EXPECT_EQ(indexFor(9), 0u);
   EXPECT_EQ(indexFor(10), 1u);
   release(9);
   EXPECT_EQ(indexFor(10), 1u);
   EXPECT_EQ(held(10), 1u);
   EXPECT_EQ(allocator->holders(), 1u);
   EXPECT_EQ(allocator->used(), 1u);
   EXPECT_EQ(allocator->free(), 3u);
}

TEST_F(FirstFreeIndexAllocatorTest, ReleasingFreesTheIndexOnce) {
   indexFor(10);
   EXPECT_TRUE(release(10));
   EXPECT_FALSE(release(10));
   EXPECT_FALSE(release(11));
   EXPECT_EQ(held(10), invalidIndex);
   EXPECT_EQ(keyAt(0), std::nullopt);
   EXPECT_EQ(allocator->used(), 0u);
   EXPECT_EQ(allocator->holders(), 0u);
}

TEST_F(FirstFreeIndexAllocatorTest, AFullOneGivesNoIndexAndRecovers) {
   for (std::uint32_t key = 0; key < 4; ++key) {
      EXPECT_EQ(indexFor(key), key);
   }
   EXPECT_EQ(indexFor(4), invalidIndex);
   EXPECT_EQ(held(4), invalidIndex);
   EXPECT_EQ(allocator->holders(), 4u);
   EXPECT_EQ(indexFor(2), 2u);
   release(2);
   EXPECT_EQ(indexFor(4), 2u);
   EXPECT_EQ(indexFor(5), invalidIndex);
}

TEST_F(FirstFreeIndexAllocatorTest, WithoutEntriesItGivesNoIndex) {
   allocator = Nuv::make<FirstFreeIndexAllocator>("Empty");
   EXPECT_EQ(allocator->numEntries(), 0u);
   EXPECT_EQ(indexFor(1), invalidIndex);
   allocator->numEntriesIs(1);
   EXPECT_EQ(indexFor(1), 0u);
}

TEST_F(FirstFreeIndexAllocatorTest, GrowsWithoutMovingAnybody) {
   for (std::uint32_t key = 0; key < 4; ++key) {
      indexFor(key);
   }
   allocator->numEntriesIs(4);
   EXPECT_EQ(indexFor(4), invalidIndex);
   allocator->numEntriesIs(200);
   EXPECT_EQ(indexFor(4), 4u);
   EXPECT_EQ(held(3), 3u);
   EXPECT_EQ(allocator->numEntries(), 200u);
   EXPECT_EQ(allocator->free(), 195u);
}

TEST_F(FirstFreeIndexAllocatorTest, AReservedRangeIsHalfOpen) {
   allocator->reserveIndices(0, 1);
   EXPECT_EQ(allocator->used(), 1u);
   EXPECT_EQ(indexFor(10), 1u);
   allocator->reserveIndices(2, 2);
   EXPECT_EQ(indexFor(11), 2u);
   allocator->reserveIndices(3, 1);
   EXPECT_EQ(indexFor(12), 3u);
   EXPECT_EQ(indexFor(13), invalidIndex);
}

TEST_F(FirstFreeIndexAllocatorTest, ReservingAgainChangesNothing) {
   allocator->reserveIndices(1, 3);
   allocator->reserveIndices(1, 3);
   allocator->reserveIndices(2, 3);
   EXPECT_EQ(allocator->used(), 2u);
   EXPECT_EQ(allocator->holders(), 0u);
   EXPECT_EQ(keyAt(1), std::nullopt);
   EXPECT_EQ(indexFor(10), 0u);
   EXPECT_EQ(indexFor(11), 3u);
   EXPECT_EQ(indexFor(12), invalidIndex);
}

TEST_F(FirstFreeIndexAllocatorTest, AReservedIndexThatIsHeldStaysWithItsKeyAndIsNotGivenOutAfterIt) {
   indexFor(10);
   allocator->reserveIndices(0, 2);
   EXPECT_EQ(held(10), 0u);
   EXPECT_EQ(allocator->used(), 2u);
   release(10);
   EXPECT_EQ(allocator->used(), 2u);
   EXPECT_EQ(indexFor(11), 2u);
}

TEST_F(FirstFreeIndexAllocatorTest, AReservedRangeHoldsBeyondTheEndOnceThereAreSuchIndices) {
   allocator->reserveIndices(3, 6);
   EXPECT_EQ(allocator->used(), 1u);
   allocator->numEntriesIs(8);
   EXPECT_EQ(allocator->used(), 3u);
   for (std::uint32_t key = 0; key < 3; ++key) {
      EXPECT_EQ(indexFor(key), key);
   }
   EXPECT_EQ(indexFor(3), 6u);
}

TEST_F(FirstFreeIndexAllocatorTest, SaysWhichKeyHoldsAnIndex) {
   indexFor(10);
   indexFor(11);
   EXPECT_EQ(keyAt(1), 11u);
   EXPECT_EQ(allocator->keyForIndex(1).type->name, "Test::NumberKey");
   EXPECT_EQ(keyAt(2), std::nullopt);
   EXPECT_EQ(keyAt(invalidIndex), std::nullopt);
}

TEST_F(FirstFreeIndexAllocatorTest, KeysAreCopied) {
   NumberKey key(10);
   allocator->newIndexForKey(Nuv::nuvType<NumberKey>(), &key);
   key.number = 11;
   EXPECT_EQ(held(10), 0u);
   EXPECT_EQ(held(11), invalidIndex);
}

TEST_F(FirstFreeIndexAllocatorTest, CopiesEndWithTheirHoldAndWithTheAllocator) {
   auto before = LivingKey::living;
   {
      LivingKey one(1);
      LivingKey two(2);
      auto const& type = Nuv::nuvType<LivingKey>();
      allocator->newIndexForKey(type, &one);
      allocator->newIndexForKey(type, &one);
      allocator->newIndexForKey(type, &two);
      EXPECT_EQ(LivingKey::living, before + 4);
      allocator->releaseIndexForKey(type, &one);
      EXPECT_EQ(LivingKey::living, before + 3);
   }
   EXPECT_EQ(LivingKey::living, before + 1);
   allocator = nullptr;
   EXPECT_EQ(LivingKey::living, before);
}

TEST_F(FirstFreeIndexAllocatorTest, ItsOwnCopyOfAKeyReleasesToo) {
   indexFor(10);
   auto key = allocator->keyForIndex(0);
   EXPECT_TRUE(allocator->releaseIndexForKey(*key.type, key.value));
   EXPECT_EQ(allocator->used(), 0u);
   EXPECT_EQ(held(10), invalidIndex);
}

TEST_F(FirstFreeIndexAllocatorTest, EqualKeysOfTwoTypesAreTwo) {
   NumberKey number(10);
   LivingKey living(10);
   EXPECT_EQ(allocator->newIndexForKey(Nuv::nuvType<NumberKey>(), &number), 0u);
   EXPECT_EQ(allocator->newIndexForKey(Nuv::nuvType<LivingKey>(), &living), 1u);
   EXPECT_TRUE(release(10));
   EXPECT_EQ(allocator->indexForKey(Nuv::nuvType<LivingKey>(), &living), 1u);
}

TEST_F(FirstFreeIndexAllocatorTest, IsInitializedWhenItIsToldSo) {
   EXPECT_EQ(allocator->name(), "Test");
   EXPECT_FALSE(allocator->initialized());
   allocator->initializedIs(true);
   EXPECT_TRUE(allocator->initialized());
}

TEST_F(FirstFreeIndexAllocatorTest, GivesTheIndexThatIsRequested) {
   EXPECT_TRUE(request(2, 10));
   EXPECT_EQ(held(10), 2u);
   EXPECT_EQ(keyAt(2), 10u);
   EXPECT_EQ(allocator->used(), 1u);
   EXPECT_EQ(indexFor(11), 0u);
   EXPECT_EQ(indexFor(12), 1u);
   EXPECT_EQ(indexFor(13), 3u);
   EXPECT_TRUE(release(10));
   EXPECT_EQ(indexFor(14), 2u);
}

TEST_F(FirstFreeIndexAllocatorTest, RequestingTheIndexThatIsHeldIsGrantedAgain) {
   EXPECT_TRUE(request(2, 10));
   EXPECT_TRUE(request(2, 10));
   allocator->reserveIndices(2, 3);
   EXPECT_TRUE(request(2, 10));
   EXPECT_TRUE(release(10));
   EXPECT_FALSE(release(10));
   EXPECT_FALSE(request(2, 10));
}

TEST_F(FirstFreeIndexAllocatorTest, RefusesARequestForATakenIndex) {
   EXPECT_EQ(indexFor(10), 0u);
   EXPECT_FALSE(request(0, 11));
   EXPECT_EQ(held(11), invalidIndex);
   EXPECT_EQ(keyAt(0), 10u);
   EXPECT_EQ(allocator->holders(), 1u);
}

TEST_F(FirstFreeIndexAllocatorTest, RefusesARequestForAReservedIndexOrOneThatIsNotThere) {
   allocator->reserveIndices(1, 2);
   EXPECT_FALSE(request(1, 10));
   EXPECT_FALSE(request(4, 10));
   EXPECT_FALSE(request(invalidIndex, 10));
   EXPECT_EQ(held(10), invalidIndex);
   EXPECT_EQ(allocator->used(), 1u);
   EXPECT_EQ(allocator->holders(), 0u);
}

TEST_F(FirstFreeIndexAllocatorTest, RefusesARequestOfAKeyThatHoldsAnother) {
   EXPECT_EQ(indexFor(10), 0u);
   EXPECT_FALSE(request(1, 10));
   EXPECT_EQ(held(10), 0u);
   EXPECT_EQ(keyAt(1), std::nullopt);
   EXPECT_EQ(allocator->used(), 1u);
}

TEST_F(FirstFreeIndexAllocatorTest, SaysWhatIsUsedFreeReservedAndWasUsedAtMost) {
   allocator->numEntriesIs(10);
   allocator->reserveIndices(0, 1);
   allocator->reserveIndices(4, 6);
   EXPECT_EQ(allocator->reserved(), 3u);
   EXPECT_EQ(allocator->used(), 3u);
   EXPECT_EQ(allocator->free(), 7u);
   EXPECT_EQ(allocator->freeRuns(), 2u);
   EXPECT_EQ(allocator->largestFreeRun(), 4u);
   indexFor(1);
   indexFor(2);
   EXPECT_EQ(allocator->highWaterMark(), 5u);
   EXPECT_EQ(allocator->freeRuns(), 2u);
   release(1);
   EXPECT_EQ(allocator->freeRuns(), 3u);
   release(2);
   EXPECT_EQ(allocator->used(), 3u);
   EXPECT_EQ(allocator->highWaterMark(), 5u);
   allocator->reserveIndices(3, 40);
   EXPECT_EQ(allocator->reserved(), 8u);
   EXPECT_EQ(allocator->largestFreeRun(), 2u);
   EXPECT_EQ(allocator->highWaterMark(), 8u);
}

TEST_F(FirstFreeIndexAllocatorTest, ListsWhatIsHeldInTheOrderOfIndices) {
   allocator->reserveIndices(1, 2);
   indexFor(12);
   indexFor(11);
   indexFor(10);
   release(11);
   std::vector<std::pair<std::uint32_t, Index>> all;
   for (auto const& holding : allocator->holdings()) {
      all.emplace_back(static_cast<NumberKey const*>(holding.key.value)->number, holding.base);
      EXPECT_EQ(holding.length, 1u);
   }
   EXPECT_THAT(all, testing::ElementsAre(std::pair(12u, 0u), std::pair(10u, 3u)));
}

TEST_F(FirstFreeIndexAllocatorTest, HandsOutItsOwnCopyOfAKey) {
   EXPECT_FALSE(getKey(10));
   indexFor(10);
   auto key = getKey(10);
   ASSERT_TRUE(key);
   EXPECT_EQ(key.value, allocator->keyForIndex(0).value);
   EXPECT_EQ(static_cast<NumberKey const*>(key.value)->number, 10u);
   EXPECT_TRUE(allocator->canReleaseIndex(key, nullptr));
   EXPECT_FALSE(allocator->canReleaseIndex({}, nullptr));
}

TEST_F(FirstFreeIndexAllocatorTest, IndicesMayBeReleasedInEveryOrder) {
   std::vector<std::uint32_t> order{0, 1, 2, 3};
   do {
      for (std::uint32_t key = 0; key < 4; ++key) {
         ASSERT_EQ(indexFor(key), key);
      }
      auto lowest = invalidIndex;
      for (auto key : order) {
         ASSERT_TRUE(release(key));
         lowest = std::min(lowest, key);
         ASSERT_EQ(indexFor(9), lowest);
         ASSERT_TRUE(release(9));
      }
      ASSERT_EQ(allocator->free(), 4u);
      ASSERT_EQ(allocator->freeRuns(), 1u);
   } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(FirstFreeIndexAllocatorTest, ShrinksDownToWhatIsHeldAndKeepsItsReservations) {
   allocator->reserveIndices(1, 4);
   indexFor(10);
   allocator->numEntriesIs(2);
   EXPECT_EQ(allocator->used(), 2u);
   EXPECT_EQ(allocator->reserved(), 1u);
   EXPECT_EQ(indexFor(11), invalidIndex);
   allocator->numEntriesIs(6);
   EXPECT_EQ(allocator->reserved(), 3u);
   EXPECT_EQ(indexFor(11), 4u);
}

TEST(FirstFreeIndexAllocatorDeathTest, NeverShrinksBelowWhatIsHeld) {
   auto allocator = Nuv::make<FirstFreeIndexAllocator>("TheAllocator");
   allocator->numEntriesIs(9);
   NumberKey key(1);
   allocator->requestIndexForKey(5, Nuv::nuvType<NumberKey>(), &key);
   allocator->numEntriesIs(6);
   EXPECT_DEATH(allocator->numEntriesIs(5), "number >= heldEnd\\(\\).*TheAllocator");
}

TEST(FirstFreeIndexAllocatorDeathTest, ReleaseFromATableNeedsATable) {
   auto allocator = Nuv::make<FirstFreeIndexAllocator>("TheAllocator");
   NumberKey key(1);
   EXPECT_DEATH(allocator->releaseIndexFromTable(Nuv::nuvType<NumberKey>(), &key, nullptr),
                "SwTableAccessor.*table.*TheAllocator");
}

} // namespace
} // namespace Asic
