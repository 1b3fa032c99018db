#include "agent/tests/FabricTest.h"

namespace L3TunnelAgent {

using testing::AnyOf;
using testing::ContainerEq;
using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(FabricTest, DestinationReachesExactlyItsVias) {
   std::vector<DerivedVia> const vias{unicastVia(1, 1), unicastVia(2, 2, 1, 100), unicastVia(3, 2)};
   program(fabric, 1, vias);
   EXPECT_THAT(reached(fabric, 1), ContainerEq(wanted(fabric, vias)));
   auto const& programmed = fabric.destinations().at(address(1));
   EXPECT_EQ(programmed.state(), DestinationState::success);
   EXPECT_FALSE(programmed.wanted);
   EXPECT_EQ(rowsIn(fabric, interfaceTable), 2U);
   fabric.clear();
   expectEmpty(fabric);
}

TEST_F(FabricTest, EqualSetsShareTheirBlockAndEachDestinationHasItsGroup) {
   program(fabric, 1, {unicastVia(1, 1), unicastVia(2, 2)});
   program(fabric, 2, {unicastVia(2, 2), unicastVia(1, 1)});
   EXPECT_EQ(rowsIn(fabric, memberTable), 2U);
   EXPECT_EQ(rowsIn(fabric, groupTable), 2U);
   EXPECT_EQ(fabric.destinations().at(address(1)).current->block,
             fabric.destinations().at(address(2)).current->block);
}

TEST_F(FabricTest, GroupMovesBeforeWhatItLeavesIsCleared) {
   program(fabric, 1, {unicastVia(1, 1)});
   RowLog log(fabric.chip());
   log.isKept(true);
   program(fabric, 1, {unicastVia(2, 2, 2)});
   auto const nextHopGoes = AnyOf("-IngL3NextHop2Table 1", "-EgrL3NextHop2 1");
   EXPECT_THAT(rowsOf(log),
               ElementsAre("+EgrL3Oif2 2", "+IngL3NextHop2Table 2", "+EgrL3NextHop2 2",
                           "+L3UnderlayEcmpMember1Table 1", "+L3EcmpGroup0Table 0",
                           "-L3UnderlayEcmpMember1Table 0", nextHopGoes, nextHopGoes, "-EgrL3Oif2 1"));
   EXPECT_EQ(log.needless(), 0U);
}

TEST_F(FabricTest, DestinationThatGoesTakesItsRowsAlongGroupFirst) {
   program(fabric, 1, {unicastVia(1, 1)});
   RowLog log(fabric.chip());
   log.isKept(true);
   fabric.destinationDel(address(1));
   fabric.settle();
   auto const nextHopGoes = AnyOf("-IngL3NextHop2Table 1", "-EgrL3NextHop2 1");
   EXPECT_THAT(rowsOf(log), ElementsAre("-L3EcmpGroup0Table 0", "-L3UnderlayEcmpMember1Table 0", nextHopGoes,
                                        nextHopGoes, "-EgrL3Oif2 1"));
   EXPECT_TRUE(fabric.destinations().empty());
   expectEmpty(fabric);
}

TEST_F(FabricTest, DestinationWithoutARouteIsKnownAndNotProgrammed) {
   program(fabric, 1, {unicastVia(1, 1)});
   fabric.destinationIs({.address = address(1), .vias = {}, .reason = "no route"});
   fabric.settle();
   auto const& programmed = fabric.destinations().at(address(1));
   EXPECT_EQ(programmed.state(), DestinationState::noRoute);
   EXPECT_EQ(programmed.reason, "no route");
   EXPECT_EQ(programmed.set(), nullptr);
   expectEmpty(fabric);
}

TEST_F(FabricTest, WordsAloneWriteNothing) {
   program(fabric, 1, {unicastVia(1, 1), otherVia(ViaKind::cpu)});
   RowLog const log(fabric.chip());
   auto other = otherVia(ViaKind::cpu);
   other.reason = "another reason";
   program(fabric, 1, {unicastVia(1, 1), other});
   EXPECT_EQ(log.count(), 0U);
   EXPECT_EQ(fabric.destinations().at(address(1)).set()->vias()[1].via.reason, "another reason");
}

TEST_F(FabricTest, WeightsAreKeptAndNotProgrammed) {
   program(fabric, 1, {unicastVia(1, 1), unicastVia(2, 2)});
   RowLog const log(fabric.chip());
   auto heavy = unicastVia(1, 1);
   heavy.weight = 3;
   program(fabric, 1, {heavy, unicastVia(2, 2)});
   EXPECT_EQ(log.count(), 0U);
   EXPECT_EQ(fabric.destinations().at(address(1)).set()->vias()[0].via.weight, 3U);
}

TEST_F(FabricTest, ChangeOfWeightsAloneMovesNothing) {
   program(fabric, 1, {unicastVia(1, 1), unicastVia(2, 2)});
   auto heavy = unicastVia(1, 1);
   heavy.weight = 3;
   fabric.destinationIs(destination(1, {heavy, unicastVia(2, 2)}));
   EXPECT_EQ(fabric.destinations().at(address(1)).state(), DestinationState::success);
   EXPECT_FALSE(fabric.destinations().at(address(1)).wanted);
   EXPECT_EQ(fabric.settle(), 0U);
}

TEST_F(FabricTest, DestinationsOfOneListShareWhatIsKnownOfItAlsoWhenItFails) {
   Fabric small({.sizes = {{memberTable, 3}}, .includeUnresolved = false, .dropToCpu = false});
   auto one = destination(1, {unicastVia(1, 1), unicastVia(2, 2)});
   auto tooLarge = destination(3, {unicastVia(3, 1), unicastVia(4, 2), unicastVia(5, 2)});
   for (auto* each : {&one, &tooLarge}) {
      small.destinationIs(*each);
      each->address = address(each == &one ? 2 : 4);
      small.destinationIs(*each);
      small.settle();
   }
   auto const& all = small.destinations();
   EXPECT_EQ(all.at(address(1)).current->programmed, all.at(address(2)).current->programmed);
   EXPECT_EQ(all.at(address(3)).state(), DestinationState::failed);
   EXPECT_EQ(all.at(address(3)).wanted->programmed, all.at(address(4)).wanted->programmed);
   EXPECT_FALSE(all.at(address(3)).wanted->vias()[0].interface);
   small.clear();
   expectEmpty(small);
}

TEST_F(FabricTest, ThereAndBackInOneRoundWritesNothing) {
   program(fabric, 1, {unicastVia(1, 1)});
   RowLog const log(fabric.chip());
   fabric.destinationIs(destination(1, {unicastVia(2, 1)}));
   fabric.destinationIs(destination(1, {unicastVia(1, 1)}));
   fabric.settle();
   EXPECT_EQ(log.count(*fabric.chip().table(groupTable)), 0U);
   EXPECT_EQ(reached(fabric, 1), wanted(fabric, {unicastVia(1, 1)}));
   EXPECT_EQ(rowsIn(fabric, memberTable), 1U);
   EXPECT_EQ(rowsIn(fabric, ingTable), 1U);
}

TEST_F(FabricTest, ViaToTheCpuIsLeftOutBesideOneThatForwards) {
   std::vector<DerivedVia> const vias{unicastVia(1, 1), otherVia(ViaKind::cpu)};
   program(fabric, 1, vias);
   EXPECT_EQ(rowsIn(fabric, memberTable), 1U);
   auto const& shown = fabric.destinations().at(address(1)).set()->vias();
   EXPECT_TRUE(shown[0].isProgrammed);
   EXPECT_FALSE(shown[1].isProgrammed);
}

TEST_F(FabricTest, ViaToTheCpuStaysWhenToldSo) {
   Fabric including({.sizes = {}, .includeUnresolved = true, .dropToCpu = false});
   std::vector<DerivedVia> const vias{unicastVia(1, 1), otherVia(ViaKind::cpu), otherVia(ViaKind::cpu)};
   program(including, 1, vias);
   EXPECT_EQ(rowsIn(including, memberTable), 2U) << "vias to the CPU are one member";
   EXPECT_EQ(reached(including, 1), wanted(including, vias));
}

TEST_F(FabricTest, AllToTheCpuIsOneMember) {
   std::vector<DerivedVia> const vias{otherVia(ViaKind::cpu), otherVia(ViaKind::cpu)};
   program(fabric, 1, vias);
   EXPECT_EQ(rowsIn(fabric, memberTable), 1U);
   EXPECT_EQ(reached(fabric, 1), wanted(fabric, vias));
}

TEST_F(FabricTest, WhatWouldGoToTheCpuIsDroppedWhenToldSo) {
   Fabric dropping({.sizes = {}, .includeUnresolved = false, .dropToCpu = true});
   program(dropping, 1, {otherVia(ViaKind::cpu)});
   EXPECT_EQ(reached(dropping, 1), ReachedSet{Reached()});
}

TEST_F(FabricTest, NeighbourBehindAnUnknownPortIsTheCpus) {
   auto via = unicastVia(1, 1);
   via.port.reset();
   program(fabric, 1, {via});
   EXPECT_EQ(reached(fabric, 1), wanted(fabric, {otherVia(ViaKind::cpu)}));
   EXPECT_EQ(rowsIn(fabric, interfaceTable), 0U);
}

TEST_F(FabricTest, DropIsDropped) {
   program(fabric, 1, {otherVia(ViaKind::drop)});
   EXPECT_EQ(reached(fabric, 1), ReachedSet{Reached()});
}

TEST_F(FabricTest, OneInterfaceEntryPerSourceTagAndVlanAtTheLowestFreeIndex) {
   program(fabric, 1, {unicastVia(1, 1), unicastVia(2, 2)});
   EXPECT_EQ(rowsIn(fabric, interfaceTable), 1U) << "two devices of one source MAC";
   program(fabric, 2, {unicastVia(1, 1, 1, 100)});
   program(fabric, 3, {unicastVia(1, 1, 1, 200)});
   program(fabric, 4, {unicastVia(1, 1, 2)});
   EXPECT_EQ(rowsIn(fabric, interfaceTable), 4U);
   fabric.destinationDel(address(2));
   fabric.settle();
   EXPECT_FALSE(fabric.interfaces().table().entryHas(2));
   program(fabric, 5, {unicastVia(1, 1, 3)});
   EXPECT_TRUE(fabric.interfaces().table().entryHas(2));
}

TEST_F(FabricTest, InterfaceIndexWaitsForTheChipBeforeItIsGivenToAnother) {
   auto faults = Nuv::make<ModelChip::Faults>();
   fabric.chip().faultsIs(faults);
   program(fabric, 1, {unicastVia(1, 1, 1)});
   faults->hold({.table = "EgrL3NextHop2", .index = {}, .isWrite = false});
   fabric.destinationDel(address(1));
   fabric.settle();
   program(fabric, 2, {unicastVia(1, 1, 2)});
   EXPECT_EQ(fabric.destinations().at(address(2)).set()->vias()[0].interface->index(), 2U)
         << "a next hop may still name interface 1";
   faults->releaseAll();
   fabric.settle();
   program(fabric, 3, {unicastVia(1, 1, 3)});
   EXPECT_EQ(fabric.destinations().at(address(3)).set()->vias()[0].interface->index(), 1U);
}

TEST_F(FabricTest, InterfaceThatIsNeededAgainWhileItGoesKeepsItsIndex) {
   auto faults = Nuv::make<ModelChip::Faults>();
   fabric.chip().faultsIs(faults);
   program(fabric, 1, {unicastVia(1, 1)});
   faults->hold({.table = "EgrL3NextHop2", .index = {}, .isWrite = false});
   fabric.destinationDel(address(1));
   fabric.settle();
   program(fabric, 2, {unicastVia(2, 1)});
   EXPECT_EQ(fabric.destinations().at(address(2)).set()->vias()[0].interface->index(), 1U);
   faults->stop();
   fabric.settle();
   EXPECT_EQ(reached(fabric, 2), wanted(fabric, {unicastVia(2, 1)}));
   fabric.clear();
   expectEmpty(fabric);
}

TEST_F(FabricTest, SetTooLargeForABlockIsRefusedWithItsReasonAndTheOldOneStays) {
   program(fabric, 1, {unicastVia(1, 1)});
   std::vector<DerivedVia> many;
   for (unsigned i = 0; i < 0x10001; ++i) {
      many.push_back(unicastVia(0, 1));
      many.back().mac = MacAddress{{2, 0, 0, std::uint8_t(i >> 16), std::uint8_t(i >> 8), std::uint8_t(i)}};
   }
   program(fabric, 1, many);
   auto const& destination = fabric.destinations().at(address(1));
   EXPECT_EQ(destination.state(), DestinationState::failed);
   EXPECT_EQ(destination.reason, "65537 vias are more than a block's 65535 members");
   EXPECT_EQ(reached(fabric, 1), wanted(fabric, {unicastVia(1, 1)}));
   EXPECT_EQ(rowsIn(fabric, ingTable), 1U);
}

TEST_F(FabricTest, RefusedRowsLeaveTheOldSetInForceAndAreAskedForAgain) {
   for (auto const* table : {ingTable, "EgrL3NextHop2", memberTable, groupTable, interfaceTable}) {
      Fabric refusing;
      program(refusing, 1, {unicastVia(1, 1)});
      program(refusing, 2, {unicastVia(9, 9)});
      auto faults = Nuv::make<ModelChip::Faults>();
      refusing.chip().faultsIs(faults);
      faults->refuse({.table = table, .index = {}, .isWrite = true}, 1);
      program(refusing, 1, {unicastVia(2, 2, 2)});
      auto const& destination = refusing.destinations().at(address(1));
      EXPECT_THAT(destination.reason, HasSubstr("the chip refused")) << table;
      EXPECT_NE(destination.state(), DestinationState::success) << table;
      EXPECT_EQ(reached(refusing, 1), wanted(refusing, {unicastVia(1, 1)})) << table;
      refusing.destinationDel(address(2));
      refusing.settle();
      EXPECT_EQ(destination.state(), DestinationState::success) << table;
      EXPECT_EQ(reached(refusing, 1), wanted(refusing, {unicastVia(2, 2, 2)})) << table;
      refusing.clear();
      expectEmpty(refusing);
   }
}

TEST_F(FabricTest, StateIsThatOfTheWantedSetUntilTheGroupHasMoved) {
   program(fabric, 1, {unicastVia(1, 1)});
   auto faults = Nuv::make<ModelChip::Faults>();
   fabric.chip().faultsIs(faults);
   faults->hold({.table = groupTable, .index = {}, .isWrite = {}});
   program(fabric, 1, {unicastVia(2, 2)});
   auto const& destination = fabric.destinations().at(address(1));
   EXPECT_EQ(destination.state(), DestinationState::inProgress);
   EXPECT_TRUE(destination.wanted);
   EXPECT_EQ(rowsIn(fabric, memberTable), 2U) << "what it leaves is kept until the chip has answered";
   faults->stop();
   fabric.settle();
   EXPECT_EQ(destination.state(), DestinationState::success);
   EXPECT_EQ(rowsIn(fabric, memberTable), 1U);
}

TEST_F(FabricTest, SizesThatTheChipCannotHaveAreRefused) {
   EXPECT_THROW(Fabric({.sizes = {{"NoSuchTable", 1}}, .includeUnresolved = false, .dropToCpu = false}),
                Nuv::RangeException);
}

TEST(PortsTest, DevicesKeepTheirNumbersUntilTheyAreForgotten) {
   Ports ports;
   EXPECT_EQ(ports.numberIs(70), 1U);
   EXPECT_EQ(ports.numberIs(80), 2U);
   EXPECT_EQ(ports.numberIs(70), 1U);
   EXPECT_EQ(ports.number(90), std::nullopt);
   EXPECT_EQ(ports.device(2), 80);
   EXPECT_EQ(ports.device(0), 0);
   EXPECT_EQ(ports.device(3), 0);
   ports.keepOnly({2});
   EXPECT_EQ(ports.number(70), std::nullopt);
   EXPECT_EQ(ports.device(1), 0);
   EXPECT_EQ(ports.numberIs(90), 1U);
   EXPECT_EQ(ports.number(80), 2U);
}

TEST(PortsTest, AllNumbersButTheInvalidOneAreGiven) {
   Ports ports;
   for (int device = 1; device <= 0xfffe; ++device) {
      ASSERT_EQ(ports.numberIs(device), device);
   }
   EXPECT_TRUE(ports.full());
   EXPECT_EQ(ports.numberIs(0x10000), std::nullopt);
   EXPECT_EQ(ports.numberIs(5), 5U);
}

TEST_F(FabricTest, PortNumbersComeBackWhenTheyRunOut) {
   constexpr int perSet = 64;
   for (int device = 1; device <= int(Ports::most); device += perSet) {
      std::vector<DerivedVia> vias;
      for (int i = device; i < device + perSet && i <= int(Ports::most); ++i) {
         vias.push_back(unicastVia(1, i));
      }
      fabric.destinationIs(destination(std::uint32_t(device), std::move(vias)));
   }
   fabric.settle();
   EXPECT_TRUE(fabric.ports().full());
   program(fabric, 2, {unicastVia(7, 0x20000)});
   EXPECT_EQ(fabric.destinations().at(address(2)).set()->vias()[0].shortOf, "no port number is free");
   program(fabric, 1, {unicastVia(1, 1)});
   EXPECT_EQ(fabric.destinations().at(address(2)).set()->vias()[0].shortOf, "");
   EXPECT_EQ(reached(fabric, 2), wanted(fabric, {unicastVia(7, 0x20000)}));
}

} // namespace L3TunnelAgent
