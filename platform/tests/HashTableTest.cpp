#include "platform/nuv/HashTable.h"

#include "platform/tests/HashTableItems.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace HashTableItems;
using Nuv::HashTable;

TEST(HashTable, EmptyHoldsNothing) {
   HashTable<ItemTraits<spread>> table;
   EXPECT_TRUE(table.empty());
   EXPECT_EQ(table.size(), 0u);
   EXPECT_EQ(table.bytes(), 0u);
   EXPECT_EQ(table.find(1), nullptr);
   EXPECT_FALSE(table.erase(1));
   EXPECT_TRUE(table.begin() == table.end());
   EXPECT_FALSE(table.iterator());
   EXPECT_FALSE(++table.iterator());
   table.clear();
   EXPECT_EQ(table.bytes(), 0u);
   HashTable<ItemTraits<spread>> copy(table);
   EXPECT_EQ(copy.bytes(), 0u);
   EXPECT_TRUE(copy == table);
}

TEST(HashTable, InsertKeepsTheExistingSlot) {
   HashTable<ItemTraits<spread>> table;
   auto [first, isNew] = table.insert({7, 1});
   ASSERT_TRUE(isNew);
   EXPECT_EQ(*first, (Item{7, 1}));
   auto [second, isNewAgain] = table.insert({7, 2});
   EXPECT_FALSE(isNewAgain);
   EXPECT_EQ(second, first);
   EXPECT_EQ(second->value, 1u);
   EXPECT_EQ(table.size(), 1u);
   EXPECT_TRUE(table.has(7));
   EXPECT_FALSE(table.has(8));
   EXPECT_TRUE(table.erase(7));
   EXPECT_FALSE(table.erase(7));
   EXPECT_FALSE(table.has(7));
   EXPECT_TRUE(table.empty());
}

TEST(HashTable, HashedVariantsMeetTheSameElements) {
   using Traits = ItemTraits<zero>;
   HashTable<Traits> table;
   EXPECT_TRUE(table.insertHashed(0, {3, 30}).second);
   EXPECT_FALSE(table.insert({3, 31}).second);
   ASSERT_NE(table.findHashed(0, 3), nullptr);
   EXPECT_EQ(table.find(3), table.findHashed(0, 3));
   EXPECT_EQ(std::as_const(table).findHashed(0, 3), table.find(3));
   EXPECT_EQ(table.findHashed(0, 4), nullptr);
   EXPECT_TRUE(table.eraseHashed(0, 3));
   EXPECT_FALSE(table.eraseHashed(0, 3));
}

TEST(HashTableCursor, GoesOnFromAnErasedElement) {
   HashTable<ItemTraits<constant>> table;
   for (std::uint32_t key : {10u, 20u, 30u, 40u}) {
      table.insert({key, 0});
   }
   auto cursor = table.iterator();
   ++cursor;
   table.erase(20);
   EXPECT_TRUE(cursor);
   auto reading = cursor;
   EXPECT_EQ(reading->key, 30u);
   ++reading;
   EXPECT_EQ(reading->key, 40u);

   // Without reading, the next step leads to the same neighbour, even one that came later.
   table.insert({25, 0});
   ++cursor;
   EXPECT_EQ(cursor->key, 25u);

   table.erase(25);
   table.insert({25, 1});
   EXPECT_EQ(cursor->value, 1u);
   ++cursor;
   EXPECT_EQ(cursor->key, 30u);

   table.clear();
   EXPECT_FALSE(cursor);
   table.insert({20, 0});
   EXPECT_FALSE(cursor);
   table.insert({35, 0});
   EXPECT_TRUE(cursor);
   EXPECT_EQ(cursor->key, 35u);
   ++cursor;
   EXPECT_FALSE(cursor);
   table.insert({50, 0});
   EXPECT_FALSE(cursor);
   EXPECT_FALSE(++cursor);
}

TEST(HashTableCursor, OfAConstTableSeesItsChanges) {
   HashTable<ItemTraits<constant>> table;
   table.insert({1, 1});
   auto cursor = std::as_const(table).iterator();
   static_assert(std::is_same_v<decltype(*cursor), Item const&>);
   table.erase(1);
   table.insert({2, 2});
   EXPECT_EQ(cursor->key, 2u);

   // What the table holds counts, not whence it came.
   HashTable<ItemTraits<constant>> other;
   other.insert({3, 3});
   table = std::move(other);
   EXPECT_EQ(cursor->key, 3u);
   table = HashTable<ItemTraits<constant>>();
   EXPECT_FALSE(cursor);
}

TEST(HashTable, PositionsAreForwardIterators) {
   using Table = HashTable<ItemTraits<spread>>;
   static_assert(std::forward_iterator<Table::Position<false>>);
   static_assert(std::forward_iterator<Table::Position<true>>);
   Table table;
   for (std::uint32_t i = 0; i < 50; ++i) {
      table.insert({i, 0});
   }
   for (Item& item : table) {
      item.value = item.key + 1;
   }
   auto at = table.begin();
   EXPECT_EQ(at++->key, keys(table)[0]);
   EXPECT_EQ(at->key, keys(table)[1]);
   EXPECT_TRUE(std::all_of(table.begin(), table.end(), [](Item const& i) { return i.value == i.key + 1; }));
   EXPECT_EQ(std::distance(table.begin(), table.end()), 50);
}

TEST(HashTable, ReserveAvoidsGrowth) {
   HashTable<ItemTraits<spread>> table;
   table.reserve(5000);
   std::size_t bytes = table.bytes();
   EXPECT_GE(bytes, 5000 * (sizeof(Item) + sizeof(std::uint32_t)));
   EXPECT_LE(bytes, 12000 * (sizeof(Item) + sizeof(std::uint32_t)));
   for (std::uint32_t i = 0; i < 5000; ++i) {
      table.insert({i, i});
   }
   EXPECT_EQ(table.bytes(), bytes);
   table.reserve(10);
   EXPECT_EQ(table.bytes(), bytes);
   EXPECT_THROW(table.reserve(std::numeric_limits<std::size_t>::max()), std::length_error);
   EXPECT_EQ(table.bytes(), bytes);
   EXPECT_EQ(table.size(), 5000u);
   EXPECT_TRUE(table.has(4999));
   table.clear();
   EXPECT_EQ(table.bytes(), 0u);
}

TEST(HashTable, AMillionElementsStayCompact) {
   constexpr std::uint32_t count = 1 << 20;
   HashTable<ItemTraits<spread>> table;
   for (std::uint32_t i = 0; i < count; ++i) {
      table.insert({i, ~i});
   }
   ASSERT_EQ(table.size(), count);
   EXPECT_LT(table.bytes(), std::size_t(count) * 3 * (sizeof(Item) + sizeof(std::uint32_t)));
   std::uint32_t good = 0;
   std::uint32_t last = 0;
   bool isOrdered = true;
   for (Item const& item : table) {
      isOrdered &= last <= spread(item.key);
      last = spread(item.key);
   }
   EXPECT_TRUE(isOrdered);
   for (std::uint32_t i = 0; i < count; ++i) {
      Item const* item = table.find(i);
      good += item && item->value == ~i;
   }
   EXPECT_EQ(good, count);
   EXPECT_EQ(table.find(count), nullptr);
}

// Slots that point at what has the key.

struct Handle {
   std::string name;
   std::uint32_t hash;
};

struct HandleTraits {
   using Slot = Handle*;
   using Key = std::string;
   inline static int reads = 0;
   static std::uint32_t hash(Key const& key) { return Nuv::hashOf(key, 1); }
   static Key const& key(Slot const& slot) {
      ++reads;
      return slot->name;
   }
   static bool less(Key const& left, Key const& right) { return left < right; }
   static bool equal(Key const& left, Key const& right) { return left == right; }
};

TEST(HashTable, KeysAreReadOnlyWhereHashesAreEqual) {
   std::vector<std::unique_ptr<Handle>> handles;
   HashTable<HandleTraits> table;
   for (int i = 0; i < 3000; ++i) {
      std::string name = "handle" + std::to_string(i);
      handles.push_back(std::make_unique<Handle>(Handle{name, HandleTraits::hash(name)}));
      int before = HandleTraits::reads;
      ASSERT_TRUE(table.insertHashed(handles[i]->hash, handles[i].get()).second);
      // Its own key, and again when the table grew.
      ASSERT_LE(HandleTraits::reads - before, 2);
   }
   int before = HandleTraits::reads;
   EXPECT_EQ(table.find("absent"), nullptr);
   EXPECT_FALSE(table.erase("absent"));
   table.reserve(20'000);
   EXPECT_EQ(HandleTraits::reads, before);
   ASSERT_NE(table.find("handle77"), nullptr);
   EXPECT_EQ(*table.find("handle77"), handles[77].get());
   EXPECT_EQ(HandleTraits::reads, before + 2);
   HashTable<HandleTraits> copy(table);
   EXPECT_TRUE(copy == table);
   EXPECT_TRUE(table.erase("handle78"));
   EXPECT_EQ(HandleTraits::reads, before + 3);
}

TEST(HashTable, ObjectsMayGoBeforeTheirSlotsNeighboursMove) {
   std::vector<std::unique_ptr<Handle>> handles;
   HashTable<HandleTraits> table;
   for (int i = 0; i < 500; ++i) {
      handles.push_back(std::make_unique<Handle>(Handle{"h" + std::to_string(i), 0}));
      table.insert(handles.back().get());
   }
   std::size_t met = 0;
   for (auto cursor = table.iterator(); cursor; ++cursor, ++met) {
      Handle* handle = *cursor;
      ASSERT_TRUE(table.erase(handle->name));
      auto isOwner = [handle](auto const& owner) { return owner.get() == handle; };
      std::find_if(handles.begin(), handles.end(), isOwner)->reset();
   }
   EXPECT_EQ(met, 500u);
   EXPECT_TRUE(table.empty());
}

// Slots with constructors and destructors.

TEST(HashTable, OverAlignedSlots) {
   struct alignas(64) Wide {
      std::uint32_t key;
   };
   struct Traits {
      using Slot = Wide;
      using Key = std::uint32_t;
      static std::uint32_t hash(Key const& key) { return spread(key); }
      static Key const& key(Slot const& slot) { return slot.key; }
      static bool less(Key const& left, Key const& right) { return left < right; }
      static bool equal(Key const& left, Key const& right) { return left == right; }
   };
   HashTable<Traits> table;
   for (std::uint32_t i = 0; i < 100; ++i) {
      table.insert({i});
   }
   std::uint32_t sum = 0;
   for (Wide const& wide : table) {
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(&wide) % 64, 0u);
      sum += wide.key;
   }
   EXPECT_EQ(sum, 4950u);
}

} // namespace
