#include "chip/model/Forwarding.h"

#include "chip/model/Layouts.h"
#include "platform/asic/testing/TinyTable.h"

#include <gmock/gmock.h>

#include <vector>

namespace ModelChip {
namespace {

using Asic::Index;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// Writes the chip's rows as they are, right or wrong.
class ForwardingTest : public testing::Test {
 protected:
   struct Value {
      BitField const& field;
      std::uint64_t value;
   };

   void rowIs(RowLayout const& layout, Index index, std::vector<Value> const& values) {
      std::vector<std::uint32_t> words(layout.wordsPerRow);
      for (auto const& each : values) {
         each.field.pack(words, each.value);
      }
      chip->table(layout.table)->rowIs(index, words, *owner, nullptr);
      loop.runUntilIdle();
   }

   void rowDel(RowLayout const& layout, Index index) {
      chip->table(layout.table)->rowDel(index, *owner, table.get());
      loop.runUntilIdle();
   }

   void groupIs(Index group, Index base, unsigned paths) {
      namespace Row = L3EcmpGroup0Table;
      rowIs(Row::layout, group,
            {{Row::valid, 1}, {Row::ecmpBlock, base}, {Row::numPaths, paths}, {Row::lbMode, 9}});
   }
   void memberIs(Index member, Index nextHop) {
      namespace Row = L3UnderlayEcmpMember1Table;
      rowIs(Row::layout, member, {{Row::valid, 1}, {Row::nextHop, nextHop}});
   }
   void ingIs(Index nextHop, unsigned destination) {
      namespace Row = IngL3NextHop2Table;
      rowIs(Row::layout, nextHop,
            {{Row::valid, 1}, {Row::destinationType, 4}, {Row::destinationId, destination}});
   }
   void egrIs(Index nextHop, Index interface, std::uint64_t mac) {
      namespace Row = EgrL3NextHop2;
      rowIs(Row::layout, nextHop, {{Row::valid, 1}, {Row::l3Oif, interface}, {Row::dstMac, mac}});
   }
   void interfaceIs(Index interface, unsigned vlan, std::uint64_t mac) {
      namespace Row = EgrL3Oif2;
      rowIs(Row::layout, interface,
            {{Row::valid, 1}, {Row::tagged, vlan != 0}, {Row::vlanTag, vlan}, {Row::srcMac, mac}});
   }

   /// Group 7 with two members from 10 on: one out of an interface, one to the CPU.
   void everythingIs() {
      interfaceIs(3, 100, 0x020000000003);
      ingIs(21, 501);
      egrIs(21, 3, 0x020000000021);
      ingIs(22, 0);
      egrIs(22, 0, 0);
      memberIs(10, 21);
      memberIs(11, 22);
      groupIs(7, 10, 2);
   }

   Pelm::String problem() const { return followGroup(*chip, 7).problem; }

   Nuv::ReactionLoop loop;
   Nuv::Ptr<Chip> chip = Nuv::make<Chip>(loop);
   Nuv::Ptr<Asic::TinyTable> table = Nuv::make<Asic::TinyTable>();
   Nuv::Ptr<Asic::TinyHandle> owner = Nuv::make<Asic::TinyHandle>(table.get());
};

TEST_F(ForwardingTest, ReachesEveryInterfaceFromTheGroup) {
   everythingIs();
   auto rows = followGroup(*chip, 7);
   EXPECT_EQ(rows.problem, "");
   EXPECT_EQ(rows.group, 7u);
   EXPECT_EQ(rows.base, 10u);
   EXPECT_EQ(rows.numPaths, 2u);
   EXPECT_EQ(rows.lbMode, 9u);
   ASSERT_THAT(rows.hops, SizeIs(2));

   auto const& out = rows.hops[0];
   EXPECT_EQ(out.member, 10u);
   EXPECT_EQ(out.nextHop, 21u);
   EXPECT_EQ(out.destinationType, 4u);
   EXPECT_EQ(out.destinationId, 501u);
   EXPECT_EQ(Nuv::text(out.dstMac), "02:00:00:00:00:21");
   ASSERT_TRUE(out.interface);
   EXPECT_EQ(out.interface->index, 3u);
   EXPECT_TRUE(out.interface->tagged);
   EXPECT_EQ(out.interface->vlanTag, 100u);
   EXPECT_EQ(Nuv::text(out.interface->srcMac), "02:00:00:00:00:03");

   EXPECT_EQ(rows.hops[1].member, 11u);
   EXPECT_EQ(rows.hops[1].nextHop, 22u);
   EXPECT_FALSE(rows.hops[1].interface);
}

TEST_F(ForwardingTest, AGroupWithoutPathsLeadsNowhere) {
   groupIs(7, 0, 0);
   auto rows = followGroup(*chip, 7);
   EXPECT_EQ(rows.problem, "");
   EXPECT_THAT(rows.hops, IsEmpty());
   EXPECT_THAT(danglingRows(*chip), IsEmpty());
}

TEST_F(ForwardingTest, NamesTheFirstRowThatIsMissing) {
   everythingIs();
   rowDel(EgrL3Oif2::layout, 3);
   EXPECT_EQ(problem(), "no row 3 in EgrL3Oif2");
   rowDel(EgrL3NextHop2::layout, 21);
   EXPECT_EQ(problem(), "no row 21 in EgrL3NextHop2");
   rowDel(IngL3NextHop2Table::layout, 21);
   EXPECT_EQ(problem(), "no row 21 in IngL3NextHop2Table");
   rowDel(L3UnderlayEcmpMember1Table::layout, 11);
   EXPECT_EQ(problem(), "no row 21 in IngL3NextHop2Table");
   rowDel(L3UnderlayEcmpMember1Table::layout, 10);
   EXPECT_EQ(problem(), "no row 10 in L3UnderlayEcmpMember1Table");
   rowDel(L3EcmpGroup0Table::layout, 7);
   EXPECT_EQ(problem(), "no row 7 in L3EcmpGroup0Table");
}

TEST_F(ForwardingTest, ShowsTheOtherPathsOfAGroupWithAMissingRow) {
   everythingIs();
   rowDel(L3UnderlayEcmpMember1Table::layout, 11);
   auto rows = followGroup(*chip, 7);
   EXPECT_EQ(rows.problem, "no row 11 in L3UnderlayEcmpMember1Table");
   ASSERT_THAT(rows.hops, SizeIs(2));
   EXPECT_TRUE(rows.hops[0].interface);
   EXPECT_EQ(rows.hops[1].nextHop, 0u);
}

TEST_F(ForwardingTest, ARowThatIsNotValidIsNoRow) {
   everythingIs();
   rowIs(IngL3NextHop2Table::layout, 21, {{IngL3NextHop2Table::destinationId, 501}});
   EXPECT_EQ(problem(), "no row 21 in IngL3NextHop2Table");
}

TEST_F(ForwardingTest, NamesRowsBeyondTheirTable) {
   auto rows = followGroup(*chip, 0xFFFFFFFF);
   EXPECT_EQ(rows.problem, "no row 4294967295 in L3EcmpGroup0Table");
   groupIs(7, 65535, 2);
   memberIs(65535, 0x80000000);
   EXPECT_EQ(problem(), "no row 2147483648 in IngL3NextHop2Table");
   everythingIs();
   groupIs(7, 65535, 2);
   memberIs(65535, 21);
   EXPECT_EQ(problem(), "no row 65536 in L3UnderlayEcmpMember1Table");
}

TEST_F(ForwardingTest, NothingDanglesWhereEverythingIsThere) {
   EXPECT_THAT(danglingRows(*chip), IsEmpty());
   everythingIs();
   EXPECT_THAT(danglingRows(*chip), IsEmpty());
}

TEST_F(ForwardingTest, EveryRowThatLeadsToAMissingOneDangles) {
   everythingIs();
   rowDel(EgrL3Oif2::layout, 3);
   EXPECT_THAT(danglingRows(*chip), ElementsAre("L3EcmpGroup0Table row 7: no row 3 in EgrL3Oif2",
                                                "L3UnderlayEcmpMember1Table row 10: no row 3 in EgrL3Oif2",
                                                "EgrL3NextHop2 row 21: no row 3 in EgrL3Oif2"));
   interfaceIs(3, 0, 1);
   EXPECT_THAT(danglingRows(*chip), IsEmpty());
}

TEST_F(ForwardingTest, RowsThatNobodyPointsAtDangleToo) {
   memberIs(5, 6);
   egrIs(8, 9, 1);
   ingIs(1, 1);
   EXPECT_THAT(danglingRows(*chip),
               ElementsAre("L3UnderlayEcmpMember1Table row 5: no row 6 in IngL3NextHop2Table",
                           "EgrL3NextHop2 row 8: no row 9 in EgrL3Oif2"));
}

TEST_F(ForwardingTest, ARowThatIsNotValidPointsAtNothing) {
   rowIs(EgrL3NextHop2::layout, 8, {{EgrL3NextHop2::l3Oif, 9}});
   EXPECT_THAT(danglingRows(*chip), IsEmpty());
}

TEST_F(ForwardingTest, FlowTakesOneOfThePathsAndFollowsItAlone) {
   everythingIs();
   std::vector<std::size_t> flows(2);
   for (std::uint16_t port = 0; port < 1000; ++port) {
      auto const found = followFlow(*chip, 7, Flow{.source = {}, .destination = {}, .sourcePort = port});
      EXPECT_EQ(found.problem, "");
      EXPECT_EQ(found.hop.member, 10U + found.path);
      EXPECT_EQ(found.hop.nextHop, 21U + found.path);
      EXPECT_EQ(found.path, pathOf(found.hash, 2));
      ++flows.at(found.path);
   }
   EXPECT_GT(flows[0], 400U);
   EXPECT_GT(flows[1], 400U);
}

TEST_F(ForwardingTest, FlowMissesOnlyWhatIsOnItsWay) {
   everythingIs();
   rowDel(L3UnderlayEcmpMember1Table::layout, 11);
   std::size_t problems = 0;
   for (std::uint16_t port = 0; port < 100; ++port) {
      auto const found = followFlow(*chip, 7, Flow{.source = {}, .destination = {}, .sourcePort = port});
      EXPECT_EQ(found.problem, found.path == 0 ? "" : "no row 11 in L3UnderlayEcmpMember1Table");
      problems += found.path;
   }
   EXPECT_GT(problems, 0U);
   EXPECT_EQ(followFlow(*chip, 8, {}).problem, "no row 8 in L3EcmpGroup0Table");
   groupIs(7, 10, 0);
   EXPECT_EQ(followFlow(*chip, 7, {}).problem, "group 7 has no path");
}

} // namespace
} // namespace ModelChip
