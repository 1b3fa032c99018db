#include "platform/asic/FirstFreeIndexAllocator.h"

#include "platform/asic/testing/Keys.h"

#include <gmock/gmock.h>

#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>

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

TEST_F(FirstFreeIndexAllocatorTest, RandomUseGivesWhatAPlainModelGives) {
   for (std::uint32_t seed : {1u, std::random_device()()}) {
      std::cout << "seed " << seed << '\n';
      SCOPED_TRACE(seed);
      std::mt19937 random(seed);
      allocator = Nuv::make<FirstFreeIndexAllocator>("Random");
      std::map<std::uint32_t, Index> model;
      std::set<Index> free;
      std::set<Index> reserved;
      Index size = 0;
      for (int step = 0; step < 5000; ++step) {
         std::uint32_t key = random() % 120;
         auto dice = random() % 100;
         if (dice < 50) {
            auto expected = model.contains(key) ? model[key] : free.empty() ? invalidIndex : *free.begin();
            ASSERT_EQ(indexFor(key), expected);
            if (expected != invalidIndex) {
               model[key] = expected;
               free.erase(expected);
            }
         } else if (dice < 97) {
            ASSERT_EQ(release(key), model.contains(key));
            if (model.contains(key) && !reserved.contains(model[key])) {
               free.insert(model[key]);
            }
            model.erase(key);
         } else if (dice < 98) {
            Index first = random() % 90;
            Index second = first + random() % 3;
            allocator->reserveIndices(first, second);
            for (auto index = first; index < second; ++index) {
               reserved.insert(index);
               free.erase(index);
            }
         } else if (size < 90) {
            auto next = size + random() % 20;
            allocator->numEntriesIs(next);
            for (; size < next; ++size) {
               if (!reserved.contains(size)) {
                  free.insert(size);
               }
            }
         }
         ASSERT_EQ(allocator->free(), free.size());
         ASSERT_EQ(allocator->holders(), model.size());
         for (auto const& [each, index] : model) {
            ASSERT_EQ(held(each), index);
            ASSERT_EQ(keyAt(index), each);
         }
      }
   }
}

TEST(FirstFreeIndexAllocatorDeathTest, NeverShrinks) {
   auto allocator = Nuv::make<FirstFreeIndexAllocator>("TheAllocator");
   allocator->numEntriesIs(4);
   EXPECT_DEATH(allocator->numEntriesIs(3), "number >= numEntries_.*TheAllocator");
}

} // namespace
} // namespace Asic
