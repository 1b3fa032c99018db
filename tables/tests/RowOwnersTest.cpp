#include "chip/model/Faults.h"
#include "chip/model/testing/ChipTest.h"
#include "platform/asic/DontCareHandle.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Three tables over the same rows, as when a programmer's tables were made anew: a row stays as long as one
/// of them wants it.
class RowOwnersTest : public ModelChip::ChipTest {
 protected:
   RowOwnersTest() {
      chip->faultsIs(faults);
      for (auto& table : tables) {
         table->doInit(unit, stateDatabase, chip->chipInfo());
      }
   }

   Handle write(std::size_t table, std::uint16_t value) {
      EgrL3Oif2::Entry entry;
      entry.tnlVlanTag = value;
      return tables[table]->entryRef(5, entry);
   }

   std::uint64_t valueInChip() const {
      return ModelChip::EgrL3Oif2::vlanTag.unpack(chip->table("EgrL3Oif2")->row(5));
   }

   std::vector<Pelm::String> rowsSince() {
      loop.runUntilIdle();
      return std::exchange(rowsApplied, {});
   }

   Nuv::Ptr<ModelChip::Faults> faults = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<EgrL3Oif2> tables[3] = {egrL3Oif2Factory("first"), egrL3Oif2Factory("second"),
                                    egrL3Oif2Factory("third")};
};

TEST_F(RowOwnersTest, ARowStaysUntilTheLastOfItsTablesLetsGoInAnyOrder) {
   std::vector<std::size_t> order{0, 1, 2};
   do {
      Handle held[] = {write(0, 7), write(1, 7), write(2, 7)};
      EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 written 5"));
      for (std::size_t at = 0; at < 3; ++at) {
         EXPECT_TRUE(chip->table("EgrL3Oif2")->hasRow(5));
         for (std::size_t left = at; left < 3; ++left) {
            EXPECT_THAT(held[order[left]], ModelChip::HasState(State::success));
            EXPECT_TRUE(held[order[left]]->isHwIndexValid());
         }
         held[order[at]] = nullptr;
         EXPECT_FALSE(at < 2 && !rowsSince().empty());
      }
      EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 cleared 5"));
      for (auto const& table : tables) {
         EXPECT_EQ(table->handles().size(), 0u);
      }
   } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(RowOwnersTest, WhoseRowItWasHasItsOwnWordsBack) {
   auto first = write(0, 7);
   rowsSince();
   auto second = write(1, 8);
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 written 5"));
   EXPECT_EQ(valueInChip(), 8u) << "a row belongs to who wrote it last";
   second = nullptr;
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 written 5"));
   EXPECT_EQ(valueInChip(), 7u);
   EXPECT_EQ(tables[1]->handles().size(), 0u);
   first = nullptr;
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 cleared 5"));
}

TEST_F(RowOwnersTest, WhoWritesAgainTakesTheRowBack) {
   auto first = write(0, 7);
   auto second = write(1, 7);
   write(0, 9);
   rowsSince();
   EXPECT_EQ(valueInChip(), 9u);
   second = nullptr;
   EXPECT_THAT(rowsSince(), IsEmpty());
   EXPECT_EQ(valueInChip(), 9u);
   first = nullptr;
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 cleared 5"));
}

TEST_F(RowOwnersTest, AnAnswerIsForAllWhoseWordsItConfirms) {
   auto first = write(0, 7);
   auto second = write(1, 7);
   EXPECT_EQ(commandsIssued(), 1u);
   loop.runUntilIdle();
   EXPECT_THAT(first, ModelChip::HasState(State::success));
   EXPECT_THAT(second, ModelChip::HasState(State::success));
   EXPECT_TRUE(first->isHwIndexValid());
}

TEST_F(RowOwnersTest, ARefusalIsForAllWhoseWordsItRefuses) {
   faults->refuse({}, 1);
   auto first = write(0, 7);
   auto second = write(1, 7);
   loop.runUntilIdle();
   EXPECT_THAT(first, ModelChip::HasState(State::failed));
   EXPECT_THAT(second, ModelChip::HasState(State::failed));
}

TEST_F(RowOwnersTest, AnEqualWriteThatComesBetweenIsAnsweredToo) {
   auto first = write(0, 7);
   rowsSince();
   tables[0]->handleEntry(5);
   auto second = write(1, 7);
   auto third = write(2, 7);
   EXPECT_THAT(first, ModelChip::HasState(State::inProgress));
   EXPECT_THAT(rowsSince(), IsEmpty());
   EXPECT_THAT(first, ModelChip::HasState(State::success));
   EXPECT_THAT(second, ModelChip::HasState(State::success));
   EXPECT_THAT(third, ModelChip::HasState(State::success));
}

TEST_F(RowOwnersTest, RowsThatAreThereFromARunBeforeAnswerAllWhoWriteThem) {
   auto const memory = write(0, 7);
   rowsSince();
   tables[0]->hasNotificationActiveIs(false);
   tables[0]->cleanup();
   tables[1]->syncEntries();
   auto second = write(1, 7);
   auto third = write(2, 7);
   EXPECT_THAT(rowsSince(), IsEmpty());
   EXPECT_THAT(second, ModelChip::HasState(State::success));
   EXPECT_THAT(third, ModelChip::HasState(State::success));
}

TEST_F(RowOwnersTest, ARowThatARefusalUncoversIsConfirmedToAllWhoWroteIt) {
   for (bool isAnsweredBefore : {false, true}) {
      faults->holdAnswers();
      auto first = write(0, 7);
      auto second = write(1, 7);
      loop.runUntilIdle();
      faults->refuse({"EgrL3Oif2", {}, true}, 1);
      write(1, 8);
      loop.runUntilIdle();
      EXPECT_TRUE(faults->releaseAnswer(isAnsweredBefore ? 0 : 1));
      loop.runUntilIdle();
      faults->stop();
      loop.runUntilIdle();
      EXPECT_EQ(valueInChip(), 7u);
      EXPECT_THAT(first, ModelChip::HasState(State::success)) << isAnsweredBefore;
      first = second = nullptr;
      loop.runUntilIdle();
   }
}

TEST_F(RowOwnersTest, OneWhoseWordsAreNotThereIsNotConfirmedUntilTheRowIsItsOwn) {
   auto first = write(0, 7);
   auto second = write(1, 8);
   rowsSince();
   EXPECT_THAT(first, ModelChip::HasState(State::inProgress));
   second = nullptr;
   rowsSince();
   EXPECT_THAT(first, ModelChip::HasState(State::success));
}

TEST_F(RowOwnersTest, ATableThatIsTakenDownGivesItsRowsBack) {
   auto first = write(0, 7);
   auto second = write(1, 7);
   rowsSince();
   tables[1]->cleanup();
   EXPECT_THAT(rowsSince(), IsEmpty());
   tables[0]->cleanup();
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 cleared 5"));
}

TEST_F(RowOwnersTest, AChipThatGoesLeavesNobodyWaiting) {
   auto first = write(0, 7);
   auto second = write(1, 8);
   loop.runOne();
   chip = nullptr;
   second = nullptr;
   first = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(tables[0]->handles().size(), 0u);
   EXPECT_EQ(tables[1]->handles().size(), 0u);
}

/// The same of blocks, whose rows go and come back together.
class BlockOwnersTest : public RowOwnersTest {
 protected:
   BlockOwnersTest() {
      for (auto& table : blocks) {
         table->doInit(unit, stateDatabase, chip->chipInfo());
      }
      chip->rowObserverIs([this](ModelChip::Table const& table, Asic::Index index) {
         rowsApplied.push_back(Nuv::text(table.hasRow(index) ? "written " : "cleared ", index));
      });
   }

   Handle write(std::size_t table) {
      L3UnderlayEcmpMember1Table::EntryBlock block;
      L3UnderlayEcmpMember1Table::Entry member;
      member.underlayEcmpNextHopIndexHandle = SwTableWorkaround::dontCareHandle(3);
      block.entryIs(0, member);
      block.entryIs(1, member);
      return blocks[table]->entryBlockRef(block);
   }

   Nuv::Ptr<L3UnderlayEcmpMember1Table> blocks[2] = {l3UnderlayEcmpMember1TableFactory(),
                                                     l3UnderlayEcmpMember1TableFactory()};
};

TEST_F(BlockOwnersTest, ABlockStaysUntilTheLastOfItsTablesLetsGoInEitherOrder) {
   for (std::size_t goesFirst : {0u, 1u}) {
      Handle held[] = {write(0), write(1)};
      EXPECT_THAT(rowsSince(), ElementsAre("written 0", "written 1"));
      EXPECT_TRUE(held[0]->isHwIndexValid());
      EXPECT_TRUE(held[1]->isHwIndexValid());
      held[goesFirst] = nullptr;
      EXPECT_THAT(rowsSince(), IsEmpty());
      EXPECT_TRUE(held[1 - goesFirst]->isHwIndexValid());
      held[1 - goesFirst] = nullptr;
      EXPECT_THAT(rowsSince(), ElementsAre("cleared 0", "cleared 1"));
      EXPECT_EQ(blocks[0]->indexAllocator()->used(), 0u);
   }
}

TEST_F(BlockOwnersTest, ABlockThatComesBackWaitsForTheAnswersOfAllItsRows) {
   faults->hold({{}, 1, {}});
   auto first = write(0);
   auto second = write(1);
   rowsSince();
   second = nullptr;
   rowsSince();
   EXPECT_FALSE(first->isHwIndexValid());
   faults->stop();
   rowsSince();
   EXPECT_TRUE(first->isHwIndexValid());
}

} // namespace
} // namespace ZandorL3Tunnel
