#include "chip/model/Chip.h"

#include "chip/model/testing/RowsTest.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3NextHop2Table.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace ModelChip {
namespace {

using Asic::Index;

class ChipEnds : public RowsTest {};

TEST_F(ChipEnds, AChipThatGoesLetsGoOfAllItHeld) {
   int ends = 0;
   Nuv::Ptr<Table> table(&interfaces());
   {
      Writer passing(&ends);
      auto passingOwner = passing.newOwner();
      write(5, 1, passingOwner, Nuv::make<Needed>(neededLiving));
      loop.runUntilIdle();
      write(5, 2, passingOwner, Nuv::make<Needed>(neededLiving));
      write(6, 2, passingOwner, Nuv::make<Needed>(neededLiving));
   }
   EXPECT_EQ(neededLiving, 3);
   EXPECT_EQ(ends, 0);
   chip = nullptr;
   EXPECT_EQ(neededLiving, 0);
   EXPECT_EQ(ends, 1);
   EXPECT_EQ(table->unanswered(), 0u);
   EXPECT_EQ(loop.runUntilIdle(), 0u);
}

TEST_F(ChipEnds, WithoutItsChipATableTakesRowsAndNeitherAnswersNorHoldsThem) {
   int ends = 0;
   Nuv::Ptr<Table> table(&interfaces());
   chip = nullptr;
   {
      Writer passing(&ends);
      auto passingOwner = passing.newOwner();
      for (int round = 0; round < 2; ++round) {
         table->rowIs(5, Words(3, 1), *passingOwner, Nuv::make<Needed>(neededLiving));
         loop.runUntilIdle();
      }
      table->rowDel(5, *passingOwner, passing.table.get());
      EXPECT_EQ(passingOwner->confirmations, 0);
      EXPECT_EQ(neededLiving, 0);
   }
   EXPECT_EQ(ends, 1);
   EXPECT_FALSE(table->hasRow(5));
}

TEST_F(ChipEnds, AnAnswerThatIsDueWhenTheChipGoesNeverComes) {
   write(5, 1, owner);
   loop.runUntilIdle();
   Nuv::Ptr<Table> table(&interfaces());
   write(5, 1, owner);
   write(6, 1, owner);
   chip = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(writer.table->references(), 1u);
}

TEST_F(ChipEnds, WhoHearsAnAnswerMayEndTheChip) {
   write(5, 1, owner, Nuv::make<Needed>(neededLiving));
   write(6, 1, owner);
   owner->onRowConfirmed = [this] { chip = nullptr; };
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(neededLiving, 0);
}

/// Real tables over the chip, every part of which may end at any time.
struct Parts {
   Parts() {
      chip->publish(*stateDatabase, 0);
      interfaces->doInit(0, stateDatabase, chip->chipInfo());
      nextHops->doInit(0, stateDatabase, chip->chipInfo());
      write(1);
   }

   static ZandorL3Tunnel::L3UnderlayNextHopKey key(std::uint16_t interface) {
      ZandorL3Tunnel::L3UnderlayNextHopKey key;
      key.l3Id = {interface};
      return key;
   }

   static void writeInterface(ZandorL3Tunnel::EgrL3Oif2& table, std::uint8_t value) {
      ZandorL3Tunnel::EgrL3Oif2::Entry entry;
      entry.srcMacAddress = {{2, 0, 0, 0, 0, value}};
      table.entryCommit(1, entry);
   }

   /// Another table writes the same interface over again.
   void writeEqual() {
      successor->doInit(0, stateDatabase, chip->chipInfo());
      writeInterface(*successor, 1);
   }

   void write(std::uint8_t value) {
      writeInterface(*interfaces, value);
      ZandorL3Tunnel::IngL3NextHop2Table::Entry ing;
      ing.destinationId = value;
      ZandorL3Tunnel::EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = interfaces->entryWeakRef(1);
      nextHop = nextHops->entryWrite(key(1), ing, egr, Asic::AutoRemoveType::automatic);
   }

   std::unique_ptr<Nuv::ReactionLoop> loop = std::make_unique<Nuv::ReactionLoop>();
   Nuv::Ptr<Chip> chip = Nuv::make<Chip>(*loop);
   Nuv::Ptr<Kallo::EntityManager> stateDatabase = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<ZandorL3Tunnel::EgrL3Oif2> interfaces = ZandorL3Tunnel::egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<ZandorL3Tunnel::EgrL3Oif2> successor = ZandorL3Tunnel::egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<ZandorL3Tunnel::L3NextHop2Table> nextHops = ZandorL3Tunnel::l3NextHop2TableFactory();
   Nuv::Ptr<Asic::SwTableBase::EntryHandle const> nextHop;
};

/// How far the parts had come when the first of them ended.
enum class Progress { nothingApplied, inMidst, idle, rewriting, equalRewrite, equalRewriteBehindUnanswered };

class EndsInAnyOrder : public testing::TestWithParam<std::tuple<std::string, Progress>> {};

INSTANTIATE_TEST_SUITE_P(Orders, EndsInAnyOrder,
                         testing::Combine(testing::ValuesIn([] {
                                             std::vector<std::string> orders;
                                             std::string order = "chlt";
                                             do {
                                                orders.push_back(order);
                                             } while (std::next_permutation(order.begin(), order.end()));
                                             return orders;
                                          }()),
                                          testing::Values(Progress::nothingApplied, Progress::inMidst,
                                                          Progress::idle, Progress::rewriting,
                                                          Progress::equalRewrite,
                                                          Progress::equalRewriteBehindUnanswered)),
                         [](auto const& each) {
                            return std::get<0>(each.param) + std::to_string(int(std::get<1>(each.param)));
                         });

// The sanitizer build checks that nothing is left.
TEST_P(EndsInAnyOrder, ChipHandleLoopAndTables) {
   auto const& [order, progress] = GetParam();
   Parts parts;
   int chipEnds = 0;
   parts.chip->rowObserverIs(
         [end = std::shared_ptr<int>(&chipEnds, [](int* count) { ++*count; })](Table const&, Index) {});
   switch (progress) {
   case Progress::nothingApplied:
      break;
   case Progress::inMidst:
      for (int step = 0; step < 5; ++step) {
         parts.loop->runOne();
      }
      break;
   case Progress::idle:
      parts.loop->runUntilIdle();
      break;
   case Progress::rewriting:
      parts.loop->runUntilIdle();
      parts.write(2);
      break;
   case Progress::equalRewrite:
      parts.loop->runUntilIdle();
      parts.writeEqual();
      break;
   case Progress::equalRewriteBehindUnanswered:
      parts.writeEqual();
      break;
   }
   parts.stateDatabase = nullptr;
   for (char part : order) {
      switch (part) {
      case 'c':
         parts.chip = nullptr;
         break;
      case 'h':
         parts.nextHop = nullptr;
         break;
      case 'l':
         parts.loop = nullptr;
         break;
      case 't':
         parts.nextHops = nullptr;
         parts.interfaces = nullptr;
         parts.successor = nullptr;
         break;
      }
      if (parts.loop) {
         parts.loop->runOne();
      }
   }
   EXPECT_EQ(chipEnds, 1);
}

} // namespace
} // namespace ModelChip
