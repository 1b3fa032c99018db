#include "platform/kallo/EntityManager.h"
#include "platform/local/EntityManager.h"

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Thing : public Nuv::Object {
 public:
   static constexpr char const* typeName() { return "Thing"; }
};

class SpecialThing final : public Thing {};

class Watch final : public Nuv::EntityDirectory::Notifiee {
 public:
   void handleEntity(Pelm::String const& path) override {
      paths.push_back(path);
      if (onEntity) {
         onEntity();
      }
   }

   std::vector<Pelm::String> paths;
   std::function<void()> onEntity;
};

/// Every entity manager, whatever it is for.
template <class Manager>
class EntityManagerTest : public testing::Test {
 protected:
   Nuv::Ptr<Thing> thing = Nuv::make<Thing>();
   Nuv::Ptr<Thing> another = Nuv::make<Thing>();
   Nuv::Ptr<Manager> manager = Nuv::make<Manager>();
   Watch watch;
};

using Managers = testing::Types<Kallo::EntityManager, Local::EntityManager>;
TYPED_TEST_SUITE(EntityManagerTest, Managers);

TYPED_TEST(EntityManagerTest, FindsWhatIsMountedAsWhatItIs) {
   this->manager->entityIs("a/b", "Thing", this->thing);
   this->manager->doMount("a/b", "Thing");
   this->manager->doMount("a", "Thing");
   EXPECT_EQ(this->manager->getEntity("a/b"), this->thing);
   EXPECT_FALSE(this->manager->getEntity("a"));
   EXPECT_FALSE(this->manager->getEntity("a/b/"));
}

TYPED_TEST(EntityManagerTest, ShowsNothingThatIsNotMounted) {
   this->manager->entityIs("a", "Thing", this->thing);
   EXPECT_FALSE(this->manager->getEntity("a"));
   EXPECT_FALSE(this->manager->isMounted("a", "Thing"));
}

TYPED_TEST(EntityManagerTest, ShowsNothingOfAnotherTypeThanExpected) {
   this->manager->entityIs("a", "Thing", this->thing);
   this->manager->doMount("a", "OtherThing");
   EXPECT_FALSE(this->manager->getEntity("a"));
   EXPECT_TRUE(this->manager->isMounted("a", "OtherThing"));
   this->manager->doMount("a", "Thing");
   EXPECT_EQ(this->manager->getEntity("a"), this->thing);
   EXPECT_FALSE(this->manager->isMounted("a", "OtherThing"));
}

TYPED_TEST(EntityManagerTest, KnowsTheTypeOfAnEntityWhoseClassHasOne) {
   this->manager->entityIs("a", this->thing);
   this->manager->entityIs("b", Nuv::make<SpecialThing>());
   this->manager->doMount("a", "Thing");
   this->manager->doMount("b", "Thing");
   EXPECT_EQ(this->manager->getEntity("a"), this->thing);
   EXPECT_TRUE(this->manager->getEntity("b"));
}

TYPED_TEST(EntityManagerTest, AMountMayComeBeforeItsEntity) {
   this->manager->doMount("a", "Thing");
   EXPECT_FALSE(this->manager->getEntity("a"));
   this->manager->entityIs("a", "Thing", this->thing);
   EXPECT_EQ(this->manager->getEntity("a"), this->thing);
}

TYPED_TEST(EntityManagerTest, AnEntityThatIsReplacedKeepsItsMount) {
   this->manager->doMount("a", "Thing");
   this->manager->entityIs("a", "Thing", this->thing);
   this->manager->entityIs("a", "Thing", this->another);
   EXPECT_EQ(this->manager->getEntity("a"), this->another);
   EXPECT_EQ(this->thing->references(), 1u);
   this->manager->entityDel("a");
   this->manager->entityDel("a");
   EXPECT_FALSE(this->manager->getEntity("a"));
   EXPECT_EQ(this->another->references(), 1u);
   this->manager->entityIs("a", "Thing", this->thing);
   EXPECT_EQ(this->manager->getEntity("a"), this->thing);
   this->manager->entityIs("a", "Thing", nullptr);
   EXPECT_FALSE(this->manager->getEntity("a"));
   EXPECT_EQ(this->thing->references(), 1u);
}

TYPED_TEST(EntityManagerTest, HoldsItsEntitiesMountedOrNot) {
   this->manager->entityIs("a", "Thing", this->thing);
   EXPECT_EQ(this->thing->references(), 2u);
   this->manager->doMount("a", "Thing");
   EXPECT_EQ(this->thing->references(), 2u);
   this->manager = nullptr;
   EXPECT_EQ(this->thing->references(), 1u);
}

TYPED_TEST(EntityManagerTest, TellsOfEntitiesThatComeGoAndAreReplaced) {
   this->manager->notifieeIs(this->watch);
   this->manager->doMount("a", "Thing");
   EXPECT_THAT(this->watch.paths, IsEmpty());
   this->manager->entityIs("a", "Thing", this->thing);
   EXPECT_THAT(this->watch.paths, ElementsAre("a"));
   this->manager->entityIs("a", "Thing", this->another);
   EXPECT_THAT(this->watch.paths, ElementsAre("a", "a"));
   this->manager->entityDel("a");
   EXPECT_THAT(this->watch.paths, ElementsAre("a", "a", "a"));
}

TYPED_TEST(EntityManagerTest, TellsNothingOfWhatCannotBeSeenOrDoesNotChange) {
   this->manager->notifieeIs(this->watch);
   this->manager->entityIs("a", "Thing", this->thing);
   this->manager->entityIs("a", "Thing", this->another);
   this->manager->doMount("a", "OtherThing");
   EXPECT_THAT(this->watch.paths, IsEmpty());
   this->manager->doMount("a", "Thing");
   EXPECT_THAT(this->watch.paths, ElementsAre("a"));
   this->manager->doMount("a", "Thing");
   this->manager->entityIs("a", "Thing", this->another);
   this->manager->entityDel("b");
   EXPECT_THAT(this->watch.paths, ElementsAre("a"));
   this->manager->doMount("a", "OtherThing");
   EXPECT_THAT(this->watch.paths, ElementsAre("a", "a"));
}

TYPED_TEST(EntityManagerTest, ObserversSeeTheChangeAlreadyMade) {
   this->manager->notifieeIs(this->watch);
   this->manager->doMount("a", "Thing");
   Nuv::Ptr<Nuv::Object> seen;
   this->watch.onEntity = [&] { seen = this->manager->getEntity("a"); };
   this->manager->entityIs("a", "Thing", this->thing);
   EXPECT_EQ(seen, this->thing);
   this->manager->entityDel("a");
   EXPECT_FALSE(seen);
}

TYPED_TEST(EntityManagerTest, ObserversMayChangeItMeanwhileAndEndIt) {
   Watch second;
   this->manager->notifieeIs(this->watch);
   this->manager->notifieeIs(second);
   this->manager->doMount("a", "Thing");
   this->watch.onEntity = [&] {
      this->watch.onEntity = nullptr;
      this->manager->entityIs("a", "Thing", this->another);
   };
   this->manager->entityIs("a", "Thing", this->thing);
   EXPECT_EQ(this->manager->getEntity("a"), this->another);
   EXPECT_THAT(second.paths, ElementsAre("a", "a"));

   this->watch.onEntity = [&] { this->manager = nullptr; };
   this->manager->entityDel("a");
   EXPECT_FALSE(this->watch.isListed());
   EXPECT_EQ(this->another->references(), 1u);
}

TYPED_TEST(EntityManagerTest, AnExceptionOfAnObserverLeavesTheChangeMadeAndToldOf) {
   Watch second;
   this->manager->notifieeIs(this->watch);
   this->manager->notifieeIs(second);
   this->manager->doMount("a", "Thing");
   this->watch.onEntity = [] { throw std::runtime_error("no"); };
   EXPECT_THROW(this->manager->entityIs("a", "Thing", this->thing), std::runtime_error);
   EXPECT_EQ(this->manager->getEntity("a"), this->thing);
   EXPECT_THAT(second.paths, ElementsAre("a"));
}

} // namespace
