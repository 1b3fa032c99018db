#include "swtable/testing/InterfaceTest.h"
#include "tables/EgrL3NextHop2.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ResponseHandlerTest : public InterfaceTest {
 protected:
   Asic::SwTableBase::ResponseFunction writeDown() {
      return [this](State state) { heard.push_back(state); };
   }

   std::vector<State> heard;
};

TEST_F(ResponseHandlerTest, HearsProgressBeforeTheCommitReturnsAndSuccessWithTheAnswer) {
   table->entryCommitWithResponseHandler(3, interfaceOf(7), writeDown());
   EXPECT_THAT(heard, ElementsAre(State::inProgress));
   loop.runUntilIdle();
   EXPECT_THAT(heard, ElementsAre(State::inProgress, State::success));
}

TEST_F(ResponseHandlerTest, IsDroppedAfterTheFirstSuccess) {
   auto counted = std::make_shared<int>();
   table->entryCommitWithResponseHandler(3, interfaceOf(7),
                                         [this, counted](State state) { heard.push_back(state); });
   EXPECT_EQ(counted.use_count(), 2);
   loop.runUntilIdle();
   EXPECT_EQ(counted.use_count(), 1);
   table->entryRef(3, interfaceOf(8));
   loop.runUntilIdle();
   EXPECT_THAT(heard, ElementsAre(State::inProgress, State::success));
}

TEST_F(ResponseHandlerTest, HearsEveryFailureAndStays) {
   auto const outside = table->maxIndex() + 1;
   table->entryCommitWithResponseHandler(outside, interfaceOf(7), writeDown());
   EXPECT_THAT(heard, ElementsAre(State::inProgress, State::failed));
   table->entryRef(outside, interfaceOf(8));
   EXPECT_THAT(heard, ElementsAre(State::inProgress, State::failed, State::inProgress, State::failed));
}

TEST_F(ResponseHandlerTest, HearsThatANeededEntryFailedAndWhatComesAfter) {
   auto nextHops = egrL3NextHop2Factory("EgrL3NextHop2");
   nextHops->doInit(unit, stateDatabase, chip->chipInfo());
   auto const outside = table->maxIndex() + 1;
   table->entryCommit(outside, interfaceOf(7));
   table->entryCommit(5, interfaceOf(7));
   EgrL3NextHop2::Entry nextHop;
   nextHop.l3Oif2Handle = table->entryWeakRef(outside);
   nextHops->entryCommitWithResponseHandler(1, nextHop, writeDown());
   EXPECT_THAT(heard, ElementsAre(State::failedNeededEntry));
   nextHop.l3Oif2Handle = table->entryWeakRef(5);
   nextHops->entryRef(1, nextHop);
   loop.runUntilIdle();
   EXPECT_THAT(heard, ElementsAre(State::failedNeededEntry, State::inProgress, State::success));
}

TEST_F(ResponseHandlerTest, EqualCommitReplacesItAndTellsTheNewOneNothing) {
   table->entryCommitWithResponseHandler(3, interfaceOf(7), writeDown());
   loop.runUntilIdle();
   heard.clear();
   std::vector<State> second;
   table->entryCommitWithResponseHandler(3, interfaceOf(7), [&](State state) { second.push_back(state); });
   loop.runUntilIdle();
   EXPECT_THAT(second, IsEmpty());
   table->entryRef(3, interfaceOf(8));
   loop.runUntilIdle();
   EXPECT_THAT(second, ElementsAre(State::inProgress, State::success));
   EXPECT_THAT(heard, IsEmpty());
}

TEST_F(ResponseHandlerTest, ALaterCommitReplacesItAlsoWithNone) {
   table->entryCommitWithResponseHandler(3, interfaceOf(7), writeDown());
   heard.clear();
   table->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   EXPECT_THAT(heard, IsEmpty());
}

TEST_F(ResponseHandlerTest, AReferenceLeavesTheCommitsHandlerAlone) {
   table->entryCommitWithResponseHandler(3, interfaceOf(7), writeDown());
   auto reference = table->entryRef(3, interfaceOf(7));
   loop.runUntilIdle();
   EXPECT_THAT(heard, ElementsAre(State::inProgress, State::success));
}

TEST_F(ResponseHandlerTest, RemovalDestroysIt) {
   auto counted = std::make_shared<int>();
   auto handle = table->entryCommitWithResponseHandler(3, interfaceOf(7), [counted](State) {});
   table->entryRemove(3);
   EXPECT_EQ(counted.use_count(), 1);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(ResponseHandlerTest, OnlyACommitTakesIt) {
   auto reference = table->entryWriteWithResponseHandler(3, interfaceOf(7), writeDown(),
                                                         Asic::AutoRemoveType::automatic);
   table->entryWriteWithResponseHandler(4, interfaceOf(7), {}, Asic::needsExplicitRemove());
   EXPECT_THAT(heard, IsEmpty());
   table->entryWriteWithResponseHandler(5, interfaceOf(7), writeDown(), Asic::needsExplicitRemove());
   table->entryWriteWithResponseHandler(6, interfaceOf(7), writeDown());
   EXPECT_THAT(heard, ElementsAre(State::inProgress, State::inProgress));
   using Type = EgrL3Oif2::EntryHandle::EntryType;
   EXPECT_EQ(table->entryHandle(3)->entryType(), Type::referenceOnly);
   for (Asic::Index committed : {4, 5, 6}) {
      EXPECT_EQ(table->entryHandle(committed)->entryType(), Type::committed);
   }
}

TEST_F(ResponseHandlerTest, WriteCommitsOnlyWithTheNeedForRemoval) {
   table->entryWrite(3, interfaceOf(7), Asic::needsExplicitRemove());
   table->entryWrite(4, interfaceOf(7), Asic::AutoRemoveType::automatic);
   table->entryWrite(5, interfaceOf(7), Asic::AutoRemoveType(2));
   loop.runUntilIdle();
   EXPECT_TRUE(table->entryHas(3));
   EXPECT_FALSE(table->entryHas(4));
   EXPECT_FALSE(table->entryHas(5));
}

TEST_F(ResponseHandlerTest, OneThatTurnsOutEmptyIsABadFunctionCall) {
   std::function<void()> empty;
   EXPECT_THROW(table->entryCommitWithResponseHandler(3, interfaceOf(7), [&](State) { empty(); }),
                std::bad_function_call);
   empty = [] {};
   loop.runUntilIdle();
   EXPECT_EQ(table->entryHandle(3)->entryState(), State::success);
}

TEST_F(ResponseHandlerTest, WhatItThrowsLeavesTheTableConsistent) {
   auto handler = [](State) { throw std::runtime_error("handler"); };
   EXPECT_THROW(table->entryCommitWithResponseHandler(3, interfaceOf(7), handler), std::runtime_error);
   EXPECT_THROW(loop.runUntilIdle(), std::runtime_error);
   loop.runUntilIdle();
   EXPECT_EQ(table->entryHandle(3)->entryState(), State::success);
   EXPECT_EQ(table->entry(3), interfaceOf(7));
   EXPECT_EQ(rowsPresent(), 1u);
   table->entryRemove(3);
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
   EXPECT_EQ(table->handles().size(), 0u);
}

TEST_F(ResponseHandlerTest, ReplacedWhileItRunsItIsNotPutBack) {
   auto counted = std::make_shared<int>();
   table->entryCommitWithResponseHandler(3, interfaceOf(7), [this, counted](State state) {
      heard.push_back(state);
      table->entryCommit(3, interfaceOf(7));
      EXPECT_EQ(counted.use_count(), 2) << "ends only when it has returned";
   });
   EXPECT_EQ(counted.use_count(), 1);
   loop.runUntilIdle();
   EXPECT_THAT(heard, ElementsAre(State::inProgress));
}

TEST_F(ResponseHandlerTest, MayRemoveTheEntryThatItReports) {
   for (auto at : {State::inProgress, State::success}) {
      table->entryCommitWithResponseHandler(3, interfaceOf(7), [&, at](State state) {
         if (state == at) {
            table->entryRemove(3);
         }
      });
      loop.runUntilIdle();
      EXPECT_EQ(table->handles().size(), 0u);
      EXPECT_EQ(rowsPresent(), 0u);
   }
}

TEST_F(ResponseHandlerTest, MayWriteTheEntryAnew) {
   for (auto at : {State::inProgress, State::success}) {
      bool isFirst = true;
      table->entryCommitWithResponseHandler(3, interfaceOf(7), [&, at](State state) {
         if (state == at && std::exchange(isFirst, false)) {
            table->entryCommitWithResponseHandler(3, interfaceOf(8), writeDown());
         }
      });
      loop.runUntilIdle();
      EXPECT_EQ(table->entry(3), interfaceOf(8));
      EXPECT_THAT(heard, ElementsAre(State::inProgress, State::success));
      heard.clear();
      table->entryRemove(3);
      loop.runUntilIdle();
   }
}

TEST_F(ResponseHandlerTest, MayCommitAnotherEntry) {
   table->entryCommitWithResponseHandler(3, interfaceOf(7),
                                         [&](State) { table->entryCommit(4, interfaceOf(8)); });
   loop.runUntilIdle();
   EXPECT_EQ(table->entryHandle(3)->entryState(), State::success);
   EXPECT_EQ(table->entryHandle(4)->entryState(), State::success);
}

TEST_F(ResponseHandlerTest, MayDropTheLastHandle) {
   auto handle = table->entryCommitWithResponseHandler(3, interfaceOf(7), {});
   table->entryCommitWithResponseHandler(3, interfaceOf(8), [&](State state) {
      if (state == State::success) {
         table->entryRemove(3);
         handle = nullptr;
      }
   });
   loop.runUntilIdle();
   EXPECT_EQ(table->handles().size(), 0u);
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(ResponseHandlerTest, MayTakeTheTableDown) {
   for (auto at : {State::inProgress, State::success}) {
      auto own = egrL3Oif2Factory("EgrL3Oif2");
      own->doInit(unit, stateDatabase, chip->chipInfo());
      auto handle = own->entryCommitWithResponseHandler(3, interfaceOf(7), [&, at](State state) {
         if (state == at) {
            own->cleanup();
            own = nullptr;
         }
      });
      loop.runUntilIdle();
      EXPECT_FALSE(own);
      EXPECT_EQ(rowsPresent(), 0u);
      EXPECT_TRUE(handle);
   }
}

TEST_F(ResponseHandlerTest, RemovingAllLetsHandlersRemoveAndAddEntries) {
   for (Asic::Index index = 1; index <= 20; ++index) {
      table->entryCommit(index, interfaceOf(7));
   }
   loop.runUntilIdle();
   struct Meddler final : ResolvedEntryNotifiee<Asic::Index> {
      explicit Meddler(EgrL3Oif2& to) : table(to) {}
      void handleResolvedEntry(Asic::Index const& index) override {
         if (index <= 20 && !table.resolvedEntry(index)) {
            table.entryRemove(index % 20 + 1);
            table.entryCommit(100 + index, interfaceOf(8));
         }
      }
      EgrL3Oif2& table;
   };
   Meddler meddler(*table);
   table->resolvedEntryNotifiees().notifieeIs(meddler);
   table->entryRemoveAll();
   meddler.leave();
   for (Asic::Index index = 1; index <= 20; ++index) {
      EXPECT_FALSE(table->entry(index));
   }
   table->entryRemoveAll();
   loop.runUntilIdle();
   EXPECT_EQ(table->handles().size(), 0u);
   EXPECT_EQ(rowsPresent(), 0u);
}

} // namespace
} // namespace ZandorL3Tunnel
