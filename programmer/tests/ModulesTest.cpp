#include "programmer/L3UnderlayEcmpProgrammer.h"
#include "tables/L3EcmpGroup0Table.h"

#include <gmock/gmock.h>

namespace ZandorL3Tunnel {
namespace {

class SourceFiles : public testing::TestWithParam<char const*> {};

INSTANTIATE_TEST_SUITE_P(OfTheLibrary, SourceFiles,
                         testing::Values("EgrL3Oif2", "L3EcmpGroup0Table", "L3NextHop2SharedAllocator",
                                         "L3NextHop2Table", "L3NextHop2TableUserImpl",
                                         "L3UnderlayEcmpMember1Table", "L3UnderlayEcmpProgrammer",
                                         "L3UnderlayNextHopExternalKey", "SwFieldTypes"),
                         [](auto const& each) { return std::string(each.param); });

TEST_P(SourceFiles, AreRegisteredOnceByName) {
   auto const* module = Nuv::Module::find(GetParam());
   ASSERT_NE(module, nullptr);
   EXPECT_EQ(module->name(), GetParam());
   int count = 0;
   for (auto const* each : Nuv::Module::registered()) {
      count += each->name() == GetParam();
   }
   EXPECT_EQ(count, 1);
}

struct TypeCase {
   Nuv::FwkType type;
   char const* module;
};

TEST(FwkTypes, OfTheLibrarysClassesNameTheirModule) {
   TypeCase const cases[] = {{EgrL3Oif2::staticFwkType(), "EgrL3Oif2"},
                             {IngL3NextHop2Table::staticFwkType(), "L3NextHop2Table"},
                             {EgrL3NextHop2::staticFwkType(), "L3NextHop2Table"},
                             {L3NextHop2Table::staticFwkType(), "L3NextHop2Table"},
                             {L3NextHop2SharedAllocator::staticFwkType(), "L3NextHop2SharedAllocator"},
                             {L3UnderlayEcmpMember1Table::staticFwkType(), "L3UnderlayEcmpMember1Table"},
                             {L3EcmpGroup0Table::staticFwkType(), "L3EcmpGroup0Table"},
                             {L3UnderlayEcmpProgrammer::staticFwkType(), "L3UnderlayEcmpProgrammer"},
                             {L3Via::staticFwkType(), "L3UnderlayNextHopExternalKey"}};
   for (auto const& each : cases) {
      EXPECT_EQ(each.type.kind, 4u) << each.module;
      ASSERT_NE(each.type.module, nullptr) << each.module;
      EXPECT_EQ(each.type.module, Nuv::Module::find(each.module)) << each.module;
   }
}

TEST(FwkTypes, OfObjectsAreThoseOfTheirClasses) {
   EXPECT_EQ(egrL3Oif2Factory("EgrL3Oif2")->fwkType(), EgrL3Oif2::staticFwkType());
   EXPECT_EQ(l3NextHop2TableFactory()->fwkType(), L3NextHop2Table::staticFwkType());
   EXPECT_EQ(l3ViaFactory()->fwkType(), L3Via::staticFwkType());
   EXPECT_EQ(l3NextHop2SharedAllocatorFactory("allocator")->fwkType(),
             L3NextHop2SharedAllocator::staticFwkType());
   EXPECT_EQ(l3UnderlayEcmpProgrammerFactory(nullptr, nullptr, nullptr)->fwkType(),
             L3UnderlayEcmpProgrammer::staticFwkType());
}

} // namespace
} // namespace ZandorL3Tunnel
