#include "agent/Derivation.h"
#include "agent/MessageReader.h"
#include "agent/tests/Expected.h"
#include "agent/tests/PlayedAgent.h"
#include "agent/tests/StateBuilder.h"
#include "agent/views/Audit.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned noCarrier = IFF_UP;

TEST(ReconciliationTest, NotesNothingWhenNothingDiffers) {
   StateBuilder one;
   one.link(1, "a");
   one.route("10.0.0.0/8", {one.hop(1, "10.1.0.1")});
   one.state.takeChanges();
   EXPECT_FALSE(one.state.becomes(KernelState(one.state)));
   EXPECT_TRUE(one.state.takeChanges().empty());
}

TEST(ReconciliationTest, NotesWhatCameWhatWentAndWhatDiffers) {
   StateBuilder one;
   one.link(1, "stays");
   one.link(2, "goes");
   one.link(3, "differs");
   one.neighbour(1, "10.1.0.1", "02:00:00:00:00:01");
   one.route("10.1.0.0/16", {one.hop(1)});
   one.route("10.2.0.0/16", {one.hop(1)});
   one.state.takeChanges();
   StateBuilder other;
   other.link(1, "stays");
   other.link(3, "has another name");
   other.link(4, "comes");
   other.neighbour(1, "10.1.0.1", "02:00:00:00:00:02");
   other.route("10.1.0.0/16", {other.hop(1)});
   other.route("10.2.0.0/16", {other.hop(3)});
   other.route("10.3.0.0/16", {other.hop(1)});
   EXPECT_TRUE(one.state.becomes(std::move(other.state)));
   auto const changes = one.state.takeChanges();
   EXPECT_THAT(changes.links, ElementsAre(2, 3, 4));
   EXPECT_THAT(changes.neighbours, ElementsAre(NeighbourKey{1, StateBuilder::ip("10.1.0.1")}));
   EXPECT_THAT(changes.routes,
               ElementsAre(RouteKey{StateBuilder::main, StateBuilder::prefix("10.2.0.0/16")},
                           RouteKey{StateBuilder::main, StateBuilder::prefix("10.3.0.0/16")}));
   EXPECT_EQ(one.state.linkName(3), "has another name");
}

TEST(ReconciliationTest, KeepsWhatWasNotedBefore) {
   StateBuilder one;
   one.link(1, "a");
   EXPECT_FALSE(one.state.becomes(KernelState(one.state)));
   EXPECT_THAT(one.state.takeChanges().links, ElementsAre(1));
}

TEST(ReconciliationTest, ComparesNextHopsAsTheyAreNow) {
   StateBuilder one;
   one.link(1, "a");
   one.route("10.1.0.0/16", {one.hop(1, "10.0.0.1")});
   one.linkFlags(1, noCarrier); // after the route was told, so that its hop has no carrier
   one.state.takeChanges();

   StateBuilder told;
   told.link(1, "a");
   told.linkFlags(1, noCarrier);
   auto hop = told.hop(1, "10.0.0.1");
   hop.linkdown = true; // as a dump says it
   told.route("10.1.0.0/16", {hop});
   EXPECT_FALSE(one.state.becomes(KernelState(told.state)));

   told.relink(1, [](Link& link) { link.ignoreLinkdown = true; });
   hop.dead = true; // and so when the kernel leaves such a hop out
   told.route("10.1.0.0/16", {hop});
   EXPECT_TRUE(one.state.becomes(KernelState(told.state)));
   EXPECT_THAT(one.state.takeChanges().links, ElementsAre(1));
   one.relink(1, [](Link& link) { link.mac.reset(); });
   told.relink(1, [](Link& link) { link.mac.reset(); });
   EXPECT_FALSE(one.state.becomes(std::move(told.state)));
}

TEST(ReconciliationTest, ComparesWhatComesOfANeighboursState) {
   constexpr auto mac = "02:00:00:00:00:01";
   auto const differs = [](std::uint16_t from, char const* fromMac, std::uint16_t to, char const* toMac) {
      StateBuilder one;
      one.neighbour(1, "10.1.0.1", fromMac, from);
      StateBuilder other;
      other.neighbour(1, "10.1.0.1", toMac, to);
      one.state.takeChanges();
      bool const result = one.state.becomes(KernelState(other.state));
      EXPECT_EQ(result, !one.state.takeChanges().neighbours.empty());
      EXPECT_EQ(one.state.neighbours(), other.state.neighbours());
      return result;
   };
   EXPECT_FALSE(differs(NUD_STALE, mac, NUD_DELAY, mac));
   EXPECT_FALSE(differs(NUD_REACHABLE, mac, NUD_PERMANENT, mac));
   EXPECT_FALSE(differs(NUD_INCOMPLETE, "", NUD_INCOMPLETE, ""));
   EXPECT_TRUE(differs(NUD_STALE, mac, NUD_STALE, "02:00:00:00:00:02"));
   EXPECT_TRUE(differs(NUD_STALE, mac, NUD_FAILED, mac));
   EXPECT_TRUE(differs(NUD_NONE, "", NUD_INCOMPLETE, ""));
   EXPECT_TRUE(differs(NUD_INCOMPLETE, "", NUD_FAILED, ""));
   EXPECT_TRUE(differs(NUD_NONE, "", NUD_NOARP, ""));
}

TEST(ReconciliationTest, CopiesAllButNextHopsAndRoutes) {
   auto const state = recordedState(recordedFile("mixed", "dump.rnl.gz"));
   auto copy = state.withoutRoutes();
   EXPECT_THAT(copy.nextHops(), IsEmpty());
   auto whole = copy;
   EXPECT_TRUE(whole.becomes(KernelState(state)));
   auto const changes = whole.takeChanges();
   EXPECT_EQ(changes.nextHops.size(), state.nextHops().size());
   EXPECT_FALSE(changes.routes.empty());
   EXPECT_EQ(changes, (Changes{.nextHops = changes.nextHops, .routes = changes.routes}));
}

TEST(ReconciliationTest, ForgetsForwardingEntriesOfAnObjectThatGoesAfterACopy) {
   StateBuilder one;
   one.state.nextHopIs(7, {.fdb = true});
   one.state.vxlanEntryIs({.device = StateBuilder::vxlan}, {.nextHopId = 7});
   auto copy = one.state.withoutRoutes();
   copy.nextHopIs(7, {.fdb = true});
   copy.nextHopDel(7);
   EXPECT_THAT(copy.vxlanEntries(), IsEmpty());
}

TEST(ReconciliationTest, DoubtsWhatGoesWithoutWords) {
   StateBuilder one;
   one.link(1, "a");
   one.state.nextHopIs(1, {.hop = one.hop(1, "10.0.0.1")});
   one.routeByObject("10.1.0.0/16", 1);
   auto doubts = one.state.doubts();
   auto const isDoubted = [&] { return std::exchange(doubts, one.state.doubts()) != one.state.doubts(); };
   one.linkFlags(1, StateBuilder::running | IFF_PROMISC);
   EXPECT_FALSE(isDoubted());
   one.state.nextHopDel(1);
   EXPECT_TRUE(isDoubted()) << "the kernel may not tell of the route";
   one.linkFlags(1, noCarrier);
   EXPECT_TRUE(isDoubted());
   one.linkFlags(1, 0);
   EXPECT_TRUE(isDoubted());
   one.linkFlags(1, StateBuilder::running);
   EXPECT_FALSE(isDoubted());
   one.state.linkDel(1);
   EXPECT_TRUE(isDoubted());
   one.state.linkDel(1);
   EXPECT_FALSE(isDoubted());
}

/// The rows of each destination's group, by what they lead to, do not name rows: only rows of what differs
/// may be written.
TEST(ReconciliationTest, WritesRowsOfDifferingDestinationsAlone) {
   for (std::string const fabric : {"small", "mixed", "mixed-inline"}) {
      auto const names = snapshots(fabric);
      for (std::size_t at = 1; at < names.size(); ++at) {
         auto const file = [&](std::size_t which) {
            return recordedFile(fabric, "dump.rnl.gz", names[which]);
         };
         Agent agent;
         agent.stateIs(recordedState(file(at - 1)));
         while (agent.step()) {
         }
         auto const before = agent.derivation().destinations();
         auto const rows = agent.rows().count();
         agent.takeChanged();
         agent.stateIs(recordedState(file(at)));
         while (agent.step()) {
         }
         Agent fresh;
         fresh.stateIs(recordedState(file(at)));
         EXPECT_TRUE(fresh.step());
         auto const& after = agent.derivation().destinations();
         EXPECT_EQ(after, fresh.derivation().destinations()) << fabric << " " << names[at];
         EXPECT_THAT(audit(agent.fabric()).findings, IsEmpty()) << fabric << " " << names[at];
         EXPECT_EQ(agent.rows().needless(), 0U);

         std::set<IpAddress> differing;
         for (auto const& [address, destination] : after) {
            auto const found = before.find(address);
            if (found == before.end() || !(found->second == destination)) {
               differing.insert(address);
            }
         }
         for (auto const& [address, destination] : before) {
            if (!after.contains(address)) {
               differing.insert(address);
            }
         }
         auto const touched = agent.takeChanged();
         EXPECT_EQ(std::set<IpAddress>(touched.begin(), touched.end()), differing)
               << fabric << " " << names[at];
         if (differing.empty()) {
            EXPECT_EQ(agent.rows().count(), rows) << fabric << " " << names[at];
         }
      }
   }
}

} // namespace
} // namespace L3TunnelAgent
