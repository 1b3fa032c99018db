#include "chip/model/Faults.h"
#include "swtable/testing/InterfaceTest.h"
#include "tables/L3EcmpMember0Table.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;

// A refused write leaves its predecessor in force: who hears of that one, and who owns it.
class UncoveredRowTest : public InterfaceTest {
 protected:
   using Block = L3EcmpMember0Table::EntryBlock;
   static constexpr char const* memberTable = "L3EcmpMember0Table";

   UncoveredRowTest() : InterfaceTest({{memberTable, 4}}) {
      chip->faultsIs(faults);
      other->doInit(unit, stateDatabase, chip->chipInfo());
      blocks->doInit(unit, stateDatabase, chip->chipInfo());
      for (Asic::Index index : {1, 2, 3, 4}) {
         table->entryCommit(index, interfaceOf(0));
      }
      loop.runUntilIdle();
      rowsApplied.clear();
   }

   void TearDown() override {
      faults->stop();
      table->entryRemoveAll();
      expectNothingLeft();
      EXPECT_EQ(other->handles().size(), 0u);
   }

   Block blockOf(std::initializer_list<Asic::Index> needed) const {
      Block block;
      for (auto index : needed) {
         L3EcmpMember0Table::Entry entry;
         entry.nextHopEntryHandle = table->entryWeakRef(index);
         block.entryIs(block.size(), entry);
      }
      return block;
   }

   void answer(std::uint32_t number) {
      EXPECT_TRUE(faults->releaseAnswer(number));
      loop.runUntilIdle();
   }

   Nuv::Ptr<ModelChip::Faults> faults = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<EgrL3Oif2> other = egrL3Oif2Factory("other");
   Nuv::Ptr<L3EcmpMember0Table> blocks = l3EcmpMember0TableFactory();
};

TEST_F(UncoveredRowTest, AnEarlierBlocksRowDoesNotCountAsTheLaterOnes) {
   faults->holdAnswers();
   auto earlier = blocks->entryBlockRef(blockOf({1, 2}));
   loop.runUntilIdle();
   earlier = nullptr;
   auto later = blocks->entryBlockRef(blockOf({3, 4}));
   ASSERT_EQ(later->hwEntryIndex(), 0u);
   faults->refuse({memberTable, 0, false}, 1);
   faults->refuse({memberTable, 0, true}, 1);
   loop.runUntilIdle();
   // Answers 0 and 1 are the earlier block's, 2 and 3 those of its deletes, 4 and 5 the later block's.
   for (std::uint32_t refused : {2, 4}) {
      answer(refused);
   }
   EXPECT_EQ(later->entryState(), State::failed);
   answer(0);
   answer(5);
   EXPECT_FALSE(later->isHwIndexValid()) << "its first row is not there";
   EXPECT_EQ(later->entryState(), State::failed);
   faults->stop();
   loop.runUntilIdle();
   EXPECT_FALSE(later->isHwIndexValid());
   blocks->handleEntryBlock(blockOf({3, 4}));
   loop.runUntilIdle();
   EXPECT_EQ(later->entryState(), State::success) << "programmed once more";
   EXPECT_TRUE(later->isHwIndexValid());
}

TEST_F(UncoveredRowTest, APredecessorThatWasConfirmedBeforeIsInForce) {
   faults->holdAnswers();
   auto handle = table->entryRef(7, interfaceOf(1));
   loop.runUntilIdle();
   faults->refuse({"EgrL3Oif2", 7, true}, 1);
   table->entryRef(7, interfaceOf(2));
   loop.runUntilIdle();
   answer(0);
   EXPECT_FALSE(handle->isHwIndexValid()) << "superseded";
   answer(1);
   EXPECT_EQ(handle->entryState(), State::failed);
   EXPECT_TRUE(handle->isHwIndexValid()) << "the row before is there";
   EXPECT_EQ(macInRow(7), 1);
}

TEST_F(UncoveredRowTest, ARefusedTakeoverLeavesTheRowToItsFormerOwner) {
   auto handle = table->entryRef(7, interfaceOf(1));
   loop.runUntilIdle();
   faults->refuse({"EgrL3Oif2", 7, true}, 1);
   auto taker = other->entryRef(7, interfaceOf(2));
   loop.runUntilIdle();
   EXPECT_EQ(taker->entryState(), State::failed);
   EXPECT_FALSE(taker->isHwIndexValid()) << "the row is not its own";
   EXPECT_EQ(handle->entryState(), State::success);
   rowsApplied.clear();
   taker = nullptr;
   loop.runUntilIdle();
   EXPECT_THAT(rowsApplied, ElementsAre()) << "the former owner has the row still";
   EXPECT_EQ(macInRow(7), 1);
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3Oif2 cleared 7"));
}

TEST_F(UncoveredRowTest, WhoseAnswerATakeoverOvertookHearsItWhenThatIsRefused) {
   for (bool isAnsweredFirst : {true, false}) {
      faults->holdAnswers();
      auto handle = table->entryRef(7, interfaceOf(1));
      loop.runUntilIdle();
      faults->refuse({"EgrL3Oif2", 7, true}, 1);
      auto taker = other->entryRef(7, interfaceOf(2));
      loop.runUntilIdle();
      answer(isAnsweredFirst ? 0 : 1);
      answer(isAnsweredFirst ? 1 : 0);
      EXPECT_EQ(taker->entryState(), State::failed);
      EXPECT_FALSE(taker->isHwIndexValid());
      EXPECT_EQ(handle->entryState(), State::success);
      EXPECT_TRUE(handle->isHwIndexValid());
      faults->stop();
      taker = handle = nullptr;
      loop.runUntilIdle();
   }
}

TEST_F(UncoveredRowTest, AFormerOwnerThatEndedMeanwhileLeavesTheRowToTheTaker) {
   auto handle = table->entryRef(7, interfaceOf(1));
   loop.runUntilIdle();
   faults->refuse({"EgrL3Oif2", 7, true}, 1);
   auto taker = other->entryRef(7, interfaceOf(2));
   handle = nullptr;
   EXPECT_FALSE(table->entryHas(7));
   loop.runUntilIdle();
   EXPECT_EQ(taker->entryState(), State::failed);
   EXPECT_FALSE(taker->isHwIndexValid());
   EXPECT_EQ(macInRow(7), 1);
   other->entryRef(7, interfaceOf(3));
   loop.runUntilIdle();
   EXPECT_EQ(taker->entryState(), State::success);
   EXPECT_EQ(macInRow(7), 3);
   taker = nullptr;
}

} // namespace
} // namespace ZandorL3Tunnel
