#include "platform/nuv/ReactionLoop.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Nuv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Done = std::vector<std::string>;

/// Writes its name down, then does what the test wants.
class Job final : public Reaction {
 public:
   Job(std::string name, Done& done) : name_(std::move(name)), done_(done) {}

   std::function<void()> then;

 private:
   void react() override {
      done_.push_back(name_);
      if (then) {
         then();
      }
   }

   std::string name_;
   Done& done_;
};

class ReactionLoopTest : public testing::Test {
 protected:
   void scheduleAll() {
      for (auto* each : {&a, &b, &c}) {
         loop->schedule(*each);
      }
   }

   Done done;
   std::unique_ptr<ReactionLoop> loop = std::make_unique<ReactionLoop>();
   Job a{"a", done};
   Job b{"b", done};
   Job c{"c", done};
};

TEST_F(ReactionLoopTest, AnEmptyLoopIsIdle) {
   EXPECT_TRUE(loop->idle());
   EXPECT_FALSE(loop->runOne());
   EXPECT_EQ(loop->runUntilIdle(), 0u);
}

TEST_F(ReactionLoopTest, RunsInTheOrderOfScheduling) {
   loop->schedule(c);
   loop->schedule(a);
   loop->schedule(b);
   EXPECT_THAT(done, IsEmpty());
   EXPECT_EQ(loop->runUntilIdle(), 3u);
   EXPECT_THAT(done, ElementsAre("c", "a", "b"));
   EXPECT_TRUE(loop->idle());
}

TEST_F(ReactionLoopTest, RunsOneAtATime) {
   scheduleAll();
   EXPECT_TRUE(loop->runOne());
   EXPECT_THAT(done, ElementsAre("a"));
   EXPECT_FALSE(a.isScheduled());
   EXPECT_TRUE(b.isScheduled());
   EXPECT_FALSE(loop->idle());
}

TEST_F(ReactionLoopTest, SchedulingTwiceKeepsThePlace) {
   scheduleAll();
   loop->schedule(a);
   loop->schedule(c);
   EXPECT_EQ(loop->runUntilIdle(), 3u);
   EXPECT_THAT(done, ElementsAre("a", "b", "c"));
}

TEST_F(ReactionLoopTest, AReactionQueuedElsewhereKeepsItsPlaceThere) {
   ReactionLoop other;
   other.schedule(a);
   loop->schedule(a);
   EXPECT_TRUE(loop->idle());
   EXPECT_EQ(other.runUntilIdle(), 1u);
}

TEST_F(ReactionLoopTest, AReactionThatSchedulesItselfGoesToTheEnd) {
   scheduleAll();
   a.then = [this] {
      EXPECT_FALSE(a.isScheduled());
      a.then = nullptr;
      loop->schedule(a);
   };
   EXPECT_EQ(loop->runUntilIdle(), 4u);
   EXPECT_THAT(done, ElementsAre("a", "b", "c", "a"));
}

TEST_F(ReactionLoopTest, AReactionThatEndsRunsNoMore) {
   for (int place = 0; place < 3; ++place) {
      SCOPED_TRACE(place);
      done.clear();
      auto passing = std::make_unique<Job>("passing", done);
      Job* order[] = {&a, &b};
      for (int at = 0, next = 0; at < 3; ++at) {
         loop->schedule(at == place ? *passing : *order[next++]);
      }
      passing = nullptr;
      EXPECT_EQ(loop->runUntilIdle(), 2u);
      EXPECT_THAT(done, ElementsAre("a", "b"));
   }
}

TEST_F(ReactionLoopTest, TheOnlyReactionMayEnd) {
   auto passing = std::make_unique<Job>("passing", done);
   loop->schedule(*passing);
   passing = nullptr;
   EXPECT_TRUE(loop->idle());
   loop->schedule(a);
   EXPECT_EQ(loop->runUntilIdle(), 1u);
}

TEST_F(ReactionLoopTest, AReactionMayEndTheNextOne) {
   auto next = std::make_unique<Job>("next", done);
   loop->schedule(a);
   loop->schedule(*next);
   loop->schedule(b);
   a.then = [&] { next = nullptr; };
   loop->runUntilIdle();
   EXPECT_THAT(done, ElementsAre("a", "b"));
}

TEST_F(ReactionLoopTest, AReactionMayEndItself) {
   class Passing final : public Reaction {
    public:
      explicit Passing(Done& done) : done_(done) {}

    private:
      void react() override {
         done_.push_back("passing");
         delete this;
      }
      Done& done_;
   };
   loop->schedule(*new Passing(done));
   loop->schedule(a);
   EXPECT_EQ(loop->runUntilIdle(), 2u);
   EXPECT_THAT(done, ElementsAre("passing", "a"));
}

TEST_F(ReactionLoopTest, ReactionsOutliveTheirLoop) {
   scheduleAll();
   loop = nullptr;
   EXPECT_FALSE(a.isScheduled());
   EXPECT_FALSE(b.isScheduled());
   EXPECT_FALSE(c.isScheduled());

   ReactionLoop other;
   other.schedule(c);
   other.schedule(a);
   other.runUntilIdle();
   EXPECT_THAT(done, ElementsAre("c", "a"));
}

TEST_F(ReactionLoopTest, TheWayToALoopOutlivesIt) {
   Nuv::Ptr<ReactionLoop::Link> link = loop->link();
   link->schedule(a);
   EXPECT_EQ(loop->runUntilIdle(), 1u);
   loop = nullptr;
   link->schedule(a);
   EXPECT_FALSE(a.isScheduled());
}

} // namespace
} // namespace Nuv
