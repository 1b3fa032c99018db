#pragma once

#include "chip/model/Faults.h"
#include "chip/model/testing/ChipTest.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3NextHop2Table.h"

namespace ZandorL3Tunnel {

/// Base of tests of merged next hops over interfaces, on a small chip with faults.
class NextHopTest : public ModelChip::ChipTest {
 protected:
   static constexpr Asic::Index rows = 8;

   explicit NextHopTest(Asic::Index nextHopRows = rows, Asic::Index interfaceRows = rows)
       : ChipTest({{"IngL3NextHop2Table", nextHopRows},
                   {"EgrL3NextHop2", nextHopRows},
                   {"EgrL3Oif2", interfaceRows},
                   {"L3EcmpMember0Table", 1},
                   {"L3UnderlayEcmpMember1Table", 1},
                   {"L3EcmpGroup0Table", 1}}) {
      chip->faultsIs(faults);
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      nextHops->doInit(unit, stateDatabase, chip->chipInfo());
   }

   static L3UnderlayNextHopKey keyOf(std::uint16_t port) {
      L3UnderlayNextHopKey key;
      key.l2If = {port};
      return key;
   }

   static IngL3NextHop2Table::Entry ing(std::uint16_t value) {
      IngL3NextHop2Table::Entry entry;
      entry.destinationId = value;
      return entry;
   }

   EgrL3NextHop2::Entry egr(std::uint8_t value, Asic::Index over = 1) const {
      EgrL3NextHop2::Entry entry;
      entry.l3Oif2Handle = interfaces->entryWeakRef(over);
      entry.dstMacAddress = {{2, 0, 0, 0, 0, value}};
      return entry;
   }

   Handle interface(Asic::Index index, std::uint16_t vlan = 1) {
      EgrL3Oif2::Entry entry;
      entry.tnlVlanTag = vlan;
      return interfaces->entryCommit(index, entry);
   }

   Handle write(std::uint16_t port, std::uint8_t value, Asic::Index over) {
      return nextHops->entryRef(keyOf(port), ing(value), egr(value, over));
   }

   /// The rows that the chip has applied since it was asked last, now that it has nothing to do.
   std::vector<Pelm::String> rowsSince() {
      loop.runUntilIdle();
      return std::exchange(rowsApplied, {});
   }

   /// Without faults, commits and answers that are due nothing is left.
   void expectNothingLeft() {
      faults->stop();
      nextHops->entryRemoveAll();
      interfaces->entryRemoveAll();
      loop.runUntilIdle();
      EXPECT_EQ(nextHops->handles().size(), 0u);
      EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
      EXPECT_EQ(nextHops->egrL3NextHop2()->handles().size(), 0u);
      EXPECT_EQ(nextHops->ingL3NextHop2Table()->handles().size(), 0u);
      EXPECT_EQ(interfaces->handles().size(), 0u);
      EXPECT_EQ(rowsPresent(), 0u);
   }

   Nuv::Ptr<ModelChip::Faults> faults = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> nextHops = l3NextHop2TableFactory();
};

} // namespace ZandorL3Tunnel
