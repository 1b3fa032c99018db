#include "agent/tests/FabricTest.h"

namespace L3TunnelAgent {

using testing::ElementsAre;
using testing::HasSubstr;

// Sets for which a table has no room: why they fail, and that they come as soon as there is some.

class FabricRoomTest : public FabricTest {};

TEST_F(FabricRoomTest, SetWithoutRoomFailsWithItsReasonAndComesWhenThereIsRoom) {
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

TEST_F(FabricRoomTest, WhatAFailedSetGivesBackIsOfferedToThoseThatFailedBeforeIt) {
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

TEST_F(FabricRoomTest, RoomThatTheChipGivesBackLateIsOfferedThen) {
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

TEST_F(FabricRoomTest, WhatASetThatIsStillShortLeavesIsOfferedToThoseThatFailed) {
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

TEST_F(FabricRoomTest, ManyEqualSetsThatFailAreTriedOnceForEachRelease) {
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

TEST_F(FabricRoomTest, SetsThatDifferInWordsAloneAreTriedOnceForEachRelease) {
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

TEST_F(FabricRoomTest, SetsThatARoundLeavesNoRoomForAreNotTried) {
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

TEST_F(FabricRoomTest, SetsWithoutARunShareTheOneThatComesFree) {
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

TEST_F(FabricRoomTest, SetWhoseBlockIsThereNeedsNoRunButAGroup) {
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

TEST_F(FabricRoomTest, SetLacksOnlyTheNextHopsThatNobodyBrought) {
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

TEST_F(FabricRoomTest, ReasonIsWhatIsLackingNow) {
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

TEST_F(FabricRoomTest, ChangeWithoutRoomLeavesTheOldSetInForce) {
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

TEST_F(FabricRoomTest, EveryTableMayBeFull) {
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

TEST_F(FabricRoomTest, FarMoreDestinationsThanGroupsAreServedInTurnAsGroupsComeFree) {
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

TEST_F(FabricRoomTest, WithoutAnInterfaceIndexTheCpuServesTheViaUntilThereIsOne) {
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

} // namespace L3TunnelAgent
