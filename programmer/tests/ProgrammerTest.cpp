#include "chip/model/Forwarding.h"
#include "programmer/L3UnderlayEcmpProgrammer.h"
#include "tables/L3EcmpGroup0Table.h"

#include <gmock/gmock.h>

namespace ZandorL3Tunnel {
namespace {

using testing::IsEmpty;
using testing::SizeIs;
using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;

L3ViaEntry
unicastVia(std::uint8_t neighbour, std::uint16_t interface, std::uint16_t port) {
   L3ViaEntry via;
   via.nhEntryType = Brix::NextHopEntryType::unicast;
   via.macAddr = {{2, 0, 0, 0, 0, neighbour}};
   via.l3Id = {interface};
   via.l2If = {port};
   return via;
}

L3ViaEntry
viaOfKind(Brix::NextHopEntryType type) {
   L3ViaEntry via;
   via.nhEntryType = type;
   return via;
}

class ProgrammerTest : public testing::Test {
 protected:
   ProgrammerTest() {
      chip->publish(*kallo, unit);
      chip->rowObserverIs([this](ModelChip::Table const& table, Asic::Index index) {
         rowsApplied.push_back(Nuv::text(table.shape().name, table.hasRow(index) ? " + " : " - ", index));
         EXPECT_THAT(ModelChip::danglingRows(*chip), IsEmpty()) << rowsApplied.back();
      });
      fcsd->logicalModInfoIs({0});
      interfaces->doInit(unit, kallo, chip->chipInfo());
      groups->doInit(unit, kallo, chip->chipInfo());
      local->entityIs(L3UnderlayEcmpProgrammer::egrL3Oif2Path, EgrL3Oif2::typeName(), interfaces);
      programmer->initTables(chip->chipInfo());
   }

   void interfaceIs(Asic::Index index, std::uint8_t mac) {
      EgrL3Oif2::Entry entry;
      entry.srcMacAddress = {{2, 1, 0, 0, 0, mac}};
      interfaces->entryCommit(index, entry);
   }

   Handle blockOf(std::initializer_list<L3ViaEntry> vias, bool isCpuDrop = false) {
      auto set = l3ViaFactory();
      for (auto const& via : vias) {
         set->viaIs(via, 1);
      }
      return programmer->getEcmpBlockHandle(set, isCpuDrop);
   }

   Handle groupIs(std::uint32_t id, Handle const& block, std::uint16_t paths) {
      L3EcmpGroup0Table::Entry entry;
      entry.ecmpBlockPtrHandle = block;
      entry.numPaths = paths;
      ZandorL3Common::L3AdjIdKey key;
      key.id = id;
      return groups->entryCommit(key, entry);
   }

   void groupDel(std::uint32_t id) {
      ZandorL3Common::L3AdjIdKey key;
      key.id = id;
      groups->entryRemove(key);
   }

   Asic::Index rowsPresent() const {
      Asic::Index rows = 0;
      for (auto const& table : chip->tables()) {
         rows += table->rowsPresent();
      }
      return rows;
   }

   static constexpr Asic::UnitId unit = 0;
   Nuv::ReactionLoop loop;
   Nuv::Ptr<ModelChip::Chip> chip = Nuv::make<ModelChip::Chip>(loop);
   Nuv::Ptr<Kallo::EntityManager> kallo = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<Local::EntityManager> local = Nuv::make<Local::EntityManager>();
   Nuv::Ptr<ZandorCentral::FeatureAgentCommonSmData> fcsd =
         Nuv::make<ZandorCentral::FeatureAgentCommonSmData>(unit);
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3EcmpGroup0Table> groups = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
   Nuv::Ptr<L3UnderlayEcmpProgrammer> programmer = l3UnderlayEcmpProgrammerFactory(fcsd, kallo, local);
   std::vector<Pelm::String> rowsApplied;
};

TEST_F(ProgrammerTest, ReachesEveryViaFromTheGroup) {
   interfaceIs(1, 0x11);
   interfaceIs(2, 0x22);
   auto block = blockOf({unicastVia(1, 1, 101), unicastVia(2, 2, 102)});
   auto group = groupIs(7, block, 2);
   EXPECT_EQ(block->entryState(), Asic::SwTableBase::unresolved());
   EXPECT_EQ(group->entryState(), Asic::SwTableBase::unresolved());
   loop.runUntilIdle();
   EXPECT_EQ(block->entryState(), Asic::SwTableBase::success());
   EXPECT_EQ(group->entryState(), Asic::SwTableBase::success());

   auto rows = ModelChip::followGroup(*chip, group->hwEntryIndex());
   EXPECT_EQ(rows.problem, "");
   ASSERT_THAT(rows.hops, SizeIs(2));
   std::set<std::pair<unsigned, unsigned>> reached;
   for (auto const& hop : rows.hops) {
      ASSERT_TRUE(hop.interface);
      EXPECT_EQ(hop.destinationType, 4);
      EXPECT_EQ(hop.destinationId, 100 + hop.dstMac.bytes[5]);
      reached.insert({hop.dstMac.bytes[5], hop.interface->srcMac.bytes[5]});
   }
   EXPECT_EQ(reached, (std::set<std::pair<unsigned, unsigned>>{{1, 0x11}, {2, 0x22}}));
}

TEST_F(ProgrammerTest, LeavesNothingWhenNobodyHoldsAnything) {
   interfaceIs(1, 0x11);
   auto block = blockOf({unicastVia(1, 1, 101), viaOfKind(Brix::NextHopEntryType::drop)});
   auto group = groupIs(7, block, 2);
   loop.runUntilIdle();
   EXPECT_GT(rowsPresent(), 0u);

   group = nullptr;
   block = nullptr;
   groupDel(7);
   interfaces->entryRemoveAll();
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
   EXPECT_EQ(interfaces->handles().size(), 0u);
   EXPECT_EQ(groups->handles().size(), 0u);
   EXPECT_EQ(groups->indexAllocator()->used(), 0u);
   EXPECT_EQ(programmer->l3EcmpMemberTable()->handles().size(), 0u);
   EXPECT_EQ(programmer->l3EcmpMemberTable()->indexAllocator()->used(), 0u);
   EXPECT_EQ(programmer->l3EcmpNextHopTable()->handles().size(), 0u);
   EXPECT_EQ(programmer->l3EcmpNextHopTable()->indexAllocator()->used(), 1u);
}

} // namespace
} // namespace ZandorL3Tunnel
