#pragma once

// Values that wait for entries of other tables; part of Accessor.h.

#include "swtable/Accessor.h"

namespace Asic {

// The old row stays while the new value waits, and a value that is there already, or is waited for already,
// changes nothing.
template <class T>
void
SwTable::Accessor<T>::writeWaiting(Handle& eh, Entry const& entry) const {
   using namespace ZandorL3Tunnel;
   auto const& trace = defaultTraceHandle();
   if (eh.isResolved() && eh.content_.entry == entry) {
      DUOLOG(trace, TraceLevel::write, swTable_->tblName(),
             " : Found already existing resolved entry at key : ", eh.key());
      if (eh.unresolvedEntry() && !isResolving(eh)) {
         DUOLOG(trace, TraceLevel::write, swTable_->tblName(),
                " : Deleting existing unresolved entry at key : ", eh.key());
         unresolvedEntryDrop(eh);
      }
      return;
   }
   if (eh.unresolvedEntry() && eh.unresolvedEntry()->value().entry == entry) {
      DUOLOG(trace, TraceLevel::write, swTable_->tblName(),
             " : Found existing unresolved entry at key : ", eh.key());
      return;
   }
   DUOLOG(trace, TraceLevel::write, swTable_->tblName(), " : Writing new entry at key: ", eh.key());
   // What waited so far goes last: its end may lead back here.
   auto before = std::move(eh.unresolvedEntry_);
   if (before) {
      before->detach();
   }
   eh.writeIs();
   WriteWatch watch(eh);
   Nuv::AllSteps steps;
   steps([&] { eh.entryStateIs(unresolved()); });
   if (!watch.isOvertaken()) {
      steps([&] {
         if (!resolvedAtOnce(eh, entry)) {
            unresolvedEntryIs(eh, {entry});
         }
      });
   }
   steps.finish();
}

// What waited is resolved, and its observers are being told so: it is about to go, and waits no longer.
template <class T>
bool
SwTable::Accessor<T>::isResolving(Handle const& eh) {
   if (!eh.isResolved() || !eh.unresolvedEntry()) {
      return false;
   }
   if constexpr (isBlock) {
      return true;
   } else {
      return eh.unresolvedEntry()->value().entry == eh.content_.entry;
   }
}

// A value that has all that it needs is there without having waited; false, with nothing changed, for
// another.
template <class T>
bool
SwTable::Accessor<T>::resolvedAtOnce(Handle& eh, Entry const& entry) const {
   using namespace ZandorL3Tunnel;
   bool isReady = true;
   forEachNeededHandle(entry, [&](NeededHandle const& needed) {
      isReady = isReady && !UnresolvedEntry::failsWith(*needed) && isThere(*needed);
   });
   Entry resolved = entry;
   if (!isReady || !fillDependentFields(resolved)) {
      return false;
   }
   traceUnsetHandle([&] { return Asic::hasUnsetHandle(entry); });
   DUOLOG(defaultTraceHandle(), TraceLevel::resolve, swTable_->tblName(),
          " All needed entryHandles are already resolved");
   MIRELOG(T::traceFacility(), TraceLevel::resolve, "doResolve {}", eh.creationNumber());
   DUOLOG(defaultTraceHandle(), TraceLevel::resolve, swTable_->tblName(),
          " UnresolvedEntry resolved at key  : ", eh.key());
   resolvedEntryIs(eh, std::move(resolved));
   return true;
}

template <class T>
void
SwTable::Accessor<T>::unresolvedEntryIs(Handle& eh, ZandorL3Tunnel::WaitingValue<T, Key> value) const {
   auto ue = Nuv::make<Waiting>(eh, std::move(value));
   eh.writeIs();
   eh.unresolvedEntry_ = ue;
   initUnresolvedEntry(eh, *ue);
}

template <class T>
void
SwTable::Accessor<T>::unresolvedEntryDel(Handle& eh) const {
   auto ue = std::move(eh.unresolvedEntry_);
   if (ue) {
      eh.writeIs();
      ue->detach();
   }
   // It ends here, and with it perhaps the last handle on what it waited for.
}

template <class T>
template <class Visit>
void
SwTable::Accessor<T>::forEachNeeded(Handle const& eh, Waiting const& ue, Visit&& visit) {
   if constexpr (isBlock) {
      for (auto const& member : eh.key().members()) {
         forEachNeededHandle(member.entry, visit);
      }
   } else {
      forEachNeededHandle(ue.value().entry, visit);
   }
}

// An entry may name nothing yet, and then waits for nothing: the index that it was given counts.
template <class T>
bool
SwTable::Accessor<T>::hasUnsetHandle(Handle const& eh, Waiting const& ue) {
   if constexpr (isBlock) {
      auto const& members = eh.key().members();
      return std::any_of(members.begin(), members.end(),
                         [](auto const& member) { return Asic::hasUnsetHandle(member.entry); });
   } else {
      return Asic::hasUnsetHandle(ue.value().entry);
   }
}

// Failed is asked first: who needs what has failed is told at once, even with a row in force.
template <class T>
void
SwTable::Accessor<T>::initUnresolvedEntry(Handle& eh, Waiting& ue) const {
   using namespace ZandorL3Tunnel;
   auto const& trace = defaultTraceHandle();
   traceUnsetHandle([&] { return hasUnsetHandle(eh, ue); });
   bool hasFailed = false;
   if constexpr (isBlock) {
      ue.neededEntryHandleSmsReserve(eh.key().members().size());
   }
   forEachNeeded(eh, ue, [&](NeededHandle const& needed) {
      hasFailed = hasFailed || UnresolvedEntry::failsWith(*needed);
      if (ue.isNeeded(*needed)) {
         ue.neededEntryHandleSmIs(needed);
      }
   });
   if (hasFailed) {
      ue.markFailedNeededEntry();
      return;
   }
   if (ue.neededEntryHandleSms() == 0) {
      if constexpr (isBlock) {
         DUOLOG(trace, TraceLevel::resolve,
                "Initializing unresolved entry block: all needed entry handles are already resolved, _ueb : ",
                eh.key());
      } else {
         DUOLOG(trace, TraceLevel::resolve, swTable_->tblName(),
                " All needed entryHandles are already resolved");
      }
      doResolve(eh, ue);
   }
}

template <class T>
template <class Has>
void
SwTable::Accessor<T>::traceUnsetHandle(Has&& has) {
   using namespace ZandorL3Tunnel;
   auto const& trace = defaultTraceHandle();
   if (trace.isOpen(TraceLevel::resolve) && has()) {
      DUOLOG(trace, TraceLevel::resolve,
             "Initializating unresolved entry or entry block: entry handle was not yet assigned.");
   }
}

// With rows to write, what counts is that the needed row is there; without, that the needed entry is
// complete.
template <class T>
bool
SwTable::Accessor<T>::isThere(SwTableBase::EntryHandle const& needed) const {
   return swTable_->util() ? needed.isHwIndexValid() : needed.isComplete();
}

// An index that does not fit its field leaves the value waiting, marked as failed: nothing was truncated, and
// a row that was there stays.
template <class T>
void
SwTable::Accessor<T>::doResolve(Handle& eh, Waiting& ue) const {
   using namespace ZandorL3Tunnel;
   ACCESSOR_ASSERT(ue.neededEntryHandleSms() == 0, "ue->neededEntryHandleSms() == 0",
                   "function should not have been called");
   MIRELOG(T::traceFacility(), TraceLevel::resolve, "doResolve {}", eh.creationNumber());
   Nuv::Ptr<Handle> alive(&eh);
   Nuv::Ptr<Waiting> waiting(&ue);
   Nuv::AllSteps steps;
   if constexpr (isBlock) {
      if (!eh.key().dependentFieldsFit()) {
         eh.entryStateIs(failed());
         return;
      }
      DUOLOG(defaultTraceHandle(), TraceLevel::resolve, swTable_->tblName(),
             " UnresolvedEntry resolved at entryBlock  : ", eh.key());
      // The same block, under the same identity, with its index fields filled.
      eh.key_.dependentFieldsFill();
      eh.isResolvedIs(true);
      eh.writeIs();
      steps([&] { resolvedEntryChanged(eh); });
   } else {
      auto entry = ue.value().entry;
      if (!fillDependentFields(entry)) {
         eh.entryStateIs(failed());
         return;
      }
      DUOLOG(defaultTraceHandle(), TraceLevel::resolve, swTable_->tblName(),
             " UnresolvedEntry resolved at key  : ", eh.key());
      steps([&] { resolvedEntryIs(eh, std::move(entry)); });
   }
   if (eh.unresolvedEntry() == waiting) {
      eh.unresolvedEntry_ = nullptr;
      waiting->detach();
   }
   steps.finish();
}

} // namespace Asic

namespace ZandorL3Tunnel {

template <class T>
void
WaitingEntry<T>::doResolve() {
   if (handle_ && handle_->table()) {
      Accessor(handle_->table()).doResolve(*handle_, *this);
   }
}

template <class T>
void
WaitingEntry<T>::setEntryState(Asic::SwTableBase::EntryState state) {
   if (handle_) {
      handle_->entryStateIs(state);
   }
}

template <class T>
bool
WaitingEntry<T>::isNeeded(Asic::SwTableBase::EntryHandle const& needed) const {
   if (failsWith(needed)) {
      return true;
   }
   auto* table = handle_ ? handle_->table() : nullptr;
   return table ? !Accessor(table).isThere(needed) : !needed.isComplete();
}

} // namespace ZandorL3Tunnel
