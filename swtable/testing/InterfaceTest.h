#pragma once

#include "chip/model/testing/ChipTest.h"
#include "tables/EgrL3Oif2.h"

namespace ZandorL3Tunnel {

/// An interface that others differ from in their address.
inline EgrL3Oif2::Entry
interfaceOf(std::uint8_t mac) {
   EgrL3Oif2::Entry entry;
   entry.srcMacAddress = {{2, 0, 0, 0, 0, mac}};
   return entry;
}

/// Base of tests that tell what keyed tables do by one of interfaces.
class InterfaceTest : public ModelChip::ChipTest {
 protected:
   explicit InterfaceTest(ModelChip::Chip::Sizes const& sizes = {}) : ChipTest(sizes) {
      table->doInit(unit, stateDatabase, chip->chipInfo());
   }

   std::uint8_t macInRow(Asic::Index index) const {
      return std::uint8_t(ModelChip::EgrL3Oif2::srcMac.unpack(chip->table("EgrL3Oif2")->row(index)));
   }

   void expectNothingLeft() {
      loop.runUntilIdle();
      EXPECT_EQ(table->handles().size(), 0u);
      EXPECT_EQ(rowsPresent(), 0u);
   }

   Nuv::Ptr<EgrL3Oif2> table = egrL3Oif2Factory("EgrL3Oif2");
};

} // namespace ZandorL3Tunnel
