#include "agent/RowLog.h"
#include "agent/tests/FabricDriver.h"

namespace L3TunnelAgent {
namespace {

using testing::AnyOf;
using testing::ContainerEq;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char const* ingTable = "IngL3NextHop2Table";
constexpr char const* memberTable = "L3UnderlayEcmpMember1Table";
constexpr char const* groupTable = "L3EcmpGroup0Table";
constexpr char const* interfaceTable = "EgrL3Oif2";

class FabricTest : public testing::Test {
 protected:
   static void program(Fabric& into, std::uint32_t number, std::vector<DerivedVia> vias) {
      into.destinationIs(destination(number, std::move(vias)));
      into.settle();
   }

   /// The rows written since the log was kept, "+" for a write and "-" for a clearing.
   static std::vector<std::string> rowsOf(RowLog const& log) {
      std::vector<std::string> rows;
      for (auto const& write : log.writes()) {
         rows.push_back((write.after.empty() ? "-" : "+") + std::string(write.table->layout().table) + " " +
                        std::to_string(write.index));
      }
      return rows;
   }

   Fabric fabric;
};

} // namespace

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

TEST_F(FabricTest, SetWithoutRoomFailsWithItsReasonAndComesWhenThereIsRoom) {
   Fabric small({.sizes = {{memberTable, 4}}, .includeUnresolved = false, .dropToCpu = false});
   program(small, 1, {unicastVia(1, 1), unicastVia(2, 2), unicastVia(3, 3)});
   std::vector<DerivedVia> const vias{unicastVia(4, 1), unicastVia(5, 2)};
   program(small, 2, vias);
   auto const& failed = small.destinations().at(address(2));
   EXPECT_EQ(failed.state(), DestinationState::failed);
   EXPECT_EQ(failed.reason, "no run of 2 member rows is free");
   EXPECT_FALSE(failed.group);
   EXPECT_EQ(rowsIn(small, ingTable), 3U) << "it keeps no room from others";
   small.destinationDel(address(1));
   small.settle();
   EXPECT_EQ(failed.state(), DestinationState::success);
   EXPECT_EQ(failed.reason, "");
   EXPECT_EQ(reached(small, 2), wanted(small, vias));
   small.clear();
   expectEmpty(small);
}

TEST_F(FabricTest, WhatAFailedSetGivesBackIsOfferedToThoseThatFailedBeforeIt) {
   Fabric small({.sizes = {{memberTable, 6}, {ingTable, 10}, {"EgrL3NextHop2", 10}},
                 .includeUnresolved = false,
                 .dropToCpu = false});
   std::vector<DerivedVia> tooMany;
   for (std::uint8_t neighbour = 10; neighbour < 18; ++neighbour) {
      tooMany.push_back(unicastVia(neighbour, 1));
   }
   std::vector<DerivedVia> const two{unicastVia(1, 1), unicastVia(2, 2)};
   small.destinationIs(destination(1, tooMany));
   small.destinationIs(destination(2, two));
   small.settle();
   EXPECT_EQ(small.destinations().at(address(1)).reason, "no run of 8 member rows is free");
   EXPECT_EQ(reached(small, 2), wanted(small, two));
}

TEST_F(FabricTest, RoomThatTheChipGivesBackLateIsOfferedThen) {
   Fabric small({.sizes = {{memberTable, 4}}, .includeUnresolved = false, .dropToCpu = false});
   auto const faults = Nuv::make<ModelChip::Faults>();
   small.chip().faultsIs(faults);
   std::vector<DerivedVia> const two{unicastVia(4, 1), unicastVia(5, 2)};
   program(small, 1, {unicastVia(1, 1), unicastVia(2, 2), unicastVia(3, 3)});
   program(small, 2, two);
   faults->hold({.table = groupTable, .index = {}, .isWrite = false}, 1);
   small.destinationDel(address(1));
   small.settle();
   EXPECT_EQ(small.destinations().at(address(2)).reason, "no run of 2 member rows is free");
   faults->releaseAll();
   small.settle();
   EXPECT_EQ(reached(small, 2), wanted(small, two));
}

TEST_F(FabricTest, WhatASetThatIsStillShortLeavesIsOfferedToThoseThatFailed) {
   Fabric small(
         {.sizes = {{memberTable, 4}, {interfaceTable, 3}}, .includeUnresolved = false, .dropToCpu = false});
   std::vector<DerivedVia> const two{unicastVia(6, 2, 2), unicastVia(7, 2, 2)};
   program(small, 9, {unicastVia(1, 1, 1)});
   program(small, 8, {unicastVia(2, 2, 2)});
   program(small, 5, {unicastVia(3, 3, 3), unicastVia(4, 3, 4)});
   program(small, 1, two);
   EXPECT_EQ(reached(small, 5), wanted(small, {otherVia(ViaKind::cpu)}));
   EXPECT_EQ(small.destinations().at(address(1)).reason, "no run of 2 member rows is free");
   small.destinationDel(address(9));
   small.settle();
   EXPECT_EQ(small.destinations().at(address(5)).set()->vias()[1].shortOf, "no interface index is free");
   EXPECT_EQ(reached(small, 5), wanted(small, {unicastVia(3, 3, 3)}));
   EXPECT_EQ(reached(small, 1), wanted(small, two));
}

TEST_F(FabricTest, ManyEqualSetsThatFailAreTriedOnceForEachRelease) {
   Fabric small({.sizes = {{memberTable, 3}}, .includeUnresolved = false, .dropToCpu = false});
   program(small, 1, {unicastVia(1, 1)});
   for (std::uint32_t number = 2; number < 1000; ++number) {
      small.destinationIs(
            destination(number, {unicastVia(2, 1), unicastVia(3, 1), unicastVia(4, 1), unicastVia(5, 1)}));
   }
   small.settle();
   RowLog const log(small.chip());
   program(small, 1, {unicastVia(6, 1)});
   EXPECT_LT(log.count(), 40U);
   EXPECT_EQ(small.destinations().at(address(500)).state(), DestinationState::failed);
}

TEST_F(FabricTest, SetsThatDifferInWordsAloneAreTriedOnceForEachRelease) {
   Fabric small({.sizes = {{memberTable, 0}}, .includeUnresolved = false, .dropToCpu = false});
   for (std::uint32_t number = 1; number < 1000; ++number) {
      auto via = otherVia(ViaKind::cpu);
      via.gateway = address(number);
      small.destinationIs(destination(number, {via}));
   }
   small.settle();
   RowLog const log(small.chip());
   program(small, 1, {unicastVia(6, 1)});
   EXPECT_LT(log.count(), 40U);
}

TEST_F(FabricTest, SetsThatARoundLeavesNoRoomForAreNotTried) {
   constexpr std::uint32_t last = 500;
   Fabric small({.sizes = {{memberTable, 3}}, .includeUnresolved = false, .dropToCpu = false});
   program(small, 1, {unicastVia(1, 1)});
   std::vector<std::vector<DerivedVia>> sets(2);
   for (std::uint32_t number = 2; number < last; ++number) {
      auto other = unicastVia(3, 1);
      other.mac = MacAddress{{2, 0, 0, 1, std::uint8_t(number >> 8), std::uint8_t(number)}};
      sets.push_back({unicastVia(2, 1), unicastVia(3, 1), other});
      small.destinationIs(destination(number, sets.back()));
   }
   small.settle();
   RowLog const log(small.chip());
   constexpr std::uint8_t rounds = 50;
   for (std::uint8_t round = 0; round < rounds; ++round) {
      program(small, 1, {unicastVia(10 + round, 1)});
   }
   EXPECT_LE(log.count(), rounds * 7U) << "what the moves of one destination write";
   EXPECT_EQ(small.destinations().at(address(2)).reason, "no run of 3 member rows is free");
   small.destinationDel(address(1));
   small.settle();
   EXPECT_EQ(reached(small, 2), wanted(small, sets[2]));
   small.clear();
   expectEmpty(small);
}

TEST_F(FabricTest, SetsWithoutARunShareTheOneThatComesFree) {
   Fabric small({.sizes = {{memberTable, 4}}, .includeUnresolved = false, .dropToCpu = false});
   std::vector<DerivedVia> const three{unicastVia(3, 1), unicastVia(4, 1), unicastVia(5, 1)};
   program(small, 1, {unicastVia(1, 1), unicastVia(2, 2)});
   program(small, 2, three);
   program(small, 3, three);
   small.destinationDel(address(1));
   small.settle();
   EXPECT_EQ(reached(small, 2), wanted(small, three));
   EXPECT_EQ(reached(small, 3), wanted(small, three));
}

TEST_F(FabricTest, SetWhoseBlockIsThereNeedsNoRunButAGroup) {
   Fabric small(
         {.sizes = {{memberTable, 3}, {groupTable, 2}}, .includeUnresolved = false, .dropToCpu = false});
   std::vector<DerivedVia> const two{unicastVia(1, 1), unicastVia(2, 1)};
   program(small, 1, two);
   program(small, 2, {otherVia(ViaKind::cpu)});
   program(small, 3, two);
   EXPECT_EQ(small.destinations().at(address(3)).reason, "no group index is free");
   small.destinationDel(address(2));
   small.settle();
   EXPECT_EQ(reached(small, 3), wanted(small, two));
}

TEST_F(FabricTest, SetLacksOnlyTheNextHopsThatNobodyBrought) {
   Fabric small({.sizes = {{ingTable, 4}}, .includeUnresolved = false, .dropToCpu = false});
   std::vector<DerivedVia> const two{unicastVia(2, 1), unicastVia(3, 1)};
   program(small, 1, {unicastVia(1, 1), unicastVia(4, 1)});
   program(small, 2, two);
   EXPECT_THAT(small.destinations().at(address(2)).reason, HasSubstr("no next-hop index is free"));
   program(small, 3, {unicastVia(2, 1)});
   EXPECT_NE(small.destinations().at(address(2)).state(), DestinationState::success);
   RowLog const log(small.chip());
   program(small, 4, {unicastVia(2, 1)});
   EXPECT_EQ(log.count(), 1U) << "its group's: the one that waits lacks an index as before";
   program(small, 1, {unicastVia(1, 1)});
   EXPECT_EQ(reached(small, 2), wanted(small, two)) << "one index is free, and another has brought the other";
}

TEST_F(FabricTest, ReasonIsWhatIsLackingNow) {
   Fabric small({.sizes = {{memberTable, 4}, {ingTable, 4}}, .includeUnresolved = false, .dropToCpu = false});
   std::vector<DerivedVia> const three{unicastVia(1, 1), unicastVia(2, 1), unicastVia(3, 1)};
   program(small, 1, {unicastVia(1, 1), unicastVia(2, 1)});
   program(small, 2, three);
   EXPECT_EQ(small.destinations().at(address(2)).reason, "no run of 3 member rows is free");
   program(small, 3, {unicastVia(7, 1)});
   small.destinationDel(address(1));
   small.settle();
   small.takeTouched();
   program(small, 3, {unicastVia(8, 1)}); // to the first row, so that the other three are free
   EXPECT_EQ(small.destinations().at(address(2)).reason, "too few next-hop indices are free");
   EXPECT_THAT(small.takeTouched(), ElementsAre(address(2), address(3)));
   small.destinationDel(address(3));
   small.settle();
   EXPECT_EQ(reached(small, 2), wanted(small, three));
}

TEST_F(FabricTest, ChangeWithoutRoomLeavesTheOldSetInForce) {
   Fabric small({.sizes = {{memberTable, 3}}, .includeUnresolved = false, .dropToCpu = false});
   program(small, 1, {unicastVia(1, 1), unicastVia(2, 2)});
   program(small, 1, {unicastVia(1, 1), unicastVia(3, 3)});
   auto const& destination = small.destinations().at(address(1));
   EXPECT_EQ(destination.state(), DestinationState::failed);
   EXPECT_EQ(reached(small, 1), wanted(small, {unicastVia(1, 1), unicastVia(2, 2)}));
   EXPECT_EQ(destination.set()->vias()[1].via.mac, unicastVia(3, 3).mac) << "what is wanted is shown";
   program(small, 1, {unicastVia(1, 1), unicastVia(2, 2)});
   EXPECT_EQ(destination.state(), DestinationState::success);
}

TEST_F(FabricTest, EveryTableMayBeFull) {
   std::vector<DerivedVia> const vias{unicastVia(2, 2, 2)};
   std::pair<char const*, char const*> const cases[] = {
         {groupTable, "no group index is free"},
         {ingTable, "next hop to 02:00:00:00:00:02: no next-hop index"}};
   for (auto const& [table, reason] : cases) {
      Asic::Index const size = std::string_view(table) == ingTable ? 2 : 1; // next hop 0 is reserved
      Fabric small({.sizes = {{table, size}}, .includeUnresolved = false, .dropToCpu = false});
      program(small, 1, {unicastVia(1, 1)});
      program(small, 2, vias);
      auto const& failed = small.destinations().at(address(2));
      EXPECT_THAT(failed.reason, HasSubstr(reason)) << table;
      EXPECT_NE(failed.state(), DestinationState::success) << table;
      EXPECT_EQ(reached(small, 1), wanted(small, {unicastVia(1, 1)})) << table;
      small.destinationDel(address(1));
      small.settle();
      EXPECT_EQ(reached(small, 2), wanted(small, vias)) << table;
      small.clear();
      expectEmpty(small);
   }
}

TEST_F(FabricTest, FarMoreDestinationsThanGroupsAreServedInTurnAsGroupsComeFree) {
   constexpr std::uint32_t all = 3000;
   constexpr std::uint32_t groups = 100;
   Fabric small({.sizes = {{groupTable, groups}}, .includeUnresolved = false, .dropToCpu = false});
   auto const served = [&] {
      std::uint32_t count = 0;
      for (auto const& [each, destination] : small.destinations()) {
         count += destination.state() == DestinationState::success ? 1 : 0;
      }
      return count;
   };
   for (std::uint32_t number = 0; number < all; ++number) {
      small.destinationIs(destination(number, {unicastVia(1, 1)}));
   }
   small.settle();
   EXPECT_EQ(served(), groups);
   RowLog log(small.chip());
   log.isKept(true);
   for (std::uint32_t gone = 0; gone < 5; ++gone) {
      small.destinationDel(address(gone));
      small.settle();
      ASSERT_EQ(served(), groups);
   }
   EXPECT_EQ(log.count(), 10U) << "a group's row goes and another's comes: "
                               << testing::PrintToString(rowsOf(log));
   small.clear();
   expectEmpty(small);
}

TEST_F(FabricTest, WithoutAnInterfaceIndexTheCpuServesTheViaUntilThereIsOne) {
   Fabric small({.sizes = {{interfaceTable, 2}}, .includeUnresolved = false, .dropToCpu = false});
   program(small, 1, {unicastVia(1, 1, 1)});
   program(small, 2, {unicastVia(2, 2, 2)});
   auto const& shortOfRoom = small.destinations().at(address(2));
   EXPECT_EQ(shortOfRoom.set()->vias()[0].shortOf, "no interface index is free");
   EXPECT_EQ(reached(small, 2), wanted(small, {otherVia(ViaKind::cpu)}));
   small.destinationDel(address(1));
   small.settle();
   EXPECT_EQ(reached(small, 2), wanted(small, {unicastVia(2, 2, 2)}));
   EXPECT_EQ(shortOfRoom.set()->vias()[0].shortOf, "");
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
