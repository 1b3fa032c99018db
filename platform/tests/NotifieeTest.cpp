#include "platform/nuv/Notifiee.h"

#include "platform/nuv/testing/Soak.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace Nuv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Listener : public Notifiee {
 public:
   virtual void handleChange() = 0;
};

using List = NotifieeList<Listener>;
using Heard = std::vector<std::string>;

void
change(List& list) {
   list.announce([](Listener& listener) { listener.handleChange(); });
}

/// Writes its name down, then does what the test wants.
class Named final : public Listener {
 public:
   Named(std::string name, Heard& heard) : name_(std::move(name)), heard_(heard) {}

   void handleChange() override {
      heard_.push_back(name_);
      if (then) {
         then();
      }
   }

   std::function<void()> then;

 private:
   std::string name_;
   Heard& heard_;
};

class NotifieeTest : public testing::Test {
 protected:
   void allJoin() {
      for (auto* each : {&a, &b, &c}) {
         list->notifieeIs(*each);
      }
   }

   Heard changed() {
      heard.clear();
      change(*list);
      return heard;
   }

   Heard heard;
   std::unique_ptr<List> list = std::make_unique<List>();
   Named a{"a", heard};
   Named b{"b", heard};
   Named c{"c", heard};
};

TEST_F(NotifieeTest, AListWithoutObserversIsOnePointer) {
   static_assert(sizeof(List) == sizeof(void*));
   EXPECT_TRUE(list->empty());
   EXPECT_THAT(changed(), IsEmpty());
   list->notifieeIs(a);
   EXPECT_FALSE(list->empty());
   a.leave();
   EXPECT_TRUE(list->empty());
}

TEST_F(NotifieeTest, TellsInTheOrderOfRegistration) {
   list->notifieeIs(b);
   list->notifieeIs(c);
   list->notifieeIs(a);
   EXPECT_THAT(changed(), ElementsAre("b", "c", "a"));
   EXPECT_THAT(changed(), ElementsAre("b", "c", "a"));
}

TEST_F(NotifieeTest, WhoLeftHearsNothingAndComesBackAtTheEnd) {
   allJoin();
   a.leave();
   a.leave();
   EXPECT_FALSE(a.isListed());
   EXPECT_THAT(changed(), ElementsAre("b", "c"));
   list->notifieeIs(a);
   EXPECT_TRUE(a.isListed());
   EXPECT_THAT(changed(), ElementsAre("b", "c", "a"));
}

TEST_F(NotifieeTest, AnObserverThatEndsLeaves) {
   {
      Named passing("passing", heard);
      list->notifieeIs(passing);
      list->notifieeIs(a);
   }
   EXPECT_THAT(changed(), ElementsAre("a"));
}

TEST_F(NotifieeTest, AnObserverMayLeaveWhileItIsTold) {
   allJoin();
   a.then = [this] { a.leave(); };
   b.then = [this] { b.leave(); };
   c.then = [this] { c.leave(); };
   EXPECT_THAT(changed(), ElementsAre("a", "b", "c"));
   EXPECT_TRUE(list->empty());
   EXPECT_THAT(changed(), IsEmpty());
}

TEST_F(NotifieeTest, WhoIsMadeToLeaveBeforeItsTurnHearsNothing) {
   allJoin();
   a.then = [this] { b.leave(); };
   EXPECT_THAT(changed(), ElementsAre("a", "c"));
   EXPECT_THAT(changed(), ElementsAre("a", "c"));
}

TEST_F(NotifieeTest, AllOthersMayLeave) {
   allJoin();
   b.then = [this] {
      a.leave();
      c.leave();
   };
   EXPECT_THAT(changed(), ElementsAre("a", "b"));
   EXPECT_THAT(changed(), ElementsAre("b"));
}

TEST_F(NotifieeTest, AnObserverMayEndItself) {
   class Passing final : public Listener {
    public:
      explicit Passing(Heard& heard) : heard_(heard) {}
      void handleChange() override {
         heard_.push_back("passing");
         delete this;
      }

    private:
      Heard& heard_;
   };
   list->notifieeIs(a);
   list->notifieeIs(*new Passing(heard));
   list->notifieeIs(b);
   EXPECT_THAT(changed(), ElementsAre("a", "passing", "b"));
   EXPECT_THAT(changed(), ElementsAre("a", "b"));
}

TEST_F(NotifieeTest, AnObserverMayEndOthers) {
   auto before = std::make_unique<Named>("before", heard);
   auto next = std::make_unique<Named>("next", heard);
   auto last = std::make_unique<Named>("last", heard);
   list->notifieeIs(*before);
   list->notifieeIs(a);
   list->notifieeIs(*next);
   list->notifieeIs(b);
   list->notifieeIs(*last);
   a.then = [&] {
      before = nullptr;
      next = nullptr;
      last = nullptr;
   };
   EXPECT_THAT(changed(), ElementsAre("before", "a", "b"));
   EXPECT_THAT(changed(), ElementsAre("a", "b"));
}

TEST_F(NotifieeTest, WhoJoinsMeanwhileHearsTheNextChange) {
   list->notifieeIs(a);
   a.then = [this] {
      if (!b.isListed()) {
         list->notifieeIs(b);
      }
   };
   EXPECT_THAT(changed(), ElementsAre("a"));
   EXPECT_THAT(changed(), ElementsAre("a", "b"));
}

TEST_F(NotifieeTest, WhoLeavesAndJoinsAgainMeanwhileHearsTheNextChange) {
   allJoin();
   a.then = [this] {
      a.leave();
      list->notifieeIs(a);
      b.leave();
      list->notifieeIs(b);
   };
   EXPECT_THAT(changed(), ElementsAre("a", "c"));
   a.then = nullptr;
   EXPECT_THAT(changed(), ElementsAre("c", "a", "b"));
}

TEST_F(NotifieeTest, WhoJoinsWhenAllHaveLeftHearsTheNextChange) {
   list->notifieeIs(a);
   a.then = [this] {
      a.leave();
      list->notifieeIs(b);
   };
   EXPECT_THAT(changed(), ElementsAre("a"));
   EXPECT_THAT(changed(), ElementsAre("b"));
}

TEST_F(NotifieeTest, TheListMayEndWhileItAnnounces) {
   allJoin();
   b.then = [this] { list = nullptr; };
   change(*list);
   EXPECT_THAT(heard, ElementsAre("a", "b"));
   EXPECT_FALSE(a.isListed());
   EXPECT_FALSE(b.isListed());
   EXPECT_FALSE(c.isListed());

   b.then = nullptr;
   list = std::make_unique<List>();
   list->notifieeIs(c);
   list->notifieeIs(b);
   EXPECT_THAT(changed(), ElementsAre("c", "b"));
}

TEST_F(NotifieeTest, ObserversOutliveTheirList) {
   allJoin();
   list = nullptr;
   EXPECT_FALSE(a.isListed());
   a.leave();
   list = std::make_unique<List>();
   list->notifieeIs(a);
   EXPECT_THAT(changed(), ElementsAre("a"));
}

TEST_F(NotifieeTest, ANestedAnnouncementReachesAllBeforeTheOuterGoesOn) {
   allJoin();
   a.then = [this] {
      a.then = nullptr;
      change(*list);
   };
   EXPECT_THAT(changed(), ElementsAre("a", "a", "b", "c", "b", "c"));
}

TEST_F(NotifieeTest, WhoJoinsBeforeANestedAnnouncementHearsThatOneOnly) {
   list->notifieeIs(a);
   list->notifieeIs(b);
   auto joinAndChange = std::function<void()>([this] {
      list->notifieeIs(c);
      change(*list);
   });
   bool isNested = false;
   a.then = [&] {
      if (!isNested) {
         isNested = true;
         joinAndChange();
      }
   };
   EXPECT_THAT(changed(), ElementsAre("a", "a", "b", "c", "b"));
}

TEST_F(NotifieeTest, WhoLeavesInANestedAnnouncementLeavesTheOuterToo) {
   allJoin();
   int depth = 0;
   a.then = [&] {
      if (++depth == 1) {
         change(*list);
      }
   };
   b.then = [this] {
      b.leave();
      c.leave();
   };
   EXPECT_THAT(changed(), ElementsAre("a", "a", "b"));
}

TEST_F(NotifieeTest, TheListMayEndInANestedAnnouncement) {
   allJoin();
   int depth = 0;
   a.then = [&] {
      if (++depth == 1) {
         change(*list);
         heard.push_back("back");
      }
   };
   b.then = [this] { list = nullptr; };
   change(*list);
   EXPECT_THAT(heard, ElementsAre("a", "a", "b", "back"));
}

TEST_F(NotifieeTest, AnExceptionStopsNobodyAndTheFirstIsThrownOn) {
   allJoin();
   a.then = [] { throw std::runtime_error("first"); };
   b.then = [] { throw std::logic_error("second"); };
   try {
      change(*list);
      FAIL() << "nothing thrown";
   } catch (std::exception const& failure) {
      EXPECT_STREQ(failure.what(), "first");
   }
   EXPECT_THAT(heard, ElementsAre("a", "b", "c"));
   a.then = b.then = nullptr;
   EXPECT_THAT(changed(), ElementsAre("a", "b", "c"));
}

TEST_F(NotifieeTest, AnExceptionIsThrownOnWhenTheListHasEnded) {
   allJoin();
   a.then = [] { throw std::runtime_error("first"); };
   b.then = [this] { list = nullptr; };
   EXPECT_THROW(change(*list), std::runtime_error);
   EXPECT_THAT(heard, ElementsAre("a", "b"));
}

TEST_F(NotifieeTest, AnExceptionOfANestedAnnouncementStopsNobodyOutside) {
   allJoin();
   int depth = 0;
   a.then = [&] {
      if (++depth == 1) {
         change(*list);
      }
   };
   c.then = [] { throw std::runtime_error("c"); };
   EXPECT_THROW(change(*list), std::runtime_error);
   EXPECT_THAT(heard, ElementsAre("a", "a", "b", "c", "b", "c"));
}

TEST(NotifieeDeathTest, AnObserverHasOnePlace) {
   Heard heard;
   List one;
   List two;
   Named observer("observer", heard);
   one.notifieeIs(observer);
   EXPECT_DEATH(one.notifieeIs(observer), "an observer has one place");
   EXPECT_DEATH(two.notifieeIs(observer), "an observer has one place");
}

/// Observers that come, go and announce at random while they are told, beside a plain model of the list.
class Crowd {
 public:
   explicit Crowd(std::uint32_t seed) : random_(seed) {
      for (std::size_t id = 0; id < size; ++id) {
         members_.push_back(std::make_unique<Member>(*this, id));
      }
   }

   void announce() {
      walks_.push_back({0, lastNumber_});
      change(list_);
      EXPECT_EQ(next(walks_.back()), std::nullopt) << "somebody was not told";
      walks_.pop_back();
   }

   void anything() {
      auto id = random_() % size;
      switch (random_() % 8) {
      case 0:
      case 1:
      case 2:
         if (numbers_[id] == 0) {
            list_.notifieeIs(*members_[id]);
            numbers_[id] = ++lastNumber_;
         }
         break;
      case 3:
      case 4:
         members_[id]->leave();
         numbers_[id] = 0;
         break;
      case 5:
         if (std::none_of(active_.begin(), active_.end(), [id](auto each) { return each == id; })) {
            members_[id] = std::make_unique<Member>(*this, id);
            numbers_[id] = 0;
         }
         break;
      default:
         if (walks_.size() < 4) {
            announce();
         }
      }
   }

   int told() const { return told_; }

 private:
   static constexpr std::size_t size = 9;

   class Member final : public Listener {
    public:
      Member(Crowd& crowd, std::size_t id) : crowd_(crowd), id_(id) {}
      void handleChange() override { crowd_.isTold(id_); }

    private:
      Crowd& crowd_;
      std::size_t id_;
   };

   struct Walk {
      std::uint64_t before;
      std::uint64_t last;
   };

   std::optional<std::size_t> next(Walk const& walk) const {
      std::optional<std::size_t> found;
      for (std::size_t id = 0; id < size; ++id) {
         if (numbers_[id] > walk.before && numbers_[id] <= walk.last &&
             (!found || numbers_[id] < numbers_[*found])) {
            found = id;
         }
      }
      return found;
   }

   void isTold(std::size_t id) {
      ++told_;
      ASSERT_EQ(next(walks_.back()), id);
      walks_.back().before = numbers_[id];
      active_.push_back(id);
      for (auto steps = random_() % 3; steps > 0; --steps) {
         anything();
      }
      active_.pop_back();
   }

   std::mt19937 random_;
   List list_;
   std::vector<std::unique_ptr<Member>> members_;
   std::uint64_t numbers_[size]{};
   std::uint64_t lastNumber_{};
   std::vector<Walk> walks_;
   std::vector<std::size_t> active_;
   int told_{};
};

TEST(NotifieeCrowd, RandomOneIsToldAsThePlainModelTells) {
   Nuv::soak(3000, [](std::uint32_t seed, int steps) {
      Crowd crowd(seed);
      for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
         crowd.anything();
      }
      EXPECT_GT(crowd.told(), steps / 3);
   });
}

} // namespace
} // namespace Nuv
