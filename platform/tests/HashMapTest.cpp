#include "platform/nuv/HashMap.h"

#include "platform/nuv/HashSet.h"
#include "platform/nuv/testing/Soak.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using Nuv::HashMap;
using Nuv::HashSet;

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
   EXPECT_TRUE(map.empty()); // NOLINT(bugprone-use-after-move): left empty
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

TEST(HashMap, RandomStringKeysAreInHashOrder) {
   Nuv::soak(20'000, [](std::uint32_t seed, int steps) {
      HashMap<std::string, std::string> map;
      std::map<std::pair<std::uint32_t, std::string>, std::string> model;
      std::mt19937 random(seed);
      for (int i = 0; i < steps; ++i) {
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
   });
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

} // namespace
