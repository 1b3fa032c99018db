#include "platform/asic/UtilFactory.h"
#include "platform/asic/testing/MemoryHwTable.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

#include <gtest/gtest.h>

namespace ZandorL3Tunnel {
namespace {

/// A util for rows that other tables write as well.
class SharedUtil final : public L3UnderlayEcmpMember1Table::Util {
 public:
   explicit SharedUtil(Nuv::Ptr<Asic::HwTable> const& table) : EntryUtil(table) {}

   bool isExclusivelyOwnedTable() const override { return false; }
   void rowOf(L3UnderlayEcmpMember1Table::Entry const& entry, std::span<std::uint32_t> words) const override {
      words[0] = entry.underlayEcmpNextHopIndex;
   }
};

TEST(SharedRowsTest, AHandleDoesNotCarryTheIndexOfSharedRowsAndDependantsFindItAllTheSame) {
   Asic::UtilFactory const factory(L3UnderlayEcmpMember1Table::typeName(), "shared",
                                   [](Nuv::Ptr<Asic::HwTable> const& table) {
                                      return Nuv::Ptr<Asic::SwTable::Util>(Nuv::make<SharedUtil>(table));
                                   });
   Nuv::ReactionLoop loop;
   Asic::MemoryHwTable::Rows rows;
   auto stateDatabase = Nuv::make<Kallo::EntityManager>();
   Asic::HwTable::Shape shape{"L3UnderlayEcmpMember1Table", "shared", 0, 8, 1};
   Nuv::Ptr<Asic::HwTable> const hardware = Nuv::make<Asic::MemoryHwTable>(shape, rows, loop);
   stateDatabase->entityIs(Asic::HwTable::path(0, shape.name), hardware);
   Asic::ChipInfo chip;
   chip.sharedAllocators = Nuv::make<Asic::SharedAllocators>();
   auto blocks = l3UnderlayEcmpMember1TableFactory();
   blocks->doInit(0, stateDatabase, chip);
   ASSERT_TRUE(blocks->util());
   L3UnderlayEcmpMember1Table::EntryBlock first;
   L3UnderlayEcmpMember1Table::EntryBlock second;
   first.entryIs(0, {});
   second.entryIs(1, {});
   auto firstHandle = blocks->entryBlockRef(first);
   auto secondHandle = blocks->entryBlockRef(second);
   loop.runUntilIdle();
   EXPECT_EQ(secondHandle->hwEntryIndex(), Asic::invalidIndex);
   EXPECT_TRUE(secondHandle->isHwIndexValid());
   EXPECT_EQ(secondHandle->hwIndexForDependentField(), 1u);
   EXPECT_EQ(blocks->hwIndexOnlyForCrossAgentCommunication(second), 1u);
   EXPECT_EQ(blocks->util()->getHwIndex(*blocks->entryHandle(second)), 1u);
   EXPECT_EQ(rows.size(), 3u);
   auto emptyHandle = blocks->entryBlockRef({});
   EXPECT_TRUE(emptyHandle->isHwIndexValid());
   EXPECT_EQ(emptyHandle->hwIndexForDependentField(), 0u) << "a run of no rows is at index 0";
}

} // namespace
} // namespace ZandorL3Tunnel
