#include "platform/asic/AnySizedBlockAllocator.h"
#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/asic/testing/Keys.h"
#include "platform/asic/testing/TinyTable.h"
#include "platform/nuv/testing/Soak.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <string>

namespace Asic {
namespace {

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

/// Steps of each run: fewer where each takes longer. There are two kinds of allocator, and two seeds for
/// each.
constexpr int usualSteps = __has_feature(address_sanitizer) || sizeof(void*) == 4 ? 25'000 : 250'000;

/// What both kinds of allocator answer, worked out the long way: one letter for each index.
class Model {
 public:
   struct Held {
      Index base;
      Index length;
      std::set<SwTable const*> users;
   };

   std::string rows;         // '.' free, 'x' held or reserved
   std::set<Index> reserved; // also beyond the end
   std::map<std::uint32_t, Held> held;
   std::set<SwTable const*> sharers;
   std::size_t highest = 0;

   Index acquire(std::uint32_t key, Index length, SwTable const* table) {
      if (auto found = held.find(key); found != held.end()) {
         found->second.users.insert(table);
         return found->second.base;
      }
      if (length == 0) {
         return 0;
      }
      auto base = rows.find(std::string(length, '.'));
      if (base == std::string::npos) {
         return invalidIndex;
      }
      place(key, Index(base), length, table);
      return Index(base);
   }

   bool request(Index index, std::uint32_t key, SwTable const* table) {
      if (auto found = held.find(key); found != held.end()) {
         if (found->second.base != index) {
            return false;
         }
         found->second.users.insert(table);
         return true;
      }
      if (index >= rows.size() || rows[index] != '.') {
         return false;
      }
      place(key, index, 1, table);
      return true;
   }

   bool release(std::uint32_t key, SwTable const* table, bool atOnce) {
      auto found = held.find(key);
      if (found == held.end() || (!atOnce && found->second.users.erase(table) == 0)) {
         return false;
      }
      if (atOnce || found->second.users.empty()) {
         auto [base, length, users] = found->second;
         held.erase(found);
         for (auto index = base; index < base + length; ++index) {
            rows[index] = reserved.contains(index) ? 'x' : '.';
         }
      }
      return true;
   }

   void tableDel(SwTable const* table) {
      sharers.erase(table);
      for (auto at = held.begin(); at != held.end();) {
         release((at++)->first, table, false);
      }
   }

   void reserve(Index first, Index second) {
      for (auto index = first; index < second; ++index) {
         reserved.insert(index);
      }
      takeReserved();
   }

   void numEntriesIs(Index number) {
      rows.resize(number, '.');
      takeReserved();
   }

   Index heldEnd() const {
      Index end = 0;
      for (auto const& [key, each] : held) {
         end = std::max(end, each.base + each.length);
      }
      return end;
   }

   std::uint32_t const* keyAt(Index index) const {
      for (auto const& [key, each] : held) {
         if (index >= each.base && index - each.base < each.length) {
            return &key;
         }
      }
      return nullptr;
   }

   Index used() const { return Index(std::count(rows.begin(), rows.end(), 'x')); }

   std::pair<Index, Index> runsAndLongest() const {
      Index runs = 0;
      Index longest = 0;
      Index open = 0;
      for (char row : rows) {
         open = row == '.' ? open + 1 : 0;
         runs += open == 1;
         longest = std::max(longest, open);
      }
      return {runs, longest};
   }

 private:
   void place(std::uint32_t key, Index base, Index length, SwTable const* table) {
      held[key] = {base, length, {table}};
      std::fill_n(rows.begin() + base, length, 'x');
      highest = std::max<std::size_t>(highest, used());
   }
   void takeReserved() {
      for (auto index : reserved) {
         if (index < rows.size()) {
            rows[index] = 'x';
         }
      }
      highest = std::max<std::size_t>(highest, used());
   }
};

/// One allocator beside the model: every call is made of both.
template <class A>
class Pair {
 public:
   static constexpr bool isRuns = std::derived_from<A, AnySizedBlockAllocator>;
   static constexpr Index mostEntries = 160;

   explicit Pair(std::uint32_t seed) : random_(seed) {}

   void step() {
      std::uint32_t number = random_() % 90;
      SwTable const* table = tables_[random_() % tables_.size()].get();
      auto dice = random_() % 200;
      bool isFilling = ++steps_ / 3000 % 2 == 0;
      if (dice == 0) {
         share(table);
      } else if (dice == 1) {
         model_.tableDel(table);
         ASSERT_EQ(allocator_->tableDel(table), !model_.sharers.empty());
      } else if (dice == 2) {
         reserve();
      } else if (dice < 5) {
         resize();
      } else if (dice < 20) {
         request(number, table);
      } else if (dice < (isFilling ? 130 : 70)) {
         acquire(number, table);
      } else {
         release(number, table);
      }
      check(number, Index(random_() % (mostEntries + 2)));
   }

   void checkHoldings() const {
      std::map<Index, std::pair<Index, std::uint32_t>> all;
      for (auto const& [key, each] : model_.held) {
         all[each.base] = {each.length, key};
      }
      auto expected = all.begin();
      for (auto const& holding : allocator_->holdings()) {
         ASSERT_NE(expected, all.end());
         ASSERT_EQ(holding.base, expected->first);
         ASSERT_EQ(std::pair(holding.length, numberOf(holding.key)), expected->second);
         ++expected;
      }
      ASSERT_EQ(expected, all.end());
   }

 private:
   static std::uint32_t numberOf(GenericIndexAllocator::Key const& key) {
      return static_cast<BlockKey const*>(key.value)->number;
   }

   void share(SwTable const* table) {
      allocator_->sharerIs({}, table);
      model_.sharers.insert(table);
   }

   void reserve() {
      if constexpr (!isRuns) {
         auto first = Index(random_() % mostEntries);
         auto second = Index(first + random_() % 4);
         if (model_.reserved.size() < 20) {
            allocator_->reserveIndices(first, second);
            model_.reserve(first, second);
         }
      }
   }

   void resize() {
      auto lowest = model_.heldEnd();
      auto number = Index(lowest + random_() % (mostEntries - lowest + 1));
      allocator_->numEntriesIs(number);
      model_.numEntriesIs(number);
   }

   void request(std::uint32_t number, SwTable const* table) {
      if constexpr (!isRuns) {
         auto index = Index(random_() % (mostEntries + 2));
         BlockKey key(number, 1);
         ASSERT_EQ(allocator_->requestIndexForKey(index, type_, &key, table),
                   model_.request(index, number, table));
      }
   }

   void acquire(std::uint32_t number, SwTable const* table) {
      BlockKey key(number, isRuns ? Index(random_() % 9) : 1);
      // A block's size is a part of what it is.
      if (auto held = model_.held.find(number); held != model_.held.end()) {
         key.length = held->second.length;
      }
      auto expected = model_.acquire(number, key.length, table);
      if constexpr (isRuns) {
         ASSERT_EQ(allocator_->newIndexForBlock(type_, &key, table), expected);
      } else {
         ASSERT_EQ(allocator_->newIndexForKey(type_, &key, table), expected);
      }
   }

   void release(std::uint32_t number, SwTable const* table) {
      BlockKey key(number, 0);
      auto held = model_.held.find(number);
      auto ownKey = allocator_->getKey(type_, &key);
      ASSERT_EQ(bool(ownKey), held != model_.held.end());
      ASSERT_EQ(allocator_->canReleaseIndex(ownKey, table),
                held != model_.held.end() && held->second.users == std::set<SwTable const*>{table});
      if (table && random_() % 2 == 0) {
         ASSERT_EQ(allocator_->releaseIndexFromTable(type_, &key, table),
                   model_.release(number, table, model_.sharers.empty()));
      } else {
         ASSERT_EQ(allocator_->releaseIndexForKey(type_, &key, table), model_.release(number, table, false));
      }
   }

   void check(std::uint32_t number, Index index) const {
      BlockKey key(number, 0);
      auto held = model_.held.find(number);
      ASSERT_EQ(allocator_->indexForKey(type_, &key),
                held == model_.held.end() ? invalidIndex : held->second.base);
      auto holding = allocator_->holdingAt(index);
      auto const* keyThere = model_.keyAt(index);
      ASSERT_EQ(bool(holding.key), keyThere != nullptr);
      if (keyThere) {
         ASSERT_EQ(numberOf(holding.key), *keyThere);
         ASSERT_EQ(holding.base, model_.held.at(*keyThere).base);
         ASSERT_EQ(holding.length, model_.held.at(*keyThere).length);
      }
      ASSERT_EQ(allocator_->used(), model_.used());
      ASSERT_EQ(allocator_->free(), model_.rows.size() - model_.used());
      ASSERT_EQ(allocator_->numEntries(), model_.rows.size());
      ASSERT_EQ(
            allocator_->reserved(),
            std::distance(model_.reserved.begin(), model_.reserved.lower_bound(Index(model_.rows.size()))));
      ASSERT_EQ(std::pair(allocator_->freeRuns(), allocator_->largestFreeRun()), model_.runsAndLongest());
      ASSERT_EQ(allocator_->highWaterMark(), model_.highest);
      ASSERT_EQ(allocator_->holders(), model_.held.size());
      ASSERT_EQ(allocator_->sharers(), model_.sharers.size());
   }

   Nuv::NuvType const& type_ = Nuv::nuvType<BlockKey>();
   std::mt19937 random_;
   std::uint64_t steps_ = 0;
   Nuv::Ptr<A> allocator_ = Nuv::make<A>("Random");
   std::array<Nuv::Ptr<TinyTable>, 4> tables_{nullptr, Nuv::make<TinyTable>(), Nuv::make<TinyTable>(),
                                              Nuv::make<TinyTable>()};
   Model model_;
};

template <class A>
class IndexAllocatorRandom : public testing::Test {};

using Kinds = testing::Types<FirstFreeIndexAllocator, AnySizedBlockAllocator>;
TYPED_TEST_SUITE(IndexAllocatorRandom, Kinds);

TYPED_TEST(IndexAllocatorRandom, AnswersAsANaiveModelDoes) {
   Nuv::soak(usualSteps, [this](std::uint32_t seed, int steps) {
      Pair<TypeParam> pair(seed);
      for (int step = 0; step < steps && !this->HasFatalFailure(); ++step) {
         SCOPED_TRACE(step);
         pair.step();
         if (step % 100 == 0) {
            pair.checkHoldings();
         }
      }
   });
}

/// All of 2^20 indices, taken one by one, given back in some order and taken again.
class FullIndexSpaceRandom : public testing::Test {
 protected:
   static constexpr Index size = 1 << 20;

   FullIndexSpaceRandom() {
      allocator->numEntriesIs(size);
      std::iota(order.begin(), order.end(), 0);
   }

   void fill() {
      for (Index index = 0; index < size; ++index) {
         NumberKey key(index);
         ASSERT_EQ(allocator->newIndexForKey(type, &key), index);
      }
      NumberKey key(size);
      ASSERT_EQ(allocator->newIndexForKey(type, &key), invalidIndex);
      ASSERT_EQ(allocator->free(), 0u);
      ASSERT_EQ(allocator->keyForIndex(size - 1).type, &type);
   }

   void releaseInOrder() {
      Index lowest = invalidIndex;
      for (auto index : order) {
         NumberKey key(index);
         ASSERT_TRUE(allocator->releaseIndexForKey(type, &key));
         if (index < lowest) {
            lowest = index;
            NumberKey other(size);
            ASSERT_EQ(allocator->newIndexForKey(type, &other), lowest);
            ASSERT_TRUE(allocator->releaseIndexForKey(type, &other));
         }
      }
      ASSERT_EQ(allocator->used(), 0u);
      ASSERT_EQ(allocator->largestFreeRun(), size);
   }

   Nuv::NuvType const& type = Nuv::nuvType<NumberKey>();
   Nuv::Ptr<FirstFreeIndexAllocator> allocator = Nuv::make<FirstFreeIndexAllocator>("Full");
   std::vector<Index> order = std::vector<Index>(size);
};

TEST_F(FullIndexSpaceRandom, IsExhaustedAndRecoversFromTheFront) {
   fill();
   releaseInOrder();
   fill();
}

TEST_F(FullIndexSpaceRandom, IsExhaustedAndRecoversFromTheBack) {
   std::reverse(order.begin(), order.end());
   fill();
   releaseInOrder();
}

TEST_F(FullIndexSpaceRandom, IsExhaustedAndRecoversInAnyOrder) {
   auto seed = Nuv::soakSeeds().back();
   std::cout << "seed " << seed << '\n';
   std::shuffle(order.begin(), order.end(), std::mt19937(seed));
   fill();
   releaseInOrder();
   fill();
}

/// The same with runs, until not even one index is free.
TEST(FullRunSpaceRandom, IsExhaustedAndRecovers) {
   constexpr Index size = 1 << 20;
   auto seed = Nuv::soakSeeds().back();
   std::cout << "seed " << seed << '\n';
   std::mt19937 random(seed);
   auto const& type = Nuv::nuvType<BlockKey>();
   auto allocator = Nuv::make<AnySizedBlockAllocator>("Full");
   allocator->numEntriesIs(size);
   std::vector<BlockKey> keys;
   Index next = 0;
   while (next < size) {
      BlockKey key(std::uint32_t(keys.size()), std::min<Index>(1 + random() % 128, size - next));
      ASSERT_EQ(allocator->newIndexForBlock(type, &key), next);
      next += key.length;
      keys.push_back(key);
   }
   BlockKey one(std::uint32_t(keys.size()), 1);
   ASSERT_EQ(allocator->newIndexForBlock(type, &one), invalidIndex);
   ASSERT_EQ(allocator->holdingAt(size - 1).base, size - keys.back().length);
   std::shuffle(keys.begin(), keys.end(), random);
   Index free = 0;
   for (auto const& key : keys) {
      ASSERT_TRUE(allocator->releaseIndexForKey(type, &key));
      free += key.length;
      ASSERT_EQ(allocator->free(), free);
   }
   ASSERT_EQ(allocator->freeRuns(), 1u);
   BlockKey all(0, size);
   ASSERT_EQ(allocator->newIndexForBlock(type, &all), 0u);
}

} // namespace
} // namespace Asic
