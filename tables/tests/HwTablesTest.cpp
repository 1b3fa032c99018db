#include "chip/model/testing/ChipTest.h"
#include "platform/asic/testing/MemoryHwTable.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3EcmpMember0Table.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Key;

/// What the types of tables say of the hardware tables that they use.
template <class T>
class HwTablesTest : public ModelChip::ChipTest {
 protected:
   /// The member tables of a merged one, or the table itself.
   static std::vector<Pelm::String> rowTables() {
      if constexpr (std::same_as<T, L3NextHop2Table>) {
         return {IngL3NextHop2Table::typeName(), EgrL3NextHop2::typeName()};
      } else {
         return {T::typeName()};
      }
   }

   static std::vector<Pelm::String> hwTables() {
      if constexpr (std::same_as<T, L3NextHop2Table>) {
         return {IngL3NextHop2TableSheet::hwTableName(), EgrL3NextHop2Sheet::hwTableName()};
      } else {
         return {T::Sheet::hwTableName()};
      }
   }

   static Nuv::Ptr<T> newTable() {
      if constexpr (std::is_constructible_v<T, Pelm::String>) {
         return Nuv::make<T>(T::typeName());
      } else {
         return Nuv::make<T>();
      }
   }

   Nuv::Ptr<Asic::HwTableMountInfo> published(Pelm::String const& tableType) const {
      auto path = Asic::HwTableMountInfo::path(tableType);
      return Nuv::dynamicCast<Asic::HwTableMountInfo>(stateDatabase->getEntity(path));
   }

   Nuv::Ptr<Kallo::MountGroup> mounts = Nuv::make<Kallo::MountGroup>();
   Nuv::Ptr<Asic::HwTableRecoverGroup> recovered = Nuv::make<Asic::HwTableRecoverGroup>();
};

using Tables = testing::Types<EgrL3Oif2, IngL3NextHop2Table, EgrL3NextHop2, L3NextHop2Table,
                              L3UnderlayEcmpMember1Table, L3EcmpMember0Table, L3EcmpGroup0Table>;
TYPED_TEST_SUITE(HwTablesTest, Tables);

TYPED_TEST(HwTablesTest, ArePublishedWhenTheTableIsToldTo) {
   TypeParam::doMountHwTableMountInfo(this->mounts);
   EXPECT_EQ(this->mounts->mounts().size(), this->rowTables().size());
   this->mounts->doMount(this->stateDatabase);
   auto table = this->newTable();
   table->doInit(this->unit, this->stateDatabase, this->chip->chipInfo());
   EXPECT_EQ(this->mounts->state(), Kallo::MountGroup::State::waiting);

   table->doPublishHwTableMountInfo();
   EXPECT_TRUE(this->mounts->isComplete());
   std::vector<Pelm::String> names;
   for (auto const& tableType : this->rowTables()) {
      auto info = this->published(tableType);
      ASSERT_TRUE(info);
      EXPECT_THAT(info->hwTables(), ElementsAre(Key(this->unit)));
      auto const& shape = *info->hwTable(this->unit);
      EXPECT_EQ(shape, this->chip->table(shape.name)->shape());
      names.push_back(shape.name);
   }
   EXPECT_THAT(names, ElementsAreArray(this->hwTables()));
}

TYPED_TEST(HwTablesTest, StayPublishedWhenTheTableEnds) {
   auto references = this->stateDatabase->references();
   auto table = this->newTable();
   table->doInit(this->unit, this->stateDatabase, this->chip->chipInfo());
   table->doPublishHwTableMountInfo();
   table->doPublishHwTableMountInfo();
   EXPECT_EQ(this->stateDatabase->references(), references);
   table = nullptr;
   auto successor = this->newTable();
   successor->doInit(this->unit, this->stateDatabase, this->chip->chipInfo());
   successor->doPublishHwTableMountInfo();
   for (auto const& tableType : this->rowTables()) {
      EXPECT_THAT(this->published(tableType)->hwTables(), ElementsAre(Key(this->unit)));
   }
}

TYPED_TEST(HwTablesTest, AreNotPublishedWithoutAChip) {
   auto table = this->newTable();
   table->doPublishHwTableMountInfo();
   table->doInit(this->unit + 1, this->stateDatabase, this->chip->chipInfo());
   table->doPublishHwTableMountInfo();
   TypeParam::doMountHwTableMountInfo(this->mounts);
   this->mounts->doMount(this->stateDatabase);
   EXPECT_EQ(this->mounts->state(), Kallo::MountGroup::State::waiting);
}

TYPED_TEST(HwTablesTest, AreRecoveredByType) {
   TypeParam::doRecoverHwTable(this->recovered, this->unit + 1, this->stateDatabase, this->chip->chipInfo());
   EXPECT_EQ(this->recovered->hwTables(), 0u);

   // Rows of an earlier run, in hardware tables that know nothing of them yet.
   std::map<Pelm::String, Asic::MemoryHwTable::Rows> rows;
   for (auto const& name : this->hwTables()) {
      auto const& shape = this->chip->table(name)->shape();
      rows[name][3].resize(shape.wordsPerRow, 3);
      auto table = Nuv::make<Asic::MemoryHwTable>(shape, rows[name], this->loop);
      this->stateDatabase->entityIs(Asic::HwTable::path(this->unit, name), table);
   }
   TypeParam::doRecoverHwTable(this->recovered, this->unit, this->stateDatabase, this->chip->chipInfo());
   EXPECT_EQ(this->recovered->hwTables(), this->hwTables().size());
   this->recovered->recover();
   EXPECT_EQ(this->recovered->purge(), this->hwTables().size());
   for (auto const& [name, left] : rows) {
      EXPECT_THAT(left, IsEmpty()) << name;
   }
}

/// Interfaces that were written by a run that is over.
class RestartTest : public ModelChip::ChipTest {
 protected:
   /// The chip's rows, seen by an agent that has just been started.
   Nuv::Ptr<Asic::HwTable> restarted() {
      auto const& shape = chip->table(EgrL3Oif2Sheet::hwTableName())->shape();
      auto hwTable = Nuv::make<Asic::MemoryHwTable>(shape, rows, loop);
      stateDatabase->entityIs(Asic::HwTable::path(unit, shape.name), hwTable);
      return hwTable;
   }

   Nuv::Ptr<EgrL3Oif2> newTable() {
      auto table = egrL3Oif2Factory(EgrL3Oif2::typeName());
      table->doInit(unit, stateDatabase, chip->chipInfo());
      return table;
   }

   static EgrL3Oif2::Entry entryOf(std::uint16_t tag) {
      EgrL3Oif2::Entry entry;
      entry.isUnderlayL2HdrTagged = true;
      entry.tnlVlanTag = tag;
      return entry;
   }

   Asic::MemoryHwTable::Rows rows;
};

TEST_F(RestartTest, WritesNothingThatIsThereAndClearsWhatIsNotWrittenAgain) {
   Nuv::Ptr<Asic::HwTable> before = restarted();
   auto ended = newTable();
   ended->entryCommit(1, entryOf(1));
   ended->entryCommit(2, entryOf(2));
   ended->entryCommit(3, entryOf(3));
   loop.runUntilIdle();
   ended->hasNotificationActiveIs(false);
   ended = nullptr;
   EXPECT_EQ(rows.size(), 3u);

   auto after = restarted();
   auto group = Nuv::make<Asic::HwTableRecoverGroup>();
   EgrL3Oif2::doRecoverHwTable(group, unit, stateDatabase, chip->chipInfo());
   group->recover();
   auto table = newTable();
   auto equal = table->entryCommit(1, entryOf(1));
   auto changed = table->entryCommit(2, entryOf(9));
   loop.runUntilIdle();
   EXPECT_EQ(equal->entryState(), State::success);
   EXPECT_EQ(changed->entryState(), State::success);
   EXPECT_EQ(after->commandsIssued(), 1u);
   EXPECT_EQ(rows.size(), 3u);
   EXPECT_EQ(group->purge(), 1u);
   loop.runUntilIdle();
   EXPECT_THAT(rows, ElementsAre(Key(1), Key(2)));
}

TEST(TraceFacilities, AreThoseOfTheMemberTables) {
   EXPECT_EQ(L3EcmpMember0Table::traceFacility().name(), "ZandorL3TunnelL3EcmpMember0Table");
   EXPECT_EQ(L3UnderlayEcmpMember1Table::traceFacility().name(), "ZandorL3TunnelL3UnderlayEcmpMember1Table");
}

} // namespace
} // namespace ZandorL3Tunnel
