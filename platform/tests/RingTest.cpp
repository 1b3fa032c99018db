#include "platform/nuv/Ring.h"

#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>

namespace Nuv {
namespace {

TEST(RingTest, AnEmptyOneHoldsNothing) {
   Ring<std::string> ring;
   EXPECT_TRUE(ring.empty());
   EXPECT_EQ(ring.size(), 0u);
   ring.clear();
   EXPECT_TRUE(ring.empty());
}

TEST(RingTest, IsTheQueueThatADequeIs) {
   std::mt19937 random(7);
   Ring<std::unique_ptr<int>> ring;
   std::deque<int> model;
   for (int step = 0; step < 20000; ++step) {
      // Longer and shorter in turns, so that it grows, wraps round and is given back.
      bool isGrowing = step / 1500 % 2 == 0;
      if (random() % 8 < (isGrowing ? 6u : 2u) || model.empty()) {
         ring.push_back(std::make_unique<int>(step));
         model.push_back(step);
         EXPECT_EQ(*ring.back(), step);
      } else if (step % 2) {
         ring.pop_front();
         model.pop_front();
      } else {
         EXPECT_EQ(*ring.take_front(), model.front());
         model.pop_front();
      }
      ASSERT_EQ(ring.size(), model.size());
      if (!model.empty()) {
         ASSERT_EQ(*ring.front(), model.front());
         auto place = random() % model.size();
         ASSERT_EQ(*ring[place], model[place]);
      }
   }
}

TEST(RingTest, MovingTakesTheElementsAlong) {
   Ring<std::string> ring;
   ring.push_back("one");
   ring.push_back("two");
   Ring<std::string> other(std::move(ring));
   EXPECT_EQ(other.size(), 2u);
   EXPECT_EQ(other[1], "two");
   Ring<std::string> third;
   third.push_back("gone");
   third = std::move(other);
   EXPECT_EQ(third.front(), "one");
   third.clear();
   EXPECT_TRUE(third.empty());
   third.push_back("again");
   EXPECT_EQ(third.back(), "again");
}

// What an element's end leads to finds the queue without it.
TEST(RingTest, AnElementHasLeftWhenItEnds) {
   struct Counted {
      Ring<Counted>* ring{};
      std::size_t* seen{};

      Counted(Ring<Counted>& in, std::size_t& to) : ring(&in), seen(&to) {}
      Counted(Counted&& other) noexcept : ring(std::exchange(other.ring, nullptr)), seen(other.seen) {}
      Counted& operator=(Counted&&) = delete;
      ~Counted() {
         if (ring) {
            *seen = ring->size();
         }
      }
   };
   Ring<Counted> ring;
   std::size_t seen = 99;
   ring.emplace_back(ring, seen);
   ring.emplace_back(ring, seen);
   ring.pop_front();
   EXPECT_EQ(seen, 1u);
   ring.clear();
   EXPECT_EQ(seen, 0u);
}

} // namespace
} // namespace Nuv
