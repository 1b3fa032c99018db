#include "plugin/UtilLoader.h"

#include "chip/model/Chip.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

#include <gmock/gmock.h>

namespace ZandorL3Tunnel {
namespace {

using testing::IsEmpty;

template <class T>
class UtilLoaders : public testing::Test {
 protected:
   /// A table beside its chip, as an agent sets it up.
   static Nuv::Ptr<T> newTable() {
      if constexpr (std::is_constructible_v<T, Pelm::String>) {
         return Nuv::make<T>(T::Sheet::hwTableName());
      } else {
         return Nuv::make<T>();
      }
   }

   Nuv::ReactionLoop loop;
   Nuv::Ptr<ModelChip::Chip> chip = Nuv::make<ModelChip::Chip>(loop);
   Nuv::Ptr<Kallo::EntityManager> stateDatabase = Nuv::make<Kallo::EntityManager>();
};

using Tables = testing::Types<EgrL3Oif2, IngL3NextHop2Table, EgrL3NextHop2, L3UnderlayEcmpMember1Table,
                              L3EcmpGroup0Table>;
TYPED_TEST_SUITE(UtilLoaders, Tables);

TYPED_TEST(UtilLoaders, HaveTheirTablesFolder) {
   using Loader = UtilLoader<TypeParam>;
   auto loader = Nuv::make<Loader>();
   EXPECT_EQ(loader->prefixPath(), "AsicFeature");
   EXPECT_EQ(loader->suffixPath(), Nuv::text("ZandorL3Tunnel::", TypeParam::Sheet::hwTableName()));
   EXPECT_EQ(Loader::fullName(), TypeParam::typeName() + "::UtilLoader");
   EXPECT_EQ(loader->fwkType(), TypeParam::staticFwkType());
}

TYPED_TEST(UtilLoaders, FindThePluginOfTheBuild) {
   Plugin::Loader<TypeParam> loader;
   EXPECT_EQ(loader.loadPlugins("AsicFeature/" + TypeParam::typeName(), "Test"), 1u);
   EXPECT_THAT(loader.failures(), IsEmpty());
}

TYPED_TEST(UtilLoaders, ATableThatIsTiedToAChipHasItsSingletonAndItsUtil) {
   auto& registry = Nuv::SingletonRegistry::instance();
   this->chip->publish(*this->stateDatabase, 0);
   auto table = this->newTable();
   EXPECT_FALSE(table->util());
   table->doInit(0, this->stateDatabase, this->chip->chipInfo());
   ASSERT_TRUE(registry.singletonExists(TypeParam::typeName() + "::UtilLoader"));
   auto singleton = registry.singleton(TypeParam::typeName() + "::UtilLoader");
   EXPECT_TRUE(Nuv::dynamicCast<UtilLoader<TypeParam>>(singleton));
   ASSERT_TRUE(table->util());
   EXPECT_EQ(&table->util()->hwTable(), this->chip->table(TypeParam::Sheet::hwTableName()));

   auto second = this->newTable();
   second->doInit(0, this->stateDatabase, this->chip->chipInfo());
   EXPECT_EQ(registry.singleton(TypeParam::typeName() + "::UtilLoader"), singleton);
   EXPECT_NE(second->util(), table->util());
}

TYPED_TEST(UtilLoaders, ATableWithoutAHardwareTableHasNoUtil) {
   auto table = this->newTable();
   table->doInit(0, this->stateDatabase, this->chip->chipInfo());
   EXPECT_FALSE(table->util());
   EXPECT_EQ(table->numEntries(), Asic::invalidIndex);
   EXPECT_EQ(table->minIndex(), 0u);
   EXPECT_EQ(table->maxIndex(), Asic::invalidIndex);
}

TYPED_TEST(UtilLoaders, AUtilServesNoOtherLayout) {
   class Strange final : public Asic::HwTable {
    public:
      explicit Strange(Nuv::ReactionLoop& loop) : HwTable({"Strange", "strange", 0, 1, 1}, loop) {}

    private:
      void issue(Command, Asic::Index, std::span<std::uint32_t const>) override {}
   };
   Ancillary::Core::Loader::Singleton::instantiate<UtilLoader<TypeParam>>();
   EXPECT_FALSE(Asic::UtilFactory::utilFor(TypeParam::typeName(), Nuv::make<Strange>(this->loop)));
}

} // namespace
} // namespace ZandorL3Tunnel
