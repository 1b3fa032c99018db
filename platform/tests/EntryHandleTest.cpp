#include "platform/asic/UnresolvedEntry.h"
#include "platform/asic/testing/TinyTable.h"

#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>

namespace Asic {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using State = SwTableBase::EntryState;
using Type = SwTable::EntryHandle::EntryType;

/// Writes down what it is told, under its name.
class Observer final : public SwTableBase::EntryHandle::Notifiee {
 public:
   Observer(Pelm::String name, SwTableBase::EntryHandle const& handle, std::vector<Pelm::String>& told)
       : name_(std::move(name)), handle_(handle), told_(told) {
      handle.notifieeIs(*this);
   }

   void handleEntryState() override { note("state", handle_.entryState()); }
   void handleHwEntryIndex() override { note("index", handle_.hwEntryIndex()); }
   void handleHwIndexValid() override { note("valid", handle_.isHwIndexValid()); }

   std::function<void()> then;

 private:
   template <class V>
   void note(char const* what, V const& value) {
      told_.push_back(Nuv::text(name_, " ", what, " ", value));
      if (then) {
         then();
      }
   }

   Pelm::String name_;
   SwTableBase::EntryHandle const& handle_;
   std::vector<Pelm::String>& told_;
};

class EntryHandleTest : public testing::Test {
 protected:
   int tableEnds{};
   Nuv::Ptr<TinyTable> table = Nuv::make<TinyTable>("Tiny", &tableEnds);
   Nuv::Ptr<TinyHandle> handle = Nuv::make<TinyHandle>(table.get());
   std::vector<Pelm::String> told;
};

TEST_F(EntryHandleTest, StartsUnresolvedWithoutAnIndex) {
   EXPECT_EQ(handle->entryState(), State::unresolved);
   EXPECT_EQ(handle->resolvedEntryState(), State::unresolved);
   EXPECT_EQ(handle->entryType(), Type::unset);
   EXPECT_EQ(handle->hwEntryIndex(), invalidIndex);
   EXPECT_FALSE(handle->isHwIndexValid());
   EXPECT_FALSE(handle->isResolved());
   EXPECT_EQ(handle->swTable(), table.get());
}

TEST_F(EntryHandleTest, MutatorsAnnounceChangesInTheOrderOfRegistration) {
   Observer a("a", *handle, told);
   Observer b("b", *handle, told);
   handle->entryStateIs(State::success);
   handle->hwEntryIndexIs(7);
   handle->hwIndexValidIs(true);
   EXPECT_THAT(told, ElementsAre("a state success", "b state success", "a index 7", "b index 7",
                                 "a valid True", "b valid True"));
}

TEST_F(EntryHandleTest, MutatorsThatChangeNothingAnnounceNothing) {
   int reactions = 0;
   handle->onEntryState = [&] { ++reactions; };
   Observer observer("a", *handle, told);
   handle->entryStateIs(State::unresolved);
   handle->hwEntryIndexIs(invalidIndex);
   handle->hwIndexValidIs(false);
   handle->resolvedEntryStateIs(State::unresolved);
   EXPECT_THAT(told, IsEmpty());
   EXPECT_THAT(handle->resolvedEntryStates, IsEmpty());
   EXPECT_EQ(reactions, 0);
}

TEST_F(EntryHandleTest, ItsOwnReactionComesFirst) {
   Observer observer("a", *handle, told);
   handle->onEntryState = [&] { told.push_back(Nuv::text("own ", handle->entryState())); };
   handle->entryStateIs(State::inProgress);
   handle->entryStateIs(State::failed);
   EXPECT_THAT(told, ElementsAre("own inProgress", "a state inProgress", "own failed", "a state failed"));
}

TEST_F(EntryHandleTest, AReactionThatThrowsKeepsNothingFromTheObservers) {
   Observer observer("a", *handle, told);
   handle->onEntryState = [] { throw std::runtime_error("own"); };
   EXPECT_THROW(handle->entryStateIs(State::success), std::runtime_error);
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_THAT(told, ElementsAre("a state success"));
}

TEST_F(EntryHandleTest, AnObserverThatThrowsStopsNoOther) {
   Observer a("a", *handle, told);
   Observer b("b", *handle, told);
   a.then = [] { throw std::runtime_error("a"); };
   EXPECT_THROW(handle->entryStateIs(State::success), std::runtime_error);
   EXPECT_THROW(handle->hwEntryIndexIs(1), std::runtime_error);
   EXPECT_THROW(handle->hwIndexValidIs(true), std::runtime_error);
   EXPECT_THAT(told, ElementsAre("a state success", "b state success", "a index 1", "b index 1",
                                 "a valid True", "b valid True"));
}

TEST_F(EntryHandleTest, ASilentHandleOnlyReactsItself) {
   int reactions = 0;
   handle->onEntryState = [&] { ++reactions; };
   handle->hasNotificationActiveIs(false);
   Observer observer("a", *handle, told);
   handle->entryStateIs(State::success);
   handle->hwEntryIndexIs(1);
   handle->hwIndexValidIs(true);
   EXPECT_EQ(reactions, 1);
   EXPECT_THAT(told, IsEmpty());
   EXPECT_TRUE(handle->isHwIndexValid());
}

TEST_F(EntryHandleTest, AnObserverMayDropTheHandle) {
   using Change = void (*)(TinyHandle&);
   Change const changes[] = {[](TinyHandle& each) { each.entryStateIs(State::success); },
                             [](TinyHandle& each) { each.hwEntryIndexIs(1); },
                             [](TinyHandle& each) { each.hwIndexValidIs(true); }};
   for (auto change : changes) {
      handle = Nuv::make<TinyHandle>(table.get());
      Observer first("a", *handle, told);
      Observer second("b", *handle, told);
      first.then = [this] { handle = nullptr; };
      change(*handle);
      EXPECT_FALSE(handle);
      EXPECT_FALSE(first.isListed());
      EXPECT_FALSE(second.isListed());
   }
}

TEST_F(EntryHandleTest, ObserversMayChangeWhatTheyAreTold) {
   Observer a("a", *handle, told);
   Observer b("b", *handle, told);
   a.then = [this, &a] {
      a.then = nullptr;
      handle->entryStateIs(State::success);
   };
   handle->entryStateIs(State::inProgress);
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(told.back(), "b state success");
}

TEST_F(EntryHandleTest, TheRowsStateIsForTheHandleAlone) {
   Observer observer("a", *handle, told);
   handle->resolvedEntryStateIs(State::inProgress);
   handle->resolvedEntryStateIs(State::inProgress);
   handle->resolvedEntryStateIs(State::success);
   EXPECT_THAT(handle->resolvedEntryStates, ElementsAre(State::inProgress, State::success));
   EXPECT_THAT(told, IsEmpty());
   EXPECT_EQ(handle->entryState(), State::unresolved);
}

TEST_F(EntryHandleTest, IsCompleteOrFailedByItsState) {
   struct {
      State state;
      bool isComplete;
      bool isFailed;
   } const cases[] = {{State::inProgress, false, false},       {State::success, true, false},
                      {State::failedNeededEntry, false, true}, {State::failed, false, true},
                      {State::unresolved, false, false},       {State::suspended, false, false}};
   for (auto const& each : cases) {
      handle->entryStateIs(each.state);
      EXPECT_EQ(handle->isComplete(), each.isComplete) << Nuv::text(each.state);
      EXPECT_EQ(handle->isFailed(), each.isFailed) << Nuv::text(each.state);
   }
}

TEST_F(EntryHandleTest, IsNamedByItsIndex) {
   handle->hwEntryIndexIs(12);
   EXPECT_EQ(SwTableBase::getHwIndexForDependentField(handle), 12u);
   EXPECT_EQ(SwTableBase::getHwIndexForDependentField(nullptr), invalidIndex);
}

TEST_F(EntryHandleTest, CreationNumbersAscendAndAreNeverUsedAgain) {
   auto number = handle->creationNumber();
   EXPECT_GT(number, 0u);
   handle = nullptr;
   handle = Nuv::make<TinyHandle>(table.get());
   EXPECT_EQ(handle->creationNumber(), number + 1);
}

TEST_F(EntryHandleTest, OnlyAReferenceOnlyHandleKeepsItsTable) {
   EXPECT_EQ(table->references(), 1u);
   handle->entryTypeIs(Type::referenceOnly);
   EXPECT_EQ(table->references(), 2u);
   handle->entryTypeIs(Type::referenceOnly);
   EXPECT_EQ(table->references(), 2u);
   for (auto type : {Type::committed, Type::inDeletion, Type::unset}) {
      handle->entryTypeIs(type);
      EXPECT_EQ(handle->entryType(), type);
      EXPECT_EQ(table->references(), 1u);
      handle->entryTypeIs(Type::referenceOnly);
      EXPECT_EQ(table->references(), 2u);
   }
}

TEST_F(EntryHandleTest, TheLastReferenceOnlyHandleEndsItsTable) {
   auto second = Nuv::make<TinyHandle>(table.get());
   handle->entryTypeIs(Type::referenceOnly);
   second->entryTypeIs(Type::referenceOnly);
   table = nullptr;
   handle = nullptr;
   EXPECT_EQ(tableEnds, 0);
   second = nullptr;
   EXPECT_EQ(tableEnds, 1);
}

TEST_F(EntryHandleTest, ATypeThatKeepsNothingMayEndTheTable) {
   handle->entryTypeIs(Type::referenceOnly);
   Type seen = Type::unset;
   table->atCleanupIs([&] {
      seen = handle->entryType();
      handle->swTableDel();
   });
   table = nullptr;
   EXPECT_EQ(tableEnds, 0);
   handle->entryTypeIs(Type::committed);
   EXPECT_EQ(tableEnds, 1);
   EXPECT_EQ(seen, Type::committed);
   EXPECT_EQ(handle->swTable(), nullptr);
}

TEST_F(EntryHandleTest, AClearedHandleKeepsNothingAndStaysValid) {
   handle->entryTypeIs(Type::referenceOnly);
   handle->swTableDel();
   EXPECT_EQ(table->references(), 1u);
   EXPECT_EQ(handle->swTable(), nullptr);
   handle->swTableDel();
   EXPECT_EQ(table->references(), 1u);
   handle->entryTypeIs(Type::committed);
   handle->entryTypeIs(Type::referenceOnly);
   EXPECT_EQ(table->references(), 1u);
   table = nullptr;
   EXPECT_EQ(tableEnds, 1);
   handle->entryStateIs(State::success);
   EXPECT_TRUE(handle->isComplete());
}

TEST_F(EntryHandleTest, ClearingTheLastHandleEndsTheTable) {
   handle->entryTypeIs(Type::referenceOnly);
   table = nullptr;
   handle->swTableDel();
   EXPECT_EQ(tableEnds, 1);
}

TEST_F(EntryHandleTest, StatesAndTypesHaveNames) {
   EXPECT_EQ(Nuv::text(State::unresolved, " ", State::inProgress, " ", State::suspended, " ", State::success,
                       " ", State::failedNeededEntry, " ", State::failed, " ", State(9)),
             "unresolved inProgress suspended success failedNeededEntry failed 9");
   EXPECT_EQ(Nuv::text(Type::unset, " ", Type::referenceOnly, " ", Type::committed, " ", Type::inDeletion),
             "unset referenceOnly committed inDeletion");
}

/// A value that waits until every handle that it needs is complete.
class Waiting final : public SwTable::UnresolvedEntry {
 public:
   void doResolve() override { ++resolved; }
   void markFailedNeededEntry() override { ++failures; }
   void setEntryState(State) override { ++recoveries; }

   int resolved{};
   int failures{};
   int recoveries{};

 protected:
   bool isNeeded(SwTableBase::EntryHandle const& handle) const override { return !handle.isComplete(); }
};

class NeededEntryTest : public EntryHandleTest {
 protected:
   Nuv::Ptr<TinyHandle> other = Nuv::make<TinyHandle>(table.get());
   Nuv::Ptr<Waiting> waiting = Nuv::make<Waiting>();
};

TEST_F(NeededEntryTest, TheLastOneToSucceedResolves) {
   waiting->neededEntryHandleSmIs(handle);
   waiting->neededEntryHandleSmIs(other);
   waiting->neededEntryHandleSmIs(handle);
   EXPECT_EQ(waiting->neededEntryHandleSms(), 3u);
   handle->entryStateIs(State::success);
   EXPECT_EQ(waiting->neededEntryHandleSms(), 1u);
   EXPECT_EQ(waiting->resolved, 0);
   other->entryStateIs(State::success);
   EXPECT_EQ(waiting->resolved, 1);
   EXPECT_EQ(handle->references(), 1u);
}

TEST_F(NeededEntryTest, AFailureMarksAtOnceAndTheLastRecoveryTakesTheMarkAway) {
   waiting->neededEntryHandleSmIs(handle);
   waiting->neededEntryHandleSmIs(other);
   handle->entryStateIs(State::failed);
   other->entryStateIs(State::failedNeededEntry);
   EXPECT_EQ(waiting->failures, 2);
   handle->entryStateIs(State::inProgress);
   EXPECT_EQ(waiting->recoveries, 0);
   other->entryStateIs(State::inProgress);
   EXPECT_EQ(waiting->recoveries, 1);
}

TEST_F(NeededEntryTest, WhoWaitsHearsNothingOfItsNeedsEndingWithIt) {
   int heard = 0;
   struct AtEnd final : SwTableBase::EntryHandle::Notifiee {
      explicit AtEnd(int& count) : heard(count) {}
      void handleHwIndexValid() override { ++heard; }
      int& heard;
   } atEnd(heard);

   // A handle that announces its own end, as those of tables do.
   class Announcing final : public SwTable::EntryHandle {
    public:
      explicit Announcing(SwTable* owner) : EntryHandle(owner) {}
      void handleRowConfirmed() override {}

    protected:
      void cleanup() override {
         swTableDel();
         hwIndexValidIs(false);
      }
   };
   auto needed = Nuv::make<Announcing>(table.get());
   needed->notifieeIs(atEnd);
   needed->hwIndexValidIs(true);
   waiting->neededEntryHandleSmIs(needed);
   needed = nullptr;
   waiting = nullptr;
   EXPECT_EQ(heard, 2);
}

} // namespace
} // namespace Asic
