#include "swtable/testing/InterfaceTest.h"
#include "tables/EgrL3NextHop2.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;

/// Does something when the handle's index is valid no longer: on the way out of its table.
class EndWatch final : public Asic::SwTableBase::EntryHandle::Notifiee {
 public:
   EndWatch(Asic::SwTableBase::EntryHandle const& handle, std::function<void()> onEnd)
       : handle_(handle), onEnd_(std::move(onEnd)) {
      handle.notifieeIs(*this);
   }

   void handleHwIndexValid() override {
      if (!handle_.isHwIndexValid()) {
         auto onEnd = std::exchange(onEnd_, {});
         if (onEnd) {
            onEnd();
         }
      }
   }

 private:
   Asic::SwTableBase::EntryHandle const& handle_;
   std::function<void()> onEnd_;
};

class ReentryTest : public InterfaceTest {
 protected:
   ReentryTest() : InterfaceTest({{"EgrL3Oif2", 16384}}) {}
};

TEST_F(ReentryTest, KeyWrittenAnewByAnObserverOfItsEndIsTakenBackIntoUse) {
   struct Writer final : ResolvedEntryNotifiee<Asic::Index> {
      explicit Writer(EgrL3Oif2& to) : table(to) {}
      void handleResolvedEntry(Asic::Index const& index) override {
         if (!table.resolvedEntry(index) && !isDone) {
            isDone = true;
            table.entryCommit(index, interfaceOf(9));
         }
      }
      EgrL3Oif2& table;
      bool isDone{};
   };
   auto handle = table->entryRef(3, interfaceOf(7));
   loop.runUntilIdle();
   Writer writer(*table);
   table->resolvedEntryNotifiees().notifieeIs(writer);
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_TRUE(writer.isDone);
   EXPECT_EQ(macInRow(3), 9);
   EXPECT_EQ(table->entryHandle(3)->entryState(), State::success);
   table->entryRemove(3);
   loop.runUntilIdle();
   EXPECT_EQ(table->handles().size(), 0u);
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(ReentryTest, HandlesMayBeDroppedWhileTheirTableIsTakenDown) {
   std::vector<Handle> handles;
   for (Asic::Index index = 1; index <= 3; ++index) {
      handles.push_back(table->entryRef(index, interfaceOf(1)));
   }
   loop.runUntilIdle();
   std::vector<std::unique_ptr<EndWatch>> watches;
   for (auto const& handle : handles) {
      watches.push_back(std::make_unique<EndWatch>(*handle, [&] { handles.clear(); }));
   }
   table->cleanup();
   loop.runUntilIdle();
   EXPECT_TRUE(handles.empty());
   EXPECT_EQ(rowsPresent(), 0u);
   EXPECT_EQ(table->handles().size(), 0u);
}

TEST_F(ReentryTest, TableThatWasTakenDownTakesNoEntries) {
   table->cleanup();
   EXPECT_FALSE(table->entryCommit(3, interfaceOf(7)));
   EXPECT_FALSE(table->entryRef(4, interfaceOf(7)));
   table->cleanup();
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(ReentryTest, AnswerOfTheOldRowIsOnlyRecordedWhenTheNewValueFailed) {
   auto nextHops = egrL3NextHop2Factory("EgrL3NextHop2");
   nextHops->doInit(unit, stateDatabase, chip->chipInfo());
   table->entryCommit(5, interfaceOf(1));
   table->entryCommit(0x2000, interfaceOf(2));
   loop.runUntilIdle();
   EgrL3NextHop2::Entry narrow;
   narrow.l3Oif2Handle = table->entryWeakRef(5);
   EgrL3NextHop2::Entry wide;
   wide.l3Oif2Handle = table->entryWeakRef(0x2000);
   auto nextHop = nextHops->entryRef(1, narrow);
   nextHops->entryRef(1, wide);
   EXPECT_EQ(nextHop->entryState(), State::failed);
   loop.runUntilIdle();
   EXPECT_EQ(nextHop->entryState(), State::failed);
   nextHops->entryRef(1, narrow);
   EXPECT_EQ(nextHop->entryState(), State::success);
}

TEST_F(ReentryTest, ObserverThatThrowsStopsNeitherTheRowNorTheOthers) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   ModelChip::StateWatch first(*handle);
   ModelChip::StateWatch second(*handle);
   first.onState = [] { throw std::runtime_error("observer"); };
   EXPECT_THROW(table->entryCommit(3, interfaceOf(8)), std::runtime_error);
   first.onState = {};
   loop.runUntilIdle();
   EXPECT_EQ(macInRow(3), 8);
   EXPECT_THAT(second.states, ElementsAre(State::unresolved, State::inProgress, State::success));
}

TEST_F(ReentryTest, ObserverThatThrowsAtTheEndStopsNothing) {
   struct Thrower final : ResolvedEntryNotifiee<Asic::Index> {
      void handleResolvedEntry(Asic::Index const&) override { throw std::runtime_error("observer"); }
   };
   auto handle = table->entryRef(3, interfaceOf(7));
   loop.runUntilIdle();
   Thrower thrower;
   table->resolvedEntryNotifiees().notifieeIs(thrower);
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(table->handles().size(), 0u);
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(ReentryTest, WhatAnObserverThrowsAtTheEndLeavesThroughTheRemoval) {
   struct Thrower final : ResolvedEntryNotifiee<Asic::Index> {
      void handleResolvedEntry(Asic::Index const&) override { throw std::runtime_error("observer"); }
   };
   Thrower thrower;
   for (Asic::Index index : {3, 4, 5}) {
      table->entryCommit(index, interfaceOf(7));
   }
   loop.runUntilIdle();
   table->resolvedEntryNotifiees().notifieeIs(thrower);
   EXPECT_THROW(table->entryRemove(3), std::runtime_error);
   EXPECT_THROW(table->entryRemoveAll(), std::runtime_error);
   loop.runUntilIdle();
   EXPECT_EQ(table->handles().size(), 0u);
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(ReentryTest, ATableMayLoseItsLastHolderWhileItIsTakenDown) {
   struct LetGo final : Asic::SwTableBase::EntryHandle::Notifiee {
      explicit LetGo(Nuv::Ptr<EgrL3Oif2>& of) : table(of) {}
      void handleSwTable() override { table = nullptr; }
      Nuv::Ptr<EgrL3Oif2>& table;
   };
   auto plain = egrL3Oif2Factory("plain");
   auto handle = plain->entryRef(1, interfaceOf(7));
   auto other = plain->entryRef(2, interfaceOf(7));
   LetGo letGo(plain);
   handle->notifieeIs(letGo);
   plain->cleanup();
   EXPECT_FALSE(plain);
   EXPECT_EQ(other->references(), 1u);
}

TEST_F(ReentryTest, AHandlersEndMayRemoveTheEntryAgain) {
   struct AtEnd {
      explicit AtEnd(std::function<void()> what) : run(std::move(what)) {}
      AtEnd(AtEnd const&) = delete;
      AtEnd& operator=(AtEnd const&) = delete;
      ~AtEnd() { run(); }
      std::function<void()> run;
   };
   auto remove = [this] { return std::make_shared<AtEnd>([this] { table->entryRemove(3); }); };
   table->entryCommitWithResponseHandler(3, interfaceOf(7), [end = remove()](State) {});
   table->entryRemove(3);
   loop.runUntilIdle();
   EXPECT_EQ(table->handles().size(), 0u);
   table->entryCommitWithResponseHandler(3, interfaceOf(7), [end = remove()](State) {});
   table->entryCommit(3, interfaceOf(8));
   loop.runUntilIdle();
   EXPECT_EQ(table->handles().size(), 0u) << "the replaced handler removed what replaced it";
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(ReentryTest, WhoNeedsAnEntryThatLeavesItsTableFails) {
   auto nextHops = egrL3NextHop2Factory("EgrL3NextHop2");
   nextHops->doInit(unit, stateDatabase, chip->chipInfo());
   table->entryCommit(5, interfaceOf(1));
   loop.runUntilIdle();
   table->entryRemove(5);
   EgrL3NextHop2::Entry entry;
   entry.l3Oif2Handle = table->entryWeakRef(5);
   auto nextHop = nextHops->entryRef(1, entry);
   EXPECT_EQ(nextHop->entryState(), State::unresolved);
   loop.runUntilIdle();
   EXPECT_EQ(nextHop->entryState(), State::failedNeededEntry);
   auto late = nextHops->entryRef(2, entry);
   EXPECT_EQ(late->entryState(), State::failedNeededEntry);
   table->entryCommit(5, interfaceOf(1));
   entry.l3Oif2Handle = table->entryWeakRef(5);
   nextHops->entryRef(1, entry);
   loop.runUntilIdle();
   EXPECT_EQ(nextHop->entryState(), State::success);
}

TEST_F(ReentryTest, WhoWaitsWhenItsNeededTableIsTakenDownFails) {
   auto nextHops = egrL3NextHop2Factory("EgrL3NextHop2");
   nextHops->doInit(unit, stateDatabase, chip->chipInfo());
   EgrL3NextHop2::Entry entry;
   entry.l3Oif2Handle = table->entryCommit(5, interfaceOf(1));
   auto nextHop = nextHops->entryRef(1, entry);
   table->cleanup();
   EXPECT_EQ(nextHop->entryState(), State::failedNeededEntry);
   loop.runUntilIdle();
   EXPECT_EQ(nextHop->entryState(), State::failedNeededEntry);
}

TEST_F(ReentryTest, AnAnswerThatIsDueIsHeardAfterAnswersWereSwitchedOff) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   table->responseEnabledIs(false);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
}

TEST_F(ReentryTest, AnIteratorWhoseEntryIsRemovedGoesOnToTheNext) {
   table->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   auto at = table->entryIteratorConst(3);
   ASSERT_TRUE(at);
   table->entryRemove(3);
   EXPECT_FALSE(at);
}

} // namespace
} // namespace ZandorL3Tunnel
