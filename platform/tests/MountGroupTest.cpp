#include "platform/kallo/MountGroup.h"

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>

namespace Kallo {
namespace {

using testing::ElementsAre;
using testing::Pair;
using State = MountGroup::State;

class Thing final : public Nuv::Object {
 public:
   static constexpr char const* typeName() { return "Thing"; }
};

class StateWatch final : public MountGroup::Notifiee {
 public:
   explicit StateWatch(MountGroup const& group) : group_(group) { group.notifieeIs(*this); }

   void handleState() override {
      states.push_back(group_.state());
      if (onState) {
         onState();
      }
   }

   std::vector<State> states;
   std::function<void()> onState;

 private:
   MountGroup const& group_;
};

class MountGroupTest : public testing::Test {
 protected:
   Nuv::Ptr<Thing> thing = Nuv::make<Thing>();
   Nuv::Ptr<EntityManager> stateDatabase = Nuv::make<EntityManager>();
   Nuv::Ptr<MountGroup> group = Nuv::make<MountGroup>();
   StateWatch watch{*group};
};

TEST_F(MountGroupTest, CollectsMountsAndMountsThemInOneGo) {
   stateDatabase->entityIs("a", thing);
   stateDatabase->entityIs("b", thing);
   group->mountIs("a", "Thing");
   group->mountIs("b", "Thing");
   group->mountIs("b", "Thing");
   EXPECT_THAT(group->mounts(), ElementsAre(Pair("a", "Thing"), Pair("b", "Thing")));
   EXPECT_FALSE(stateDatabase->getEntity("a"));
   EXPECT_EQ(group->state(), State::unmounted);
   group->doMount(stateDatabase);
   EXPECT_EQ(stateDatabase->getEntity("a"), thing);
   EXPECT_EQ(stateDatabase->getEntity("b"), thing);
   EXPECT_TRUE(group->isComplete());
   EXPECT_THAT(watch.states, ElementsAre(State::complete));
}

TEST_F(MountGroupTest, WaitsForAllEntities) {
   group->mountIs("a", "Thing");
   group->mountIs("b", "Thing");
   group->doMount(stateDatabase);
   EXPECT_EQ(group->state(), State::waiting);
   stateDatabase->entityIs("b", thing);
   stateDatabase->entityIs("b/a", thing);
   EXPECT_EQ(group->state(), State::waiting);
   stateDatabase->entityIs("a", "OtherThing", thing);
   EXPECT_EQ(group->state(), State::waiting);
   stateDatabase->entityIs("a", thing);
   EXPECT_THAT(watch.states, ElementsAre(State::waiting, State::complete));
   stateDatabase->entityDel("b");
   EXPECT_THAT(watch.states, ElementsAre(State::waiting, State::complete, State::waiting));
}

TEST_F(MountGroupTest, IsCompleteWithoutMounts) {
   group->doMount(stateDatabase);
   EXPECT_TRUE(group->isComplete());
}

TEST_F(MountGroupTest, ALateMountIsMountedAtOnce) {
   group->doMount(stateDatabase);
   group->mountIs("a", "Thing");
   EXPECT_EQ(group->state(), State::waiting);
   stateDatabase->entityIs("a", thing);
   EXPECT_EQ(stateDatabase->getEntity("a"), thing);
   EXPECT_TRUE(group->isComplete());
   group->mountIs("a", "OtherThing");
   EXPECT_EQ(group->state(), State::waiting);
}

TEST_F(MountGroupTest, DoesNotTakeAnotherTypeForItsOwn) {
   group->mountIs("a", "Thing");
   group->doMount(stateDatabase);
   stateDatabase->doMount("a", "OtherThing");
   stateDatabase->entityIs("a", "OtherThing", thing);
   EXPECT_TRUE(stateDatabase->getEntity("a"));
   EXPECT_EQ(group->state(), State::waiting);
   group->doMount(stateDatabase);
   stateDatabase->entityIs("a", thing);
   EXPECT_TRUE(group->isComplete());
}

TEST_F(MountGroupTest, FollowsTheEntityManagerThatItWasMountedInLast) {
   auto other = Nuv::make<EntityManager>();
   group->mountIs("a", "Thing");
   group->doMount(stateDatabase);
   group->doMount(other);
   stateDatabase->entityIs("a", thing);
   EXPECT_EQ(group->state(), State::waiting);
   other->entityIs("a", thing);
   EXPECT_TRUE(group->isComplete());
   stateDatabase->entityDel("a");
   EXPECT_TRUE(group->isComplete());
}

TEST_F(MountGroupTest, KeepsItsEntityManagerAndLeavesItWhenItEnds) {
   group->mountIs("a", "Thing");
   group->doMount(stateDatabase);
   EXPECT_EQ(stateDatabase->references(), 2u);
   group = nullptr;
   EXPECT_EQ(stateDatabase->references(), 1u);
   stateDatabase->entityIs("a", thing);
   EXPECT_THAT(watch.states, ElementsAre(State::waiting));
}

TEST_F(MountGroupTest, AnObserverMayEndTheGroupOrMountItOnceMore) {
   group->mountIs("a", "Thing");
   watch.onState = [&] {
      if (group->state() == State::waiting) {
         group->doMount(stateDatabase);
         stateDatabase->entityIs("a", thing);
      } else {
         group = nullptr;
      }
   };
   group->doMount(stateDatabase);
   EXPECT_FALSE(group);
   EXPECT_THAT(watch.states, ElementsAre(State::waiting, State::complete));
}

TEST_F(MountGroupTest, AnObserversExceptionKeepsNothingFromBeingMounted) {
   class Refusing final : public EntityManager::Notifiee {
      void handleEntity(Pelm::String const&) override { throw std::runtime_error("no"); }
   };
   Refusing refusing;
   stateDatabase->notifieeIs(refusing);
   stateDatabase->entityIs("a", thing);
   stateDatabase->entityIs("b", thing);
   group->mountIs("a", "Thing");
   group->mountIs("b", "Thing");
   EXPECT_THROW(group->doMount(stateDatabase), std::runtime_error);
   EXPECT_TRUE(group->isComplete());
}

} // namespace
} // namespace Kallo
