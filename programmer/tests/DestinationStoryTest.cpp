#include "programmer/testing/ProgrammerTest.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The rows of one destination, each one as the chip applied it, from its first request to its last holder.
class DestinationStoryTest : public ProgrammerTest {
 protected:
   /// The ports out of which the group of adjacency 7 forwards, in the order of its members; 0 for a member
   /// without an interface.
   std::vector<unsigned> ports() const {
      std::vector<unsigned> found;
      for (auto const& hop : hopsOf(groups->entryHandle(adjacency(7)))) {
         found.push_back(hop.interface ? hop.destinationId : 0u);
      }
      return found;
   }

   // What a via's row is called here does not depend on the order of hashes: sets of one and two are enough.
   L3ViaEntry const first = unicastVia(1, 1, 101);
   L3ViaEntry const second = unicastVia(2, 2, 102);
   L3ViaEntry const nowhere = viaOfKind(Brix::NextHopEntryType::drop);
   Handle block;
};

TEST_F(DestinationStoryTest, SetUpChangedAndRemoved) {
   // Its interface, its next hop, its member, its group: each once the chip has confirmed the one before.
   interfaceIs(1, 0x11);
   block = blockOf({first});
   groupIs(7, block, 1);
   EXPECT_THAT(rowsSince(),
               ElementsAre("EgrL3Oif2 written 1", "IngL3NextHop2Table written 1", "EgrL3NextHop2 written 1",
                           "L3UnderlayEcmpMember1Table written 0", "L3EcmpGroup0Table written 0"));
   EXPECT_THAT(ports(), ElementsAre(101));

   // Asked for again, it costs nothing.
   block = blockOf({first});
   groupIs(7, block, 1);
   EXPECT_THAT(rowsSince(), IsEmpty());

   // Over another via: all of the new path is there before the group moves, and then the old one goes, from
   // the members down. The interface stays, it is somebody else's.
   interfaceIs(2, 0x22);
   rowsSince();
   block = blockOf({second});
   groupIs(7, block, 1);
   EXPECT_THAT(rowsSince(), ElementsAre("IngL3NextHop2Table written 2", "EgrL3NextHop2 written 2",
                                        "L3UnderlayEcmpMember1Table written 1", "L3EcmpGroup0Table written 0",
                                        "L3UnderlayEcmpMember1Table cleared 0", "EgrL3NextHop2 cleared 1",
                                        "IngL3NextHop2Table cleared 1"));
   EXPECT_THAT(ports(), ElementsAre(102));

   // One via more: the one that stays keeps its next hop, and the members are a new run.
   block = blockOf({second, first});
   groupIs(7, block, 2);
   EXPECT_THAT(rowsSince(),
               ElementsAre("IngL3NextHop2Table written 1", "EgrL3NextHop2 written 1",
                           "L3UnderlayEcmpMember1Table written 2", "L3UnderlayEcmpMember1Table written 3",
                           "L3EcmpGroup0Table written 0", "L3UnderlayEcmpMember1Table cleared 1"));
   EXPECT_THAT(ports(), testing::UnorderedElementsAre(101, 102));

   // The neighbour's interface gets another address: one row, in place.
   interfaceIs(1, 0x12);
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 written 1"));

   // One via less.
   block = blockOf({first});
   groupIs(7, block, 1);
   EXPECT_THAT(rowsSince(),
               ElementsAre("L3UnderlayEcmpMember1Table written 0", "L3EcmpGroup0Table written 0",
                           "L3UnderlayEcmpMember1Table cleared 2", "L3UnderlayEcmpMember1Table cleared 3",
                           "EgrL3NextHop2 cleared 2", "IngL3NextHop2Table cleared 2"));
   EXPECT_THAT(ports(), ElementsAre(101));

   // Nowhere to go for now: a next hop without an interface.
   block = blockOf({nowhere});
   groupIs(7, block, 1);
   EXPECT_THAT(rowsSince(), ElementsAre("IngL3NextHop2Table written 2", "EgrL3NextHop2 written 2",
                                        "L3UnderlayEcmpMember1Table written 1", "L3EcmpGroup0Table written 0",
                                        "L3UnderlayEcmpMember1Table cleared 0", "EgrL3NextHop2 cleared 1",
                                        "IngL3NextHop2Table cleared 1"));
   EXPECT_THAT(ports(), ElementsAre(0));

   // The group goes first, then its members, then what they pointed at.
   block = nullptr;
   EXPECT_THAT(rowsSince(), IsEmpty()) << "the group holds its block";
   groupDel(7);
   EXPECT_THAT(rowsSince(), ElementsAre("L3EcmpGroup0Table cleared 0", "L3UnderlayEcmpMember1Table cleared 1",
                                        "EgrL3NextHop2 cleared 2", "IngL3NextHop2Table cleared 2"));
   interfaces->entryRemoveAll();
   EXPECT_THAT(rowsSince(), testing::UnorderedElementsAre("EgrL3Oif2 cleared 1", "EgrL3Oif2 cleared 2"));
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(DestinationStoryTest, RemovedBeforeTheChipHasAnswered) {
   interfaceIs(1, 0x11);
   block = blockOf({first});
   groupIs(7, block, 1);
   block = nullptr;
   groupDel(7);
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 written 1", "IngL3NextHop2Table written 1",
                                        "IngL3NextHop2Table cleared 1"))
         << "what waited was never written";
}

} // namespace
} // namespace ZandorL3Tunnel
