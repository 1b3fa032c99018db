#include "platform/nuv/HashTable.h"

#include "platform/nuv/testing/Soak.h"
#include "platform/tests/HashTableItems.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <utility>

namespace {

using namespace HashTableItems;

/// Random changes of a table beside an ordered map, with a cursor that lives through all of them.
template <class Traits>
class RandomRun {
 public:
   explicit RandomRun(std::uint32_t seed) : random_(seed) {}

   void step(std::uint32_t number) {
      if (number % 5000 == 0) {
         keyCount_ = 5u << (random_() % 8);
      }
      // Phases of growth and of decline.
      changeSomething(number, number / 700 % 2 == 0);
      if (random_() % 4 == 0) {
         readAtCursor();
      }
      if (!place_) {
         restartCursor();
      }
      ASSERT_EQ(table_.size(), model_.size());
      if (number % 200 == 0) {
         compareAll();
      }
   }

 private:
   using Table = Nuv::HashTable<Traits>;

   void changeSomething(std::uint32_t number, bool isGrowing) {
      std::uint32_t key = random_() % keyCount_;
      std::uint32_t dice = random_() % 100;
      if (dice >= 95) {
         stepCursor();
      } else if (dice == 94) {
         changeAll();
      } else if (dice >= 92) {
         write(key, number);
      } else if (dice >= 90) {
         if (place_) {
            erase(place_->second);
         }
      } else if ((dice < 60) == isGrowing) {
         insert(key, number);
      } else {
         erase(key);
      }
   }

   void insert(std::uint32_t key, std::uint32_t value) {
      auto [slot, isNew] = table_.insert({key, value});
      auto [expected, isExpectedNew] = model_.try_emplace(place<Traits>(key), value);
      ASSERT_EQ(isNew, isExpectedNew);
      ASSERT_EQ(slot->key, key);
      ASSERT_EQ(slot->value, expected->second);
   }

   void erase(std::uint32_t key) { ASSERT_EQ(table_.erase(key), model_.erase(place<Traits>(key)) == 1); }

   void write(std::uint32_t key, std::uint32_t value) {
      Item* slot = table_.find(key);
      auto expected = model_.find(place<Traits>(key));
      ASSERT_EQ(slot != nullptr, expected != model_.end());
      if (slot) {
         ASSERT_EQ(slot->value, expected->second);
         slot->value = expected->second = value;
      }
   }

   void changeAll() {
      if (random_() % 40 == 0) {
         table_.clear();
         model_.clear();
      } else if (random_() % 4 == 0) {
         table_.reserve(random_() % 300);
      } else {
         Table copy(table_);
         ASSERT_TRUE(copy == table_);
         table_ = std::move(copy);
      }
   }

   void stepCursor() {
      ++cursor_;
      if (place_) {
         auto next = model_.upper_bound(*place_);
         place_.reset();
         if (next != model_.end()) {
            place_ = next->first;
         }
      }
   }

   void readAtCursor() {
      auto expected = place_ ? model_.lower_bound(*place_) : model_.end();
      ASSERT_EQ(bool(cursor_), expected != model_.end());
      if (cursor_ && random_() % 2 == 0) {
         ASSERT_EQ(cursor_->key, expected->first.second);
         ASSERT_EQ((*cursor_).value, expected->second);
         place_ = expected->first;
      }
   }

   void restartCursor() {
      ASSERT_FALSE(cursor_);
      cursor_ = table_.iterator();
      if (!model_.empty()) {
         place_ = model_.begin()->first;
      }
   }

   void compareAll() {
      auto expected = model_.begin();
      for (Item const& item : table_) {
         ASSERT_TRUE(expected != model_.end());
         ASSERT_EQ(item.key, expected->first.second);
         ASSERT_EQ(item.value, expected->second);
         ++expected;
      }
      ASSERT_TRUE(expected == model_.end());
   }

   std::mt19937 random_;
   Table table_;
   std::map<Place<Traits>, std::uint32_t> model_;
   typename Table::template Cursor<false> cursor_ = table_.iterator();
   std::optional<Place<Traits>> place_;
   std::uint32_t keyCount_ = 40;
};

template <class Traits>
class HashTableRandom : public testing::Test {};
TYPED_TEST_SUITE(HashTableRandom, AllHashes);

TYPED_TEST(HashTableRandom, OrderAndCursorAreThoseOfAPlainModel) {
   Nuv::soak(200'000, [](std::uint32_t seed, int steps) {
      RandomRun<TypeParam> run(seed);
      for (int step = 0; step < steps && !testing::Test::HasFatalFailure(); ++step) {
         run.step(std::uint32_t(step));
      }
   });
}

} // namespace
