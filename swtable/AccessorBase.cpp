#include "swtable/AccessorBase.h"

#include <cstdlib>

namespace ZandorL3Tunnel {

using EntryHandle = Asic::SwTable::EntryHandle;
using Asic::SwTableBase;

void
AccessorBase::referenced(Handle& handle) {
   if (handle.entryType() == EntryHandle::unset() || handle.entryType() == EntryHandle::inDeletion()) {
      handle.entryTypeIs(EntryHandle::referenceOnly());
      handle.referenceDel();
   }
}

void
AccessorBase::committed(Handle& handle) {
   if (handle.entryType() == EntryHandle::referenceOnly()) {
      handle.referenceAdd();
   }
   handle.entryTypeIs(EntryHandle::committed());
}

void
AccessorBase::removed(Handle* handle, ResponseHandler* handler, Asic::SwTable const& table,
                      Nuv::TextRef key) {
   auto const& trace = defaultTraceHandle();
   if (!handle || handle->entryType() != EntryHandle::committed()) {
      DUOLOG(trace, TraceLevel::write, table.tblName(), " : Found no committed entry at key : ", key);
      return;
   }
   DUOLOG(trace, TraceLevel::write, table.tblName(), " : Removing entry at key : ", key,
          ", entryType:", handle->entryType(), ", refCnt:", handle->references() - 1);
   // The handler ends last: its own end may lead back here.
   auto const before = std::exchange(*handler, ResponseHandler());
   handle->entryTypeIs(EntryHandle::referenceOnly());
   handle->referenceDel();
}

void
AccessorBase::handleEntryState(Handle const& handle, ResponseHandler& handler, Nuv::TextRef key) {
   auto state = handle.entryState();
   if (auto const* table = handle.swTable()) {
      DUOLOG(defaultTraceHandle(), TraceLevel::state, table->tblName(), " entryhandle state: ", state,
             ", key : ", key);
   }
   ACCESSOR_ASSERT(state <= SwTableBase::failed(), "entryState <= failed()", "");
   bool mayBeInDeletion = state == SwTableBase::unresolved() || state == SwTableBase::inProgress() ||
                          state == SwTableBase::success();
   ACCESSOR_ASSERT(mayBeInDeletion || handle.entryType() != EntryHandle::inDeletion(),
                   "entryHandle->entryType() != EntryHandle::inDeletion()", "");
   handler.entryStateIs(state);
}

bool
AccessorBase::handleResolvedEntryState(Handle& handle) {
   auto resolvedEntryState = handle.resolvedEntryState();
   if (resolvedEntryState == SwTableBase::inProgress()) {
      return false;
   }
   if (!handle.isResolved()) {
      ACCESSOR_ASSERT(resolvedEntryState == SwTableBase::success(), "resolvedEntryState == success()", "");
      return handle.entryState() == SwTableBase::inProgress();
   }
   // A newer value failed before it came to a row of its own: the answer is the old row's, and is only
   // recorded.
   if (handle.entryState() == SwTableBase::failed()) {
      return false;
   }
   if (handle.entryState() == SwTableBase::inProgress()) {
      handle.entryStateIs(resolvedEntryState);
      return false;
   }
   ACCESSOR_ASSERT(handle.entryState() == SwTableBase::unresolved() ||
                         handle.entryState() == SwTableBase::failedNeededEntry() ||
                         handle.entryState() == SwTableBase::success(),
                   "entryHandle->entryState() == unresolved() || entryHandle->entryState() == "
                   "failedNeededEntry() || entryHandle->entryState() == success()",
                   "");
   ACCESSOR_ASSERT(resolvedEntryState == SwTableBase::success(), "resolvedEntryState == success()", "");
   return false;
}

bool
AccessorBase::completesForTesting() {
   static bool const completes = [] {
      auto const* value = std::getenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE");
      return value && std::strtol(value, nullptr, 10) != 0;
   }();
   return completes;
}

void
AccessorBase::handleLeaves(Handle const& handle, bool isRegistered, Asic::SwTable const& table,
                           Nuv::TextRef key) {
   DUOLOG(defaultTraceHandle(), TraceLevel::resolve, table.tblName(),
          " : entryhandle cleanup, eh : ", static_cast<void const*>(&handle), ", key :", key);
   ACCESSOR_ASSERT(!isRegistered || handle.entryType() == EntryHandle::referenceOnly(),
                   "eh->entryType() == EntryHandle::referenceOnly()", "unexpected entryType");
}

} // namespace ZandorL3Tunnel
