#include "agent/Derivation.h"
#include "agent/MessageReader.h"
#include "agent/tests/Expected.h"
#include "agent/tests/StateBuilder.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int destinationCount = 40;
constexpr int uplinks = 4;

/// A machine with many destinations: all but the first go over one group of uplinks, the first one over an
/// uplink of its own.
class DerivationTest : public testing::Test, protected StateBuilder {
 protected:
   DerivationTest() {
      NextHopObject group;
      for (int i = 1; i <= uplinks; ++i) {
         auto const gateway = "10.1.0." + std::to_string(i);
         link(i, "swp" + std::to_string(i));
         neighbour(i, gateway, "02:00:00:00:00:01");
         auto const id = static_cast<std::uint32_t>(i);
         state.nextHopIs(id, {.hop = hop(i, gateway)});
         if (i > 1) {
            group.group.push_back({.id = id});
         }
      }
      state.nextHopIs(groupId, group);
      routeByObject(single + "/32", 1);
      tunnelTo(single);
      for (int i = 1; i < destinationCount; ++i) {
         routeByObject(shared(i) + "/32", groupId);
         tunnelTo(shared(i));
      }
      derivation.update(state.takeChanges());
   }

   static std::string shared(int number) { return "10.255.1." + std::to_string(number); }

   /// @return what differs after the changes so far.
   std::vector<IpAddress> update() {
      auto const before = derivation.derived();
      auto result = derivation.update(state.takeChanges());
      derivedNow = derivation.derived() - before;
      return result;
   }

   static constexpr std::uint32_t groupId = 100;
   std::string const single = "10.255.0.1";
   Derivation derivation{state};
   std::size_t derivedNow{};
};

} // namespace

TEST_F(DerivationTest, NeighbourThatOneDestinationUsesCostsOne) {
   neighbour(1, "10.1.0.1", "02:00:00:00:00:02");
   EXPECT_THAT(update(), ElementsAre(ip(single)));
   EXPECT_EQ(derivedNow, 1U);
   state.neighbourDel({1, ip("10.1.0.1")});
   EXPECT_THAT(update(), ElementsAre(ip(single)));
   EXPECT_EQ(derivedNow, 1U);
}

TEST_F(DerivationTest, DestinationsOfTheSameWaysShareTheirList) {
   auto const listOf = [&](int number) {
      return derivation.destinations().at(ip(shared(number))).vias.identity();
   };
   EXPECT_EQ(listOf(1), listOf(2));
   neighbour(2, "10.1.0.2", "02:00:00:00:00:07");
   EXPECT_EQ(update().size(), destinationCount - 1U);
   EXPECT_EQ(listOf(1), listOf(destinationCount - 1));
   EXPECT_NE(listOf(1), derivation.destinations().at(ip(single)).vias.identity());
}

TEST_F(DerivationTest, EntriesOfOneObjectNameItsDestinationsUntilTheLastHasGone) {
   auto const entry = [](int number) {
      return VxlanKey{.device = vxlan, .mac = mac("02:00:00:00:01:0" + std::to_string(number))};
   };
   state.nextHopIs(201, {.hop = hop(0, "10.255.3.1"), .fdb = true});
   state.nextHopIs(202, {.hop = hop(0, "10.255.3.2"), .fdb = true});
   state.nextHopIs(200, {.group = {{.id = 201}, {.id = 202}}, .fdb = true});
   state.vxlanEntryIs(entry(1), {.nextHopId = 200});
   state.vxlanEntryIs(entry(2), {.nextHopId = 200});
   state.vxlanEntryIs(entry(3), {.nextHopId = 202});
   EXPECT_THAT(update(), ElementsAre(ip("10.255.3.1"), ip("10.255.3.2")));
   state.nextHopDel(201);
   EXPECT_THAT(update(), ElementsAre(ip("10.255.3.1")));
   state.vxlanEntryDel(entry(1));
   state.vxlanEntryDel(entry(3));
   EXPECT_THAT(update(), IsEmpty());
   EXPECT_EQ(derivedNow, 1U) << "which one of its entries named";
   state.vxlanEntryDel(entry(2));
   EXPECT_THAT(update(), ElementsAre(ip("10.255.3.2")));
}

TEST_F(DerivationTest, NeighbourWhoseStateStaysUsableCostsNothing) {
   neighbour(2, "10.1.0.2", "02:00:00:00:00:01", NUD_STALE);
   EXPECT_THAT(update(), IsEmpty());
   EXPECT_EQ(derivedNow, 0U);
}

TEST_F(DerivationTest, NeighbourThatNobodyUsesCostsNothing) {
   neighbour(1, "10.1.0.77", "02:00:00:00:00:02");
   EXPECT_THAT(update(), IsEmpty());
   EXPECT_EQ(derivedNow, 0U);
}

TEST_F(DerivationTest, RouteConcernsItsRangeAndOnlySearchesThatCameByIt) {
   routeOfType(RTN_BLACKHOLE, shared(3) + "/32");
   update();
   EXPECT_EQ(derivedNow, 1U);
   routeOfType(RTN_BLACKHOLE, "10.0.0.0/8");
   EXPECT_THAT(update(), IsEmpty());
   EXPECT_EQ(derivedNow, 0U) << "all searches ended at longer prefixes";
   state.routeDel({main, prefix(shared(5) + "/32")}, {.type = RTN_UNICAST, .nextHopId = groupId});
   EXPECT_THAT(update(), ElementsAre(ip(shared(5))));
   EXPECT_EQ(derivedNow, 1U);
   EXPECT_EQ(derivation.destinations().at(ip(shared(5))).vias.at(0).kind, ViaKind::drop);
   state.routeDel({main, prefix("10.0.0.0/8")}, {.type = RTN_BLACKHOLE});
   EXPECT_THAT(update(), ElementsAre(ip(shared(5))));
   EXPECT_EQ(derivedNow, 1U);
}

TEST_F(DerivationTest, RouteInATableThatNoRuleNamesCostsNothing) {
   routeOfType(RTN_BLACKHOLE, "0.0.0.0/0", 77);
   EXPECT_THAT(update(), IsEmpty());
   EXPECT_EQ(derivedNow, 0U);
}

TEST_F(DerivationTest, LinkThatGoesDownConcernsThoseOverIt) {
   linkFlags(1, IFF_UP);
   EXPECT_THAT(update(), ElementsAre(ip(single)));
   EXPECT_EQ(derivedNow, 1U);
   EXPECT_EQ(derivation.destinations().at(ip(single)).reason, "no route");
   linkFlags(2, IFF_UP);
   EXPECT_EQ(update().size(), destinationCount - 1U);
   EXPECT_EQ(derivation.destinations().at(ip(shared(1))).vias.size(), uplinks - 2U);
}

TEST_F(DerivationTest, DestinationComesAndGoesWithItsLastEntry) {
   state.vxlanEntryIs({.device = vxlan, .mac = mac("02:00:00:00:00:99")}, {.destination = ip(single)});
   EXPECT_THAT(update(), IsEmpty());
   state.vxlanEntryDel({.device = vxlan, .groupDestination = ip(single)});
   EXPECT_THAT(update(), IsEmpty());
   state.vxlanEntryDel({.device = vxlan, .mac = mac("02:00:00:00:00:99")});
   EXPECT_THAT(update(), ElementsAre(ip(single)));
   EXPECT_EQ(derivation.destinations().count(ip(single)), 0U);
   tunnelTo(single);
   EXPECT_THAT(update(), ElementsAre(ip(single)));
   EXPECT_EQ(derivation.destinations().at(ip(single)).vias.size(), 1U);
}

TEST_F(DerivationTest, SourceOfTheFrameIsTheRoutedDevicesMac) {
   relink(1, [](Link& changed) { changed.mac = mac("02:00:00:00:11:11"); });
   EXPECT_THAT(update(), ElementsAre(ip(single)));
   EXPECT_EQ(derivation.destinations().at(ip(single)).vias.at(0).sourceMac, mac("02:00:00:00:11:11"));
}

TEST_F(DerivationTest, RulesConcernTheirFamily) {
   rule(5, 200, IpAddress::Family::v6);
   update();
   EXPECT_EQ(derivedNow, 0U);
   rule(5, 200);
   EXPECT_THAT(update(), IsEmpty());
   EXPECT_EQ(derivedNow, std::size_t{destinationCount});
   routeOfType(RTN_BLACKHOLE, "10.255.1.0/28", 200);
   EXPECT_EQ(update().size(), 15U);
   EXPECT_EQ(derivedNow, 15U);
}

TEST_F(DerivationTest, NothingChangedCostsNothing) {
   EXPECT_THAT(update(), IsEmpty());
   EXPECT_EQ(derivedNow, 0U);
}

TEST(DerivationOfARecording, OneUplinksNeighbourCostsItsDestinationsAlone) {
   auto state = recordedState(recordedFile("big", "dump.rnl.gz"));
   Derivation derivation(state);
   auto const all = derivation.derived();
   EXPECT_EQ(all, derivation.destinations().size());
   auto const& found =
         *std::find_if(state.neighbours().begin(), state.neighbours().end(), [&](auto const& n) {
            return n.second.mac && state.linkName(n.first.device) == "swp5" &&
                   n.first.address.family == IpAddress::Family::v4;
         });
   NeighbourKey const key = found.first;
   std::size_t users = 0;
   for (auto const& [address, destination] : derivation.destinations()) {
      for (auto const& via : destination.vias) {
         users += via.device == key.device && via.gateway == key.address ? 1 : 0;
      }
   }
   state.neighbourDel(key);
   EXPECT_EQ(derivation.update(state.takeChanges()).size(), users);
   EXPECT_EQ(derivation.derived() - all, users);
   EXPECT_GT(users, 0U);
   EXPECT_LT(users, all / 2);
}

} // namespace L3TunnelAgent
