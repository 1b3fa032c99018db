#pragma once

#include "chip/model/Forwarding.h"
#include "chip/model/Layouts.h"
#include "platform/trace/testing/TraceCapture.h"
#include "plugin/DefaultTraceHandle.h"

#include <gmock/gmock.h>

namespace ModelChip {

/// Base of tests over a real chip: keeps the sequence of rows that it applied, and checks after each one that
/// no row points at one that is not there.
class ChipTest : public testing::Test {
 protected:
   using State = Asic::SwTableBase::EntryState;
   using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;

   explicit ChipTest(Chip::Sizes const& sizes = {}) : chip(Nuv::make<Chip>(loop, sizes)) {
      chip->publish(*stateDatabase, unit);
      chip->rowObserverIs([this](Table const& table, Asic::Index index) {
         rowsApplied.push_back(
               Nuv::text(table.shape().name, table.hasRow(index) ? " written " : " cleared ", index));
         EXPECT_THAT(danglingRows(*chip), testing::IsEmpty()) << "after " << rowsApplied.back();
         if (afterRow) {
            afterRow();
         }
      });
   }

   Asic::Index rowsPresent() const {
      Asic::Index rows = 0;
      for (auto const& table : chip->tables()) {
         rows += table->rowsPresent();
      }
      return rows;
   }

   std::uint64_t commandsIssued() const {
      std::uint64_t commands = 0;
      for (auto const& table : chip->tables()) {
         commands += table->commandsIssued();
      }
      return commands;
   }

   static constexpr Asic::UnitId unit = 0;
   Nuv::ReactionLoop loop;
   Nuv::Ptr<Chip> chip;
   Nuv::Ptr<Kallo::EntityManager> stateDatabase = Nuv::make<Kallo::EntityManager>();
   std::vector<Pelm::String> rowsApplied;
   std::function<void()> afterRow; ///< what else is to be checked after each row
};

/// The entry of a handle has come as far as `state`.
MATCHER_P(HasState, state, "") {
   if (!arg) {
      *result_listener << "there is no handle";
      return false;
   }
   *result_listener << "its state is " << testing::PrintToString(arg->entryState());
   return arg->entryState() == state;
}

/// The row of a handle's entry was issued at `index`.
MATCHER_P(RowAt, index, "") {
   if (!arg) {
      *result_listener << "there is no handle";
      return false;
   }
   *result_listener << "its index is " << arg->hwEntryIndex();
   return arg->hwEntryIndex() == index;
}

/// Writes down the states that a handle passes through.
class StateWatch final : public Asic::SwTableBase::EntryHandle::Notifiee {
 public:
   using Handle = Asic::SwTableBase::EntryHandle;

   explicit StateWatch(Handle const& handle) : handle_(handle) { handle.notifieeIs(*this); }

   void handleEntryState() override {
      states.push_back(handle_.entryState());
      if (auto const call = onState) { // a copy, since it may replace itself
         call();
      }
   }

   std::vector<Asic::SwTableBase::EntryState> states;
   std::function<void()> onState;

 private:
   Handle const& handle_;
};

} // namespace ModelChip

namespace Asic {

inline void
PrintTo(SwTableBase::EntryState state, std::ostream* out) {
   Nuv::writeText(*out, Nuv::text(state));
}

} // namespace Asic
