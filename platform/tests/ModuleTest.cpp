#include "platform/nuv/Module.h"

#include "platform/nuv/Ptr.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>

namespace Nuv {
namespace {

TEST(Module, IsFoundByNameWhileItLives) {
   EXPECT_EQ(Module::find("ModuleTest"), nullptr);
   {
      Module module("ModuleTest");
      EXPECT_EQ(Module::find("ModuleTest"), &module);
      EXPECT_EQ(module.name(), "ModuleTest");
      EXPECT_EQ(Module::find("ModuleTes"), nullptr);
   }
   EXPECT_EQ(Module::find("ModuleTest"), nullptr);
}

TEST(Module, AreRegisteredInOrder) {
   auto const before = Module::registered();
   Module first("first");
   auto second = std::make_unique<Module>("second");
   Module third("third");
   auto now = Module::registered();
   ASSERT_EQ(now.size(), before.size() + 3);
   EXPECT_TRUE(std::equal(before.begin(), before.end(), now.begin()));
   EXPECT_EQ(now[before.size()], &first);
   EXPECT_EQ(now[before.size() + 1], second.get());

   second = nullptr;
   now = Module::registered();
   ASSERT_EQ(now.size(), before.size() + 2);
   EXPECT_EQ(now[before.size() + 1], &third);
}

TEST(Module, OfTwoWithOneNameTheFirstIsFound) {
   auto first = std::make_unique<Module>("twice");
   Module second("twice");
   EXPECT_EQ(Module::find("twice"), first.get());
   first = nullptr;
   EXPECT_EQ(Module::find("twice"), &second);
}

TEST(Module, ThePlatformHasOne) {
   class Plain final : public Object {};
   auto type = make<Plain>()->fwkType();
   EXPECT_EQ(type.module, &platformModule());
   EXPECT_EQ(type.kind, 4u);
   EXPECT_EQ(Module::find("ZandorPlatform"), &platformModule());
}

TEST(FwkType, IsItsModuleAndKind) {
   Module one("one");
   Module two("two");
   EXPECT_EQ((FwkType{&one}), (FwkType{&one}));
   EXPECT_NE((FwkType{&one}), (FwkType{&two}));
   EXPECT_NE((FwkType{&one, 4}), (FwkType{&one, 5}));
}

} // namespace
} // namespace Nuv
