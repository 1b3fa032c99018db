#pragma once

#include "chip/model/testing/ChipTest.h"
#include "programmer/L3UnderlayEcmpProgrammer.h"
#include "tables/L3EcmpGroup0Table.h"

namespace ZandorL3Tunnel {

/// A via out of `port` over `interface`, to the neighbour of that number.
inline L3ViaEntry
unicastVia(std::uint8_t neighbour, std::uint16_t interface, std::uint16_t port) {
   L3ViaEntry via;
   via.nhEntryType = Brix::NextHopEntryType::unicast;
   via.macAddr = {{2, 0, 0, 0, 0, neighbour}};
   via.l3Id = {interface};
   via.l2If = {port};
   return via;
}

inline L3ViaEntry
viaOfKind(Brix::NextHopEntryType type) {
   L3ViaEntry via;
   via.nhEntryType = type;
   return via;
}

/// A programmer on a chip, with the tables that an agent keeps beside it.
class ProgrammerTest : public ModelChip::ChipTest {
 protected:
   /// A chip that is small, since every row is followed after each one; `{}` for one of the usual size.
   explicit ProgrammerTest(ModelChip::Chip::Sizes const& sizes = smallSizes()) : ChipTest(sizes) {
      fcsd->logicalModInfoIs({0});
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      groups->doInit(unit, stateDatabase, chip->chipInfo());
      // Where others publish it, whatever the programmer calls the place.
      local->entityIs("l3/swTable/shared/interface/underlayEgrIntf", EgrL3Oif2::typeName(), interfaces);
      programmer->initTables(chip->chipInfo());
   }

   static ModelChip::Chip::Sizes smallSizes() {
      return {{"EgrL3Oif2", 16},         {"IngL3NextHop2Table", 256},         {"EgrL3NextHop2", 256},
              {"L3EcmpMember0Table", 1}, {"L3UnderlayEcmpMember1Table", 512}, {"L3EcmpGroup0Table", 16}};
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

   static ZandorL3Common::L3AdjIdKey adjacency(std::uint32_t id) {
      ZandorL3Common::L3AdjIdKey key;
      key.id = id;
      return key;
   }

   Handle groupIs(std::uint32_t id, Handle const& block, std::uint16_t paths) {
      L3EcmpGroup0Table::Entry entry;
      entry.ecmpBlockPtrHandle = block;
      entry.numPaths = paths;
      return groups->entryCommit(adjacency(id), entry);
   }

   /// What the chip's own rows say of the group's paths.
   std::vector<ModelChip::HopRows> hopsOf(Handle const& group) const {
      auto rows = ModelChip::followGroup(*chip, group->hwEntryIndex());
      EXPECT_EQ(rows.problem, "");
      return rows.hops;
   }

   std::vector<Pelm::String> rowsSince() {
      loop.runUntilIdle();
      return std::exchange(rowsApplied, {});
   }

   void groupDel(std::uint32_t id) { groups->entryRemove(adjacency(id)); }

   Nuv::Ptr<Local::EntityManager> local = Nuv::make<Local::EntityManager>();
   Nuv::Ptr<ZandorCentral::FeatureAgentCommonSmData> fcsd =
         Nuv::make<ZandorCentral::FeatureAgentCommonSmData>(unit);
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3EcmpGroup0Table> groups = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
   Nuv::Ptr<L3UnderlayEcmpProgrammer> programmer =
         l3UnderlayEcmpProgrammerFactory(fcsd, stateDatabase, local);
};

} // namespace ZandorL3Tunnel
