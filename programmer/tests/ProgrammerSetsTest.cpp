#include "programmer/testing/ProgrammerTest.h"

#include <algorithm>
#include <random>
#include <set>

namespace ZandorL3Tunnel {
namespace {

using Brix::NextHopEntryType;
using testing::SizeIs;

/// Sets of vias of all sizes and kinds. To follow every row after each of so many would take long, so this is
/// for what they come to.
class ProgrammerSetsTest : public ProgrammerTest {
 protected:
   ProgrammerSetsTest() : ProgrammerTest(ModelChip::Chip::Sizes()) {
      interfaceIs(1, 0x11);
      loop.runUntilIdle();
      chip->rowObserverIs({});
   }

   static Nuv::Ptr<L3Via> manyVias(unsigned count, NextHopEntryType kind = NextHopEntryType::drop) {
      auto set = l3ViaFactory();
      for (unsigned number = 0; number < count; ++number) {
         auto via = unicastVia(0, 1, 101);
         via.nhEntryType = kind;
         via.macAddr = Fendo::EthAddr::fromValue(number);
         set->viaIs(via, number);
      }
      return set;
   }

   Asic::Index rowsIn(char const* table) const { return chip->table(table)->rowsPresent(); }

   void expectNothingLeft() {
      loop.runUntilIdle();
      auto const& nextHops = *programmer->l3EcmpNextHopTable();
      auto const& members = *programmer->l3EcmpMemberTable();
      EXPECT_EQ(nextHops.handles().size(), 0u);
      EXPECT_EQ(nextHops.indexAllocator()->holders(), 0u);
      EXPECT_EQ(nextHops.ingL3NextHop2Table()->handles().size(), 0u);
      EXPECT_EQ(nextHops.egrL3NextHop2()->handles().size(), 0u);
      EXPECT_EQ(members.handles().size(), 0u);
      EXPECT_EQ(members.indexAllocator()->holders(), 0u);
      EXPECT_EQ(rowsPresent(), 1u) << "the interface's";
   }
};

class SizeTest : public ProgrammerSetsTest, public testing::WithParamInterface<unsigned> {};

TEST_P(SizeTest, HasOneMemberForEachVia) {
   auto count = GetParam();
   auto set = manyVias(count, NextHopEntryType::unicast);
   auto block = programmer->getEcmpBlockHandle(set, false);
   auto group = groupIs(7, block, std::uint16_t(count));
   loop.runUntilIdle();
   EXPECT_THAT(block, ModelChip::HasState(State::success));
   EXPECT_THAT(group, ModelChip::HasState(State::success));
   EXPECT_EQ(rowsIn("L3UnderlayEcmpMember1Table"), count);
   EXPECT_EQ(rowsIn("IngL3NextHop2Table"), count);
   EXPECT_EQ(rowsIn("EgrL3NextHop2"), count);
   std::vector<std::uint64_t> wanted;
   for (auto const& [via, value] : set->via()) {
      wanted.push_back(via.macAddr.value());
   }
   std::vector<std::uint64_t> found;
   for (auto const& hop : hopsOf(group)) {
      found.push_back(hop.dstMac.value());
   }
   EXPECT_EQ(found, wanted);
   EXPECT_EQ(programmer->getEcmpBlockHandle(set, false), block);
   group = block = nullptr;
   groupDel(7);
   expectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Of, SizeTest, testing::Values(0, 1, 2, 64, 128, 65535),
                         testing::PrintToStringParamName());

TEST_F(ProgrammerSetsTest, ASetTooLargeForABlockIsRefusedAndLeavesNothing) {
   auto small = blockOf({unicastVia(1, 1, 101)});
   loop.runUntilIdle();
   auto rows = rowsPresent();
   for (unsigned count : {65536u, 65537u}) {
      try {
         programmer->getEcmpBlockHandle(manyVias(count), false);
         FAIL() << count << " vias were taken";
      } catch (Nuv::Exception const& refused) {
         EXPECT_EQ(Pelm::String(refused.what()), Nuv::text("Unsupported behavior: entryInternals: ",
                                                           count - 65536, ", blockSize: ", count));
      }
      EXPECT_EQ(programmer->l3EcmpNextHopTable()->handles().size(), 1u);
      EXPECT_EQ(programmer->l3EcmpMemberTable()->handles().size(), 1u);
      loop.runUntilIdle();
      EXPECT_EQ(rowsPresent(), rows);
   }
   auto after = blockOf({unicastVia(2, 1, 102)});
   loop.runUntilIdle();
   EXPECT_THAT(after, ModelChip::HasState(State::success));
   small = after = nullptr;
   expectNothingLeft();
}

TEST_F(ProgrammerSetsTest, MixesAllKinds) {
   interfaceIs(2, 0x22);
   auto tunnel = unicastVia(2, 2, 102);
   tunnel.nhEntryType = NextHopEntryType::tunnelUnicast;
   auto set = l3ViaFactory();
   for (auto const& via : {unicastVia(1, 1, 101), tunnel, viaOfKind(NextHopEntryType::unicast),
                           viaOfKind(NextHopEntryType::tunnelUnicast), viaOfKind(NextHopEntryType::receive),
                           viaOfKind(NextHopEntryType::glean), viaOfKind(NextHopEntryType::drop)}) {
      set->viaIs(via, 1);
   }
   for (bool isCpuDrop : {false, true}) {
      auto group = groupIs(7, programmer->getEcmpBlockHandle(set, isCpuDrop), 7);
      loop.runUntilIdle();
      auto hops = hopsOf(group);
      ASSERT_THAT(hops, SizeIs(7));
      std::size_t at = 0;
      for (auto const& [via, value] : set->via()) {
         auto const& hop = hops[at++];
         bool isUnicast = via.l2If.isValid();
         auto cpu = isCpuDrop || via.nhEntryType == NextHopEntryType::drop ? 0 : 8;
         EXPECT_EQ(hop.destinationType, isUnicast ? 4 : cpu) << Nuv::text(via);
         EXPECT_EQ(hop.destinationId, isUnicast ? via.l2If.value : 0) << Nuv::text(via);
         ASSERT_EQ(hop.interface.has_value(), isUnicast) << Nuv::text(via);
         if (isUnicast) {
            EXPECT_EQ(hop.interface->index, via.l3Id.value);
            EXPECT_EQ(hop.dstMac, via.macAddr);
         }
      }
   }
}

TEST_F(ProgrammerSetsTest, TheOrderInWhichASetWasFilledNeverShows) {
   std::vector<L3ViaEntry> vias;
   for (std::uint8_t neighbour = 1; neighbour <= 5; ++neighbour) {
      vias.push_back(unicastVia(neighbour, 1, neighbour));
   }
   auto filled = [this](std::vector<L3ViaEntry> const& in) {
      auto set = l3ViaFactory();
      for (std::uint32_t value = 0; value < in.size(); ++value) {
         set->viaIs(in[value], value);
      }
      return programmer->getEcmpBlockHandle(set, false);
   };
   auto block = filled(vias);
   std::vector<unsigned> order{0, 1, 2, 3, 4};
   do {
      std::vector<L3ViaEntry> shuffled;
      for (auto at : order) {
         shuffled.push_back(vias[at]);
      }
      ASSERT_EQ(filled(shuffled), block);
   } while (std::next_permutation(order.begin(), order.end()));

   vias.clear();
   for (unsigned number = 0; number < 128; ++number) {
      vias.push_back(unicastVia(std::uint8_t(number), 1, 7));
   }
   auto large = filled(vias);
   std::mt19937 random(1);
   for (int time = 0; time < 50; ++time) {
      std::shuffle(vias.begin(), vias.end(), random);
      ASSERT_EQ(filled(vias), large);
   }
   // Also after others were there meanwhile.
   auto const others = manyVias(1000);
   auto set = manyVias(1000);
   for (auto const& via : vias) {
      set->viaIs(via, 1);
   }
   for (auto const& [via, value] : others->via()) {
      set->viaDel(via);
   }
   EXPECT_EQ(programmer->getEcmpBlockHandle(set, false), large);
}

TEST_F(ProgrammerSetsTest, OneNextHopIsSharedByManySetsAndGoesWithTheLast) {
   auto const shared = unicastVia(0, 1, 100);
   std::vector<Handle> blocks;
   for (std::uint8_t neighbour = 1; neighbour <= 200; ++neighbour) {
      blocks.push_back(blockOf({shared, unicastVia(neighbour, 1, neighbour)}));
   }
   loop.runUntilIdle();
   EXPECT_EQ(rowsIn("IngL3NextHop2Table"), 201u);
   EXPECT_EQ(rowsIn("L3UnderlayEcmpMember1Table"), 400u);
   L3UnderlayNextHopKey key;
   key.nhEntryType = shared.nhEntryType;
   key.macAddr = shared.macAddr;
   key.l3Id = shared.l3Id;
   key.l2If = shared.l2If;
   auto const& nextHops = *programmer->l3EcmpNextHopTable();
   auto index = nextHops.hwIndexOnlyForCrossAgentCommunication(key);
   std::mt19937 random(1);
   std::shuffle(blocks.begin(), blocks.end(), random);
   while (!blocks.empty()) {
      EXPECT_EQ(nextHops.hwIndexOnlyForCrossAgentCommunication(key), index);
      EXPECT_TRUE(chip->table("EgrL3NextHop2")->hasRow(index));
      blocks.pop_back();
      loop.runUntilIdle();
      EXPECT_EQ(nextHops.handles().size(), blocks.empty() ? 0u : blocks.size() + 1);
   }
   EXPECT_FALSE(nextHops.entryHas(key));
   expectNothingLeft();
}

TEST_F(ProgrammerSetsTest, AHandleOutlivesTheProgrammer) {
   auto block = blockOf({unicastVia(1, 1, 101)});
   loop.runUntilIdle();
   programmer = nullptr;
   loop.runUntilIdle();
   EXPECT_THAT(block, ModelChip::HasState(State::success));
   EXPECT_EQ(rowsPresent(), 4u);
   block = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 1u);
}

} // namespace
} // namespace ZandorL3Tunnel
