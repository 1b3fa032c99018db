#include "chip/model/Memory.h"

#include "chip/model/Layouts.h"
#include "chip/model/testing/RowsTest.h"
#include "platform/nuv/Exception.h"

namespace ModelChip {
namespace {

using Asic::Index;
using testing::ElementsAre;

class MemoryTest : public RowsTest {
 protected:
   MemoryTest() { restart(); }

   /// The chip goes, and another one takes its place.
   void restart() {
      chip = nullptr;
      chip = newChip(loop, memory);
   }

   /// Rows 5, 6 and 7, with their numbers as words.
   void writeThreeRows() {
      for (std::uint32_t row : {5u, 6u, 7u}) {
         write(row, row, owner);
      }
      loop.runUntilIdle();
   }

   Nuv::Ptr<Memory> memory = Nuv::make<Memory>();
};

TEST_F(MemoryTest, RowsOfOneChipAreThereInTheNext) {
   writeThreeRows();
   restart();
   EXPECT_EQ(interfaces().rowsPresent(), 3u);
   EXPECT_EQ(rowAt(6), Words(3, 6));
   EXPECT_FALSE(interfaces().hasRow(8));
   EXPECT_EQ(chip->table("EgrL3NextHop2")->rowsPresent(), 0u);
}

TEST_F(MemoryTest, AChipWithoutOneStartsEmpty) {
   writeThreeRows();
   EXPECT_EQ(newChip(loop)->table("EgrL3Oif2")->rowsPresent(), 0u);
}

TEST_F(MemoryTest, CommandsThatWereNotAppliedAreLostWithTheirChip) {
   write(5, 1, owner);
   write(6, 1, owner);
   loop.runOne();
   restart();
   EXPECT_TRUE(interfaces().hasRow(5));
   loop.runUntilIdle();
   EXPECT_FALSE(interfaces().hasRow(6));
}

TEST_F(MemoryTest, ARowThatIsClearedIsNotThereInTheNext) {
   writeThreeRows();
   clear(6, owner);
   loop.runUntilIdle();
   restart();
   EXPECT_EQ(interfaces().rowsPresent(), 2u);
   EXPECT_FALSE(interfaces().hasRow(6));
   EXPECT_EQ(rowAt(6), Words(3, 0));
}

TEST_F(MemoryTest, AChipOfAnotherSizeIsRefused) {
   EXPECT_THAT(
         [&] {
            Nuv::make<Chip>(loop, Chip::Sizes{{"EgrL3Oif2", 299}}, memory);
         },
         testing::ThrowsMessage<Nuv::RangeException>("table 'EgrL3Oif2' has 300 rows in memory, not 299"));
}

TEST_F(MemoryTest, EqualWritesOverRecoveredRowsIssueNothingAndAreAnswered) {
   writeThreeRows();
   restart();
   interfaces().recover();
   EXPECT_EQ(interfaces().commandsIssued(), 0u);
   auto before = owner->confirmations;
   write(5, 5, owner);
   write(7, 7, owner);
   loop.runUntilIdle();
   EXPECT_EQ(interfaces().commandsIssued(), 0u);
   EXPECT_EQ(owner->confirmations, before + 2);
   write(6, 66, owner);
   loop.runUntilIdle();
   EXPECT_EQ(interfaces().commandsIssued(), 1u);
   EXPECT_EQ(rowAt(6), Words(3, 66));
}

TEST_F(MemoryTest, WithoutRecoveryAnEqualWriteIsIssued) {
   writeThreeRows();
   restart();
   write(5, 5, owner);
   EXPECT_EQ(interfaces().commandsIssued(), 1u);
}

TEST_F(MemoryTest, PurgeClearsWhatNobodyWroteAgain) {
   writeThreeRows();
   write(299, 8, owner);
   write(0, 9, owner);
   loop.runUntilIdle();
   restart();
   interfaces().recover();
   write(5, 5, owner);  // equal
   write(7, 77, owner); // another one
   write(8, 8, owner);  // where there was none
   EXPECT_EQ(interfaces().purge(), 3u);
   loop.runUntilIdle();
   std::vector<Index> present;
   for (Index index = 0; index < interfaces().numEntries(); ++index) {
      if (interfaces().hasRow(index)) {
         present.push_back(index);
      }
   }
   EXPECT_THAT(present, ElementsAre(5, 7, 8));
   EXPECT_EQ(rowAt(7), Words(3, 77));
   EXPECT_EQ(interfaces().unanswered(), 0u);
   EXPECT_EQ(interfaces().purge(), 0u);
}

TEST_F(MemoryTest, ARecoveredRowBelongsToNobody) {
   writeThreeRows();
   restart();
   interfaces().recover();
   clear(5, owner);
   EXPECT_FALSE(awaitedClear(6, owner));
   EXPECT_EQ(interfaces().commandsIssued(), 0u);
   write(5, 5, owner);
   clear(5, owner);
   loop.runUntilIdle();
   EXPECT_FALSE(interfaces().hasRow(5));
}

TEST_F(MemoryTest, RowsWrittenBeforeRecoveryAreLeftAlone) {
   writeThreeRows();
   restart();
   write(5, 55, owner);
   write(6, 66, owner);
   clear(6, owner);
   interfaces().recover();
   EXPECT_EQ(interfaces().purge(), 1u);
   loop.runUntilIdle();
   EXPECT_EQ(rowAt(5), Words(3, 55));
   EXPECT_EQ(interfaces().rowsPresent(), 1u);
}

TEST_F(MemoryTest, APurgeThatIsRefusedIsTriedAgain) {
   writeThreeRows();
   restart();
   auto faults = Nuv::make<Faults>();
   chip->faultsIs(faults);
   interfaces().recover();
   faults->refuse({"EgrL3Oif2", 6, false}, 3);
   EXPECT_EQ(interfaces().purge(), 3u);
   loop.runUntilIdle();
   EXPECT_EQ(interfaces().rowsPresent(), 0u);
   EXPECT_EQ(faults->counts().refused, 3u);
}

TEST_F(MemoryTest, AChipThatIsGoneIsNotPurged) {
   writeThreeRows();
   write(8, 8, owner);
   restart();
   interfaces().recover();
   Nuv::Ptr<Table> table(&interfaces());
   ASSERT_TRUE((write(8, 8, owner), awaitedClear(8, owner)));
   owner->onRowDeleted = [&] { EXPECT_EQ(table->purge(), 0u); };
   chip = nullptr;
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_EQ(table->unanswered(), 0u);
   table->recover();
   EXPECT_EQ(table->purge(), 0u);
}

} // namespace
} // namespace ModelChip
