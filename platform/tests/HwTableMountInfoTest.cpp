#include "platform/asic/HwTableMountInfo.h"
#include "platform/asic/SwTableUtil.h"
#include "platform/asic/testing/MemoryHwTable.h"
#include "platform/asic/testing/TinyTable.h"
#include "platform/chipstate/ChipInfo.h"

#include <gmock/gmock.h>

namespace Asic {
namespace {

using testing::ElementsAre;
using testing::Key;
using testing::Pair;

class HwTableMountInfoTest : public testing::Test {
 protected:
   Nuv::Ptr<MemoryHwTable> newTable(char const* name, Index numEntries) {
      return Nuv::make<MemoryHwTable>(HwTable::Shape{name, "words", 0, numEntries, 1}, rows, loop);
   }

   Nuv::Ptr<HwTableMountInfo> published(Pelm::String const& tableType) const {
      return Nuv::dynamicCast<HwTableMountInfo>(stateDatabase->getEntity(HwTableMountInfo::path(tableType)));
   }

   Nuv::ReactionLoop loop;
   MemoryHwTable::Rows rows;
   Nuv::Ptr<MemoryHwTable> table = newTable("Rows", 8);
   Nuv::Ptr<Kallo::EntityManager> stateDatabase = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<Kallo::MountGroup> mounts = Nuv::make<Kallo::MountGroup>();
   Nuv::Ptr<HwTableRecoverGroup> recovered = Nuv::make<HwTableRecoverGroup>();
   ZandorCentral::ChipInfo chipInfo{{Nuv::make<SharedAllocators>()}};
};

TEST_F(HwTableMountInfoTest, SaysWhichHardwareTableATypeUsesOnEachUnit) {
   HwTableMountInfo::publish(*stateDatabase, "Test::Table", 0, *table);
   HwTableMountInfo::publish(*stateDatabase, "Test::Table", 3, *newTable("More", 16));
   auto info = published("Test::Table");
   ASSERT_TRUE(info);
   EXPECT_EQ(info->tableType(), "Test::Table");
   EXPECT_THAT(info->hwTables(),
               ElementsAre(Pair(0, table->shape()), Pair(3, HwTable::Shape{"More", "words", 0, 16, 1})));
   ASSERT_TRUE(info->hwTable(0));
   EXPECT_EQ(*info->hwTable(0), table->shape());
   EXPECT_FALSE(info->hwTable(1));
}

TEST_F(HwTableMountInfoTest, LeadsToTheHardwareTable) {
   stateDatabase->entityIs(HwTable::path(2, "Rows"), table);
   HwTableMountInfo::publish(*stateDatabase, "Test::Table", 2, *table);
   auto name = published("Test::Table")->hwTable(2)->name;
   EXPECT_EQ(HwTable::mounted(*stateDatabase, 2, name).get(), table.get());
   EXPECT_FALSE(HwTable::mounted(*stateDatabase, 0, name));
}

TEST_F(HwTableMountInfoTest, HasATypeOfItsOwnForEachTypeOfTable) {
   HwTableMountInfo::publish(*stateDatabase, "Test::Table", 0, *table);
   HwTableMountInfo::publish(*stateDatabase, "Test::Other", 1, *table);
   EXPECT_NE(published("Test::Table"), published("Test::Other"));
   EXPECT_THAT(published("Test::Table")->hwTables(), ElementsAre(Key(0)));
   EXPECT_THAT(published("Test::Other")->hwTables(), ElementsAre(Key(1)));
}

TEST_F(HwTableMountInfoTest, TellsOfWhatChanges) {
   class Watch final : public HwTableMountInfo::Notifiee {
    public:
      void handleHwTable(UnitId unit) override { units.push_back(unit); }

      std::vector<UnitId> units;
   };
   HwTableMountInfo::publish(*stateDatabase, "Test::Table", 0, *table);
   Watch watch;
   published("Test::Table")->notifieeIs(watch);
   HwTableMountInfo::publish(*stateDatabase, "Test::Table", 0, *table);
   EXPECT_THAT(watch.units, ElementsAre());
   HwTableMountInfo::publish(*stateDatabase, "Test::Table", 1, *table);
   HwTableMountInfo::publish(*stateDatabase, "Test::Table", 0, *newTable("Rows", 9));
   EXPECT_THAT(watch.units, ElementsAre(1, 0));
   EXPECT_EQ(published("Test::Table")->hwTable(0)->numEntries, 9u);
}

TEST_F(HwTableMountInfoTest, IsMountedByItsTablesType) {
   SwTable::Util::doMountHwTableMountInfo(mounts, "Test::Table");
   mounts->doMount(stateDatabase);
   EXPECT_EQ(mounts->state(), Kallo::MountGroup::State::waiting);
   HwTableMountInfo::publish(*stateDatabase, "Test::Other", 0, *table);
   EXPECT_EQ(mounts->state(), Kallo::MountGroup::State::waiting);
   HwTableMountInfo::publish(*stateDatabase, "Test::Table", 0, *table);
   EXPECT_TRUE(mounts->isComplete());
}

TEST_F(HwTableMountInfoTest, ATableWithoutRowsPublishesNothing) {
   stateDatabase->entityIs(HwTable::path(0, "Tiny"), newTable("Tiny", 8));
   auto tiny = Nuv::make<TinyTable>();
   tiny->doInit(0, stateDatabase, chipInfo);
   tiny->doPublishHwTableMountInfo();
   EXPECT_FALSE(stateDatabase->isMounted(HwTableMountInfo::path(""), HwTableMountInfo::typeName()));
}

TEST_F(HwTableMountInfoTest, AHardwareTableIsRecoveredByUnitAndName) {
   rows[1] = {11};
   stateDatabase->entityIs(HwTable::path(2, "Rows"), table);
   SwTable::Util::doRecoverHwTable(recovered, 0, stateDatabase, chipInfo, "Rows");
   SwTable::Util::doRecoverHwTable(recovered, 2, stateDatabase, chipInfo, "Other");
   EXPECT_EQ(recovered->hwTables(), 0u);
   SwTable::Util::doRecoverHwTable(recovered, 2, stateDatabase, chipInfo, "Rows");
   SwTable::Util::doRecoverHwTable(recovered, 2, stateDatabase, chipInfo, "Rows");
   EXPECT_EQ(recovered->hwTables(), 1u);
   recovered->recover();
   EXPECT_EQ(recovered->purge(), 1u);
   EXPECT_TRUE(rows.empty());
   loop.runUntilIdle();
}

TEST_F(HwTableMountInfoTest, WhatIsKnownOfAChipServesItsTables) {
   auto tiny = Nuv::make<TinyTable>();
   tiny->doInit(0, stateDatabase, chipInfo);
   EXPECT_EQ(tiny->chipInfo().sharedAllocators, chipInfo.sharedAllocators);
}

} // namespace
} // namespace Asic
