#include "platform/kallo/EntityManager.h"
#include "platform/local/EntityManager.h"

#include <gtest/gtest.h>

namespace {

class Thing final : public Nuv::Object {};

class EntityManagerTest : public testing::Test {
 protected:
   Nuv::Ptr<Thing> thing = Nuv::make<Thing>();
   Nuv::Ptr<Thing> another = Nuv::make<Thing>();
};

class KalloEntityManagerTest : public EntityManagerTest {
 protected:
   Nuv::Ptr<Kallo::EntityManager> manager = Nuv::make<Kallo::EntityManager>();
};

class LocalEntityManagerTest : public EntityManagerTest {
 protected:
   Nuv::Ptr<Local::EntityManager> manager = Nuv::make<Local::EntityManager>();
};

TEST_F(KalloEntityManagerTest, FindsWhatIsAtAPath) {
   EXPECT_FALSE(manager->getEntity("a/b"));
   manager->entityIs("a/b", thing);
   EXPECT_EQ(manager->getEntity("a/b"), thing);
   EXPECT_FALSE(manager->getEntity("a"));
   EXPECT_FALSE(manager->getEntity("a/b/"));
}

TEST_F(KalloEntityManagerTest, HoldsItsEntities) {
   manager->entityIs("a", thing);
   EXPECT_EQ(thing->references(), 2u);
   manager = nullptr;
   EXPECT_EQ(thing->references(), 1u);
}

TEST_F(KalloEntityManagerTest, APathHoldsOneEntity) {
   manager->entityIs("a", thing);
   manager->entityIs("a", another);
   EXPECT_EQ(manager->getEntity("a"), another);
   EXPECT_EQ(thing->references(), 1u);
}

TEST_F(KalloEntityManagerTest, ForgetsWhatIsTakenAway) {
   manager->entityIs("a", thing);
   manager->entityDel("a");
   manager->entityDel("a");
   EXPECT_FALSE(manager->getEntity("a"));
   EXPECT_EQ(thing->references(), 1u);
}

TEST_F(LocalEntityManagerTest, FindsWhatIsMountedAsWhatItIs) {
   manager->entityIs("a", "Thing", thing);
   manager->doMount("a", "Thing");
   EXPECT_EQ(manager->getEntity("a"), thing);
}

TEST_F(LocalEntityManagerTest, ShowsNothingThatIsNotMounted) {
   manager->entityIs("a", "Thing", thing);
   EXPECT_FALSE(manager->getEntity("a"));
}

TEST_F(LocalEntityManagerTest, ShowsNothingOfAnotherTypeThanExpected) {
   manager->entityIs("a", "Thing", thing);
   manager->doMount("a", "OtherThing");
   EXPECT_FALSE(manager->getEntity("a"));
   manager->doMount("a", "Thing");
   EXPECT_EQ(manager->getEntity("a"), thing);
}

TEST_F(LocalEntityManagerTest, AMountMayComeBeforeItsEntity) {
   manager->doMount("a", "Thing");
   EXPECT_FALSE(manager->getEntity("a"));
   manager->entityIs("a", "Thing", thing);
   EXPECT_EQ(manager->getEntity("a"), thing);
}

TEST_F(LocalEntityManagerTest, AnEntityThatIsReplacedKeepsItsMount) {
   manager->doMount("a", "Thing");
   manager->entityIs("a", "Thing", thing);
   manager->entityIs("a", "Thing", another);
   EXPECT_EQ(manager->getEntity("a"), another);
   EXPECT_EQ(thing->references(), 1u);
   manager->entityDel("a");
   manager->entityDel("a");
   EXPECT_FALSE(manager->getEntity("a"));
   manager->entityIs("a", "Thing", thing);
   EXPECT_EQ(manager->getEntity("a"), thing);
}

} // namespace
