#include "platform/nuv/HashTable.h"

#include "platform/nuv/HashMap.h"
#include "platform/nuv/HashSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Nuv::HashMap;
using Nuv::HashSet;
using Nuv::HashTable;

struct Item {
   std::uint32_t key;
   std::uint32_t value;
   bool operator==(Item const&) const = default;
};

/// Items under a hash function that the test chooses.
template <std::uint32_t (*hashFunction)(std::uint32_t)>
struct ItemTraits {
   using Slot = Item;
   using Key = std::uint32_t;
   static std::uint32_t hash(Key const& key) { return hashFunction(key); }
   static Key const& key(Slot const& slot) { return slot.key; }
   static bool less(Key const& left, Key const& right) { return left < right; }
   static bool equal(Key const& left, Key const& right) { return left == right; }
};

std::uint32_t
spread(std::uint32_t key) {
   return Nuv::hashOf(key, 42);
}
std::uint32_t
constant(std::uint32_t) {
   return 0xfffffff0;
}
std::uint32_t
zero(std::uint32_t) {
   return 0;
}
/// Few distinct hashes, crowded at both ends of the table.
std::uint32_t
crowded(std::uint32_t key) {
   return key % 3 == 0 ? key % 7 : key % 3 == 1 ? 0xffffffff - key % 5 : spread(key % 50);
}

template <class Traits>
std::vector<std::uint32_t>
keys(HashTable<Traits> const& table) {
   std::vector<std::uint32_t> result;
   for (auto const& slot : table) {
      result.push_back(Traits::key(slot));
   }
   return result;
}

template <class Traits>
using Place = std::pair<std::uint32_t, typename Traits::Key>;

/// Where an element belongs in the order of the table.
template <class Traits>
Place<Traits>
place(typename Traits::Key const& key) {
   return {std::max(Traits::hash(key), 1u), key};
}

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

template <class Traits>
class Canonical : public testing::Test {};
using AllHashes =
      testing::Types<ItemTraits<spread>, ItemTraits<constant>, ItemTraits<zero>, ItemTraits<crowded>>;
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
   EXPECT_TRUE(table.empty());
   EXPECT_EQ(table.find(50), nullptr);
   EXPECT_EQ(table.bytes(), 0u);

   table.insert({1000, 0});
   table = std::move(moved);
   EXPECT_TRUE(table == copy);
   EXPECT_TRUE(moved.empty());
   auto& self = table;
   table = std::move(self);
   EXPECT_TRUE(table == copy);
   self = table;
   EXPECT_TRUE(table == copy);
   table.swap(moved);
   EXPECT_TRUE(table.empty());
   EXPECT_TRUE(moved == copy);
}

/// Random changes against an ordered map, with a cursor that lives through all of them.
TYPED_TEST(Canonical, RandomChanges) {
   using Table = HashTable<TypeParam>;
   for (std::uint32_t seed : {1u, 2u, std::random_device()()}) {
      std::cout << "seed " << seed << '\n';
      SCOPED_TRACE(seed);
      std::mt19937 random(seed);
      Table table;
      std::map<Place<TypeParam>, std::uint32_t> model;
      auto cursor = table.iterator();
      std::optional<Place<TypeParam>> cursorPlace;
      std::uint32_t keyCount = 40;
      for (std::uint32_t step = 0; step < 40'000; ++step) {
         if (step % 5000 == 0) {
            keyCount = 5u << (random() % 6);
         }
         std::uint32_t key = random() % keyCount;
         auto at = place<TypeParam>(key);
         // Phases of growth and of decline.
         bool isGrowing = step / 700 % 2 == 0;
         switch (std::uint32_t dice = random() % 100) {
         default:
            if ((dice < 60) == isGrowing) {
               auto [slot, isNew] = table.insert({key, step});
               auto [expected, isExpectedNew] = model.try_emplace(at, step);
               ASSERT_EQ(isNew, isExpectedNew);
               ASSERT_EQ(slot->key, key);
               ASSERT_EQ(slot->value, expected->second);
            } else {
               ASSERT_EQ(table.erase(key), model.erase(at) == 1);
            }
            break;
         case 90:
         case 91:
            if (cursorPlace && model.count(*cursorPlace)) {
               ASSERT_TRUE(table.erase(cursorPlace->second));
               model.erase(*cursorPlace);
            }
            break;
         case 92:
         case 93: {
            Item* slot = table.find(key);
            auto expected = model.find(at);
            ASSERT_EQ(slot != nullptr, expected != model.end());
            if (slot) {
               ASSERT_EQ(slot->value, expected->second);
               slot->value = expected->second = step;
            }
            break;
         }
         case 94:
            if (random() % 40 == 0) {
               table.clear();
               model.clear();
            } else if (random() % 4 == 0) {
               table.reserve(random() % 300);
            } else {
               Table copy(table);
               ASSERT_TRUE(copy == table);
               table = std::move(copy);
            }
            break;
         case 95:
         case 96:
         case 97:
         case 98:
         case 99:
            ++cursor;
            if (cursorPlace) {
               auto next = model.upper_bound(*cursorPlace);
               cursorPlace.reset();
               if (next != model.end()) {
                  cursorPlace = next->first;
               }
            }
            break;
         }
         if (random() % 4 == 0) {
            auto expected = cursorPlace ? model.lower_bound(*cursorPlace) : model.end();
            ASSERT_EQ(bool(cursor), expected != model.end());
            if (cursor && random() % 2 == 0) {
               ASSERT_EQ(cursor->key, expected->first.second);
               ASSERT_EQ((*cursor).value, expected->second);
               cursorPlace = expected->first;
            }
         }
         if (!cursorPlace) {
            ASSERT_FALSE(cursor);
            cursor = table.iterator();
            if (!model.empty()) {
               cursorPlace = model.begin()->first;
            }
         }
         ASSERT_EQ(table.size(), model.size());
         if (step % 200 == 0) {
            auto expected = model.begin();
            for (Item const& item : table) {
               ASSERT_EQ(item.key, expected->first.second);
               ASSERT_EQ(item.value, expected->second);
               ++expected;
            }
            ASSERT_TRUE(expected == model.end());
         }
      }
   }
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

TEST(HashMap, MoveOnlyValues) {
   using Map = HashMap<int, std::unique_ptr<int>>;
   static_assert(std::is_nothrow_move_constructible_v<Map>);
   static_assert(std::is_nothrow_move_assignable_v<Map>);
   Map map;
   for (int i = 0; i < 1000; ++i) {
      ASSERT_TRUE(map.insert(i, std::make_unique<int>(i)).second);
   }
   for (int i = 0; i < 1000; i += 3) {
      ASSERT_TRUE(map.erase(i));
   }
   Map moved(std::move(map));
   EXPECT_TRUE(map.empty());
   for (int i = 0; i < 1000; ++i) {
      auto* value = moved.find(i);
      ASSERT_EQ(value != nullptr, i % 3 != 0);
      if (value) {
         ASSERT_EQ(**value, i);
      }
   }
   auto [value, isNew] = moved.insert(1, nullptr);
   EXPECT_FALSE(isNew);
   EXPECT_EQ(**value, 1);
   EXPECT_FALSE(moved.valueIs(1, std::make_unique<int>(-1)));
   EXPECT_EQ(**moved.find(1), -1);
}

/// Runs something when its value goes for good.
class Farewell {
 public:
   explicit Farewell(std::function<void()> action)
       : action_(std::make_unique<std::function<void()>>(std::move(action))) {}
   Farewell(Farewell&&) = default;
   Farewell& operator=(Farewell&&) = default;
   ~Farewell() {
      if (action_) {
         (*action_)();
      }
   }

 private:
   std::unique_ptr<std::function<void()>> action_;
};

TEST(HashMap, ErasedValuesMayChangeTheMap) {
   int gone = 0;
   HashMap<int, Farewell> map;
   // Each takes its successor along and leaves something behind.
   for (int i = 0; i < 200; ++i) {
      map.insert(i, Farewell([&map, &gone, i] {
                    ++gone;
                    EXPECT_FALSE(map.has(i));
                    EXPECT_EQ(map.erase(i + 1), i < 199);
                    map.insert(1000 + i, Farewell([&gone] { ++gone; }));
                 }));
   }
   EXPECT_TRUE(map.erase(0));
   EXPECT_EQ(gone, 200);
   EXPECT_EQ(map.size(), 200u);
   for (int i = 0; i < 200; ++i) {
      EXPECT_TRUE(map.has(1000 + i));
   }
}

TEST(HashMap, ReplacedValuesMayChangeTheMap) {
   bool isGone = false;
   HashMap<int, Farewell> map;
   map.insert(1, Farewell([&] {
                 isGone = true;
                 EXPECT_TRUE(map.erase(1));
              }));
   EXPECT_FALSE(map.valueIs(1, Farewell([] {})));
   EXPECT_TRUE(isGone);
   EXPECT_TRUE(map.empty());
}

TEST(HashMap, ClearedValuesMayChangeTheMap) {
   int gone = 0;
   {
      HashMap<int, Farewell> map;
      for (int i = 0; i < 100; ++i) {
         map.insert(i, Farewell([&map, &gone, i] {
                       ++gone;
                       EXPECT_FALSE(map.has(i));
                       if (i % 2 == 0) {
                          EXPECT_TRUE(map.insert(1000 + i, Farewell([&gone] { ++gone; })).second);
                       } else {
                          map.erase(1000 + i - 1);
                       }
                    }));
      }
      map.clear();
      EXPECT_GE(gone, 100);
      // Only the young ones are left.
      for (auto const& entry : map) {
         EXPECT_GE(entry.key(), 1000);
      }
      EXPECT_EQ(gone + map.size(), 150u);

      // The destructor meets those that are inserted while it works.
      map.insert(1, Farewell([&map, &gone] {
                    ++gone;
                    map.insert(2, Farewell([&gone] { ++gone; }));
                 }));
   }
   EXPECT_EQ(gone, 152);
}

/// Counts how many of it there are, and fails to be copied when told to.
struct Counted {
   inline static int alive = 0;
   inline static int copiesLeft = std::numeric_limits<int>::max();
   Counted() { ++alive; }
   Counted(Counted const&) {
      if (copiesLeft == 0) {
         throw std::runtime_error("copy");
      }
      --copiesLeft;
      ++alive;
   }
   Counted(Counted&&) noexcept { ++alive; }
   ~Counted() { --alive; }
};

TEST(HashMap, ConstructsAndDestroysInPairs) {
   Counted::alive = 0;
   {
      HashMap<int, Counted> map;
      for (int i = 0; i < 500; ++i) {
         map.insert(i, Counted());
         map.insert(i / 2, Counted());
         ASSERT_EQ(Counted::alive, i + 1);
      }
      for (int i = 0; i < 100; ++i) {
         map.erase(i * 3);
      }
      EXPECT_EQ(Counted::alive, 400);
      {
         HashMap<int, Counted> copy(map);
         EXPECT_EQ(Counted::alive, 800);
         copy = map;
         EXPECT_EQ(Counted::alive, 800);
         copy = std::move(map);
         EXPECT_EQ(Counted::alive, 400);
         map = copy;
      }
      EXPECT_EQ(Counted::alive, 400);

      HashMap<int, Counted> other;
      other.insert(1, Counted());
      Counted::copiesLeft = 137;
      EXPECT_THROW(other = map, std::runtime_error);
      Counted::copiesLeft = std::numeric_limits<int>::max();
      EXPECT_EQ(other.size(), 1u);
      EXPECT_TRUE(other.has(1));
      EXPECT_EQ(Counted::alive, 401);
   }
   EXPECT_EQ(Counted::alive, 0);
}

TEST(HashMap, StringKeysInHashOrder) {
   HashMap<std::string, std::string> map;
   std::map<std::pair<std::uint32_t, std::string>, std::string> model;
   std::mt19937 random(9);
   for (int i = 0; i < 20'000; ++i) {
      std::string key = "a key long enough to be on the heap " + std::to_string(random() % 500);
      std::pair place(std::max(Nuv::hashOf(key, Nuv::collectionHashSeed()), 1u), key);
      if (random() % 5 < 3) {
         std::string value = std::to_string(i);
         ASSERT_EQ(map.valueIs(key, value), model.insert_or_assign(place, value).second);
      } else {
         ASSERT_EQ(map.erase(key), model.erase(place) == 1);
      }
   }
   ASSERT_EQ(map.size(), model.size());
   ASSERT_FALSE(map.empty());
   auto expected = model.begin();
   for (auto& [key, value] : map) {
      static_assert(std::is_same_v<decltype(key), std::string const>);
      EXPECT_EQ(key, expected->first.second);
      EXPECT_EQ(value, expected->second);
      value = "seen";
      ++expected;
   }
   for (auto const& entry : std::as_const(map)) {
      EXPECT_EQ(entry.value(), "seen");
   }
   HashMap<std::string, std::string> copy = map;
   EXPECT_TRUE(copy == map);
   *copy.find(map.begin()->key()) = "other";
   EXPECT_FALSE(copy == map);
   for (auto cursor = copy.iterator(); cursor; ++cursor) {
      copy.erase(cursor->key());
   }
   EXPECT_TRUE(copy.empty());
}

struct Tree {
   HashMap<int, Tree> children;
};

TEST(HashMap, ValuesMayHoldMapsOfTheirOwnType) {
   Tree tree;
   tree.children.insert(1, Tree()).first->children.insert(2, Tree());
   Tree copy = tree;
   EXPECT_TRUE(copy.children.find(1)->children.has(2));
   tree = std::move(*copy.children.find(1));
   EXPECT_TRUE(tree.children.has(2));
}

TEST(HashSet, HoldsEachElementOnce) {
   HashSet<std::uint64_t> set;
   EXPECT_TRUE(set.insert(5));
   EXPECT_FALSE(set.insert(5));
   for (std::uint64_t i = 0; i < 100; ++i) {
      EXPECT_EQ(set.insert(i), i != 5);
   }
   EXPECT_EQ(set.size(), 100u);
   EXPECT_TRUE(set.has(99));
   ASSERT_NE(set.find(99), nullptr);
   EXPECT_EQ(*set.find(99), 99u);
   EXPECT_TRUE(set.erase(99));
   EXPECT_FALSE(set.has(99));
   static_assert(std::is_same_v<decltype(*set.begin()), std::uint64_t const&>);

   std::vector<std::uint64_t> sorted(set.begin(), set.end());
   EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end(), [](auto left, auto right) {
      return std::pair(Nuv::hashOf(left, Nuv::collectionHashSeed()), left) <
             std::pair(Nuv::hashOf(right, Nuv::collectionHashSeed()), right);
   }));
   HashSet<std::uint64_t> other;
   for (std::uint64_t i = 99; i-- > 0;) {
      other.insert(i);
   }
   EXPECT_TRUE(other == set);
   std::size_t met = 0;
   for (auto cursor = set.iterator(); cursor; ++cursor) {
      set.erase(*cursor);
      ++met;
   }
   EXPECT_EQ(met, 99u);
   EXPECT_FALSE(other == set);
   HashSet<std::string> strings;
   EXPECT_TRUE(strings.insert("x"));
   EXPECT_FALSE(strings.insert("x"));
   strings.clear();
   EXPECT_EQ(strings.bytes(), 0u);
}

TEST(Hash, StringsHashByTheirBytes) {
   std::string text = "a text of more than eight bytes";
   EXPECT_EQ(Nuv::hashOf(text, 3), Nuv::hashOf(std::string(text), 3));
   EXPECT_EQ(Nuv::hashOf(text, 3), Nuv::hashOf(std::string_view(text), 3));
   EXPECT_NE(Nuv::hashOf(text, 3), Nuv::hashOf(text, 4));
   std::set<std::uint32_t> hashes;
   for (std::size_t size = 0; size <= text.size(); ++size) {
      hashes.insert(Nuv::hashOf(std::string_view(text).substr(0, size), 3));
   }
   EXPECT_EQ(hashes.size(), text.size() + 1);
}

TEST(Hash, SeedIsFixedByItsFirstUse) {
   std::uint32_t seed = Nuv::hashSeed();
   EXPECT_FALSE(Nuv::hashSeedIs(seed + 1));
   EXPECT_FALSE(Nuv::hashSeedIs(seed));
   EXPECT_EQ(Nuv::hashSeed(), seed);
}

// Each of these starts in a process that has not used the seed.

TEST(HashDeathTest, SeedMayBeSetBeforeItsFirstUse) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
         {
            bool isGood = Nuv::hashSeedIs(6) && Nuv::hashSeedIs(7) && Nuv::hashSeed() == 7;
            isGood = isGood && !Nuv::hashSeedIs(8) && Nuv::hashSeed() == 7;
            isGood = isGood && Nuv::collectionHashSeed() == (7 ^ 0x1e7eda4a);
            std::_Exit(isGood ? 0 : 1);
         },
         testing::ExitedWithCode(0), "");
}

TEST(HashDeathTest, ThreadsAgreeOnTheSeed) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
         {
            std::vector<std::uint32_t> seeds(8);
            std::vector<std::thread> threads;
            for (std::uint32_t& seed : seeds) {
               threads.emplace_back([&seed] { seed = Nuv::hashSeed(); });
            }
            for (std::thread& thread : threads) {
               thread.join();
            }
            bool isGood = std::all_of(seeds.begin(), seeds.end(),
                                      [](std::uint32_t seed) { return seed == Nuv::hashSeed(); });
            std::_Exit(isGood ? 0 : 1);
         },
         testing::ExitedWithCode(0), "");
}

} // namespace
