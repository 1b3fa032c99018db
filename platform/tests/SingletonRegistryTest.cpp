#include "platform/nuv/SingletonRegistry.h"

#include <gtest/gtest.h>

namespace Nuv {
namespace {

class Thing final : public Object {};

TEST(SingletonRegistry, KnowsNothingAtFirst) {
   SingletonRegistry registry;
   EXPECT_FALSE(registry.singletonExists("Thing"));
   EXPECT_FALSE(registry.singleton("Thing"));
}

TEST(SingletonRegistry, HoldsWhatIsRegistered) {
   SingletonRegistry registry;
   Ptr<Thing> thing = make<Thing>();
   registry.singletonIs("Thing", thing);
   EXPECT_EQ(thing->references(), 2u);
   EXPECT_TRUE(registry.singletonExists("Thing"));
   EXPECT_EQ(registry.singleton("Thing"), thing);
   EXPECT_FALSE(registry.singletonExists("Thin"));
}

TEST(SingletonRegistry, TheFirstOfANameStays) {
   SingletonRegistry registry;
   Ptr<Thing> first = make<Thing>();
   Ptr<Thing> second = make<Thing>();
   registry.singletonIs("Thing", first);
   registry.singletonIs("Thing", second);
   EXPECT_EQ(registry.singleton("Thing"), first);
   EXPECT_EQ(second->references(), 1u);
}

TEST(SingletonRegistry, TheProcessHasOne) {
   EXPECT_EQ(&SingletonRegistry::instance(), &SingletonRegistry::instance());
}

} // namespace
} // namespace Nuv
