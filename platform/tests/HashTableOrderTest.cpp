#include "platform/nuv/HashTable.h"

#include "platform/tests/HashTableItems.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace {

using namespace HashTableItems;
using Nuv::HashTable;

template <class Traits>
class Canonical : public testing::Test {};
TYPED_TEST_SUITE(Canonical, AllHashes);

TYPED_TEST(Canonical, OrderDependsOnTheContentsOnly) {
   constexpr std::uint32_t count = 700;
   std::vector<std::uint32_t> expected(count);
   for (std::uint32_t i = 0; i < count; ++i) {
      expected[i] = i * 5;
   }
   std::vector<std::uint32_t> order = expected;
   std::sort(expected.begin(), expected.end(),
             [](auto left, auto right) { return place<TypeParam>(left) < place<TypeParam>(right); });

   std::mt19937 random(5);
   HashTable<TypeParam> reference;
   for (std::uint32_t key : order) {
      reference.insert({key, key});
   }
   ASSERT_EQ(keys(reference), expected);
   for (int round = 0; round < 4; ++round) {
      SCOPED_TRACE(round);
      std::shuffle(order.begin(), order.end(), random);
      HashTable<TypeParam> table;
      table.reserve(round % 2 ? 3000 : 0);
      // Others come and go in between.
      for (std::uint32_t i = 0; i < count; ++i) {
         table.insert({i * 5 + 1, 0});
         table.insert({order[i], order[i]});
         if (i >= 20) {
            ASSERT_TRUE(table.erase((i - 20) * 5 + 1));
         }
      }
      EXPECT_FALSE(table == reference);
      for (std::uint32_t i = count - 20; i < count; ++i) {
         ASSERT_TRUE(table.erase(i * 5 + 1));
      }
      EXPECT_EQ(keys(table), expected);
      EXPECT_TRUE(table == reference);

      HashTable<TypeParam> copy(table);
      EXPECT_EQ(keys(copy), expected);
      copy.find(order[0])->value = 1'000'000;
      EXPECT_FALSE(copy == table);
      copy = reference;
      EXPECT_TRUE(copy == table);
      copy.erase(order[0]);
      EXPECT_EQ(copy.size(), count - 1);
      EXPECT_EQ(table.size(), count);
   }
}

TYPED_TEST(Canonical, EverySizeUpToSomeHundreds) {
   HashTable<TypeParam> table;
   std::set<Place<TypeParam>> expected;
   for (std::uint32_t i = 0; i < 300; ++i) {
      std::uint32_t key = i * 2654435761u;
      ASSERT_TRUE(table.insert({key, i}).second);
      expected.insert(place<TypeParam>(key));
      ASSERT_EQ(table.size(), i + 1);
      auto at = table.begin();
      for (auto const& [hash, expectedKey] : expected) {
         ASSERT_EQ(at->key, expectedKey);
         ++at;
      }
      ASSERT_TRUE(at == table.end());
   }
   for (std::uint32_t i = 0; i < 300; ++i) {
      std::uint32_t key = i * 2654435761u;
      ASSERT_EQ(table.find(key)->value, i);
      ASSERT_TRUE(table.erase(key));
      ASSERT_EQ(table.find(key), nullptr);
   }
   EXPECT_TRUE(table.begin() == table.end());
}

TYPED_TEST(Canonical, MovedFromIsEmpty) {
   HashTable<TypeParam> table;
   for (std::uint32_t i = 0; i < 100; ++i) {
      table.insert({i, i});
   }
   HashTable<TypeParam> copy(table);
   Item* slot = table.find(50);
   HashTable<TypeParam> moved(std::move(table));
   EXPECT_EQ(moved.find(50), slot);
   EXPECT_TRUE(moved == copy);
   EXPECT_TRUE(table.empty()); // NOLINT(bugprone-use-after-move): left empty
   EXPECT_EQ(table.find(50), nullptr);
   EXPECT_EQ(table.bytes(), 0u);

   table.insert({1000, 0});
   table = std::move(moved);
   EXPECT_TRUE(table == copy);
   EXPECT_TRUE(moved.empty()); // NOLINT(bugprone-use-after-move): left empty
   auto& self = table;
   table = std::move(self);
   EXPECT_TRUE(table == copy);
   self = table;
   EXPECT_TRUE(table == copy);
   table.swap(moved);
   EXPECT_TRUE(table.empty());
   EXPECT_TRUE(moved == copy);
}

TYPED_TEST(Canonical, CursorMeetsEachElementWhileItErasesThem) {
   HashTable<TypeParam> table;
   for (std::uint32_t i = 0; i < 200; ++i) {
      table.insert({i, i});
   }
   std::vector<std::uint32_t> expected = keys(table);
   std::vector<std::uint32_t> met;
   for (auto cursor = table.iterator(); cursor; ++cursor) {
      met.push_back(cursor->key);
      ASSERT_TRUE(table.erase(cursor->key));
   }
   EXPECT_EQ(met, expected);
   EXPECT_TRUE(table.empty());
}

TYPED_TEST(Canonical, CursorSurvivesGrowthAndMeetsWhatLiesAhead) {
   HashTable<TypeParam> table;
   std::set<Place<TypeParam>> expected;
   for (std::uint32_t i = 0; i < 20; ++i) {
      table.insert({i, i});
      expected.insert(place<TypeParam>(i));
   }
   std::uint32_t next = 20;
   std::optional<Place<TypeParam>> last;
   std::size_t met = 0;
   for (auto cursor = table.iterator(); cursor; ++cursor) {
      auto at = place<TypeParam>(cursor->key);
      auto ahead = last ? expected.upper_bound(*last) : expected.begin();
      ASSERT_TRUE(*ahead == at);
      last = at;
      ++met;
      for (int i = 0; i < 10 && next < 600; ++i, ++next) {
         table.insert({next, next});
         expected.insert(place<TypeParam>(next));
      }
   }
   EXPECT_TRUE(*last == *expected.rbegin());
   EXPECT_GT(met, 20u);
}

} // namespace
