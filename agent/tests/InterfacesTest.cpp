#include "agent/tests/FabricDriver.h"

namespace L3TunnelAgent {
namespace {

/// A via with a neighbour, a port and a source of its own.
DerivedVia
viaOfItsOwn(int number) {
   auto const low = static_cast<std::uint8_t>(number);
   auto const high = static_cast<std::uint8_t>(number >> 8);
   auto via = unicastVia(0, number + 1);
   via.mac = MacAddress{{2, 0, 0, 0, high, low}};
   via.sourceMac = MacAddress{{2, 1, 0, 0, high, low}};
   return via;
}

TEST(InterfacesTest, NoMoreAreGivenThanANextHopCanName) {
   constexpr int named = ZandorL3Tunnel::U13::max; // from 1
   constexpr int all = named + 20;
   Fabric fabric({.sizes = {{"EgrL3Oif2", 0x4000}}, .includeUnresolved = false, .dropToCpu = false});
   for (int number = 0; number < all; ++number) {
      fabric.destinationIs(destination(std::uint32_t(number), {viaOfItsOwn(number)}));
   }
   fabric.settle();
   int shortOfInterfaces = 0;
   for (auto const& [each, programmed] : fabric.destinations()) {
      ASSERT_EQ(programmed.state(), DestinationState::success) << each.text() << ": " << programmed.reason;
      shortOfInterfaces += programmed.set()->vias()[0].shortOf == "no interface index is free" ? 1 : 0;
   }
   EXPECT_EQ(shortOfInterfaces, all - named);
   EXPECT_EQ(rowsIn(fabric, "EgrL3Oif2"), Asic::Index(named));
   EXPECT_EQ(reached(fabric, named - 1), wanted(fabric, {viaOfItsOwn(named - 1)}));
   EXPECT_EQ(reached(fabric, named), wanted(fabric, {otherVia(ViaKind::cpu)}));
   fabric.destinationDel(address(0));
   fabric.settle();
   EXPECT_EQ(reached(fabric, named), wanted(fabric, {viaOfItsOwn(named)})) << "the next one that waits";
}

} // namespace
} // namespace L3TunnelAgent
