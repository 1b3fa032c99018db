#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Assert.h"
#include "swtable/AccessorBase.h"
#include "tables/L3NextHop2Table.h"

namespace ZandorL3Tunnel {

L3NextHop2Table::HandlePtr
L3NextHop2Table::entryHandleIs(Key const& key) {
   return isTakenDown_ ? HandlePtr() : ownHandle(key);
}

void
L3NextHop2Table::entryHandleDel(Key const& key) {
   Nuv::Ptr<L3NextHop2Table> alive(this);
   Nuv::Ptr<EntryHandle> const handle = handles_.find(key);
   if (!handle) {
      return;
   }
   Nuv::AllSteps steps;
   for (auto at = mapped_.iterator(); at; ++at) {
      if (at->value() == handle) {
         steps([&] { mappedEntryHandleDel(Key(at->key())); });
      }
   }
   if (handles_.del(*handle)) {
      steps([&] { letGo(*handle); });
   }
   steps.finish();
}

L3NextHop2Table::HandlePtr
L3NextHop2Table::mappedEntryHandle(Key const& key) const {
   auto const* mapped = mapped_.find(key);
   return mapped ? HandlePtr(*mapped) : HandlePtr();
}

void
L3NextHop2Table::mappedEntryHandleIs(Key const& key, HandlePtr const& handle) {
   auto const* own = dynamic_cast<EntryHandle const*>(handle.get());
   NUV_ASSERT(own && own->table() == this, "a key is mapped to a handle of its own table");
   mappingIs(key, Nuv::Ptr<EntryHandle>(const_cast<EntryHandle*>(own)));
}

void
L3NextHop2Table::mappingIs(Key const& key, Nuv::Ptr<EntryHandle> const& handle) {
   ++handle->mappings_;
   handle->isMappedIs(true);
   Nuv::Ptr<EntryHandle> before;
   if (auto* found = mapped_.find(key)) {
      before = *found;
   }
   mapped_.valueIs(key, handle);
   if (before) {
      mappingDel(before);
   }
}

void
L3NextHop2Table::mappedEntryHandleDel(Key const& key) {
   if (auto* found = mapped_.find(key)) {
      auto mapped = *found;
      mapped_.erase(key);
      mappingDel(mapped);
   }
}

void
L3NextHop2Table::mappedEntryHandleDelAll() {
   Nuv::Ptr<L3NextHop2Table> alive(this);
   Nuv::AllSteps steps;
   for (auto at = mapped_.iterator(); at; ++at) {
      steps([&] { mappedEntryHandleDel(Key(at->key())); });
   }
   steps.finish();
}

// The mapping's reference goes last.
void
L3NextHop2Table::mappingDel(Nuv::Ptr<EntryHandle>& handle) {
   if (--handle->mappings_ == 0) {
      handle->isMappedIs(false);
   }
   lastReferenceDel(handle);
}

// What may be the last reference goes in the open: what observers of the end throw leaves through the caller.
void
L3NextHop2Table::lastReferenceDel(Nuv::Ptr<EntryHandle>& handle) {
   if (auto* last = handle.detach()) {
      last->referenceDel();
   }
}

L3NextHop2Table::MergedEntry
L3NextHop2Table::mergedEntry(Key const& key) const {
   auto handle = handleAtKey(key);
   return handle ? handle->mergedEntry() : MergedEntry();
}

bool
L3NextHop2Table::mergedEntryHas(Key const& key) const {
   auto handle = handleAtKey(key);
   return handle && handle->mergedEntry();
}

void
L3NextHop2Table::mergedEntryIs(Key const& key, MergedEntry const& entry) {
   if (auto handle = handles_.find(key)) {
      // What was in place goes last: its end may lead back here.
      auto const before = std::exchange(handle->mergedEntry_, entry);
      handle->writeIs();
   }
}

void
L3NextHop2Table::mergedEntryDel(Key const& key) {
   if (auto handle = handles_.find(key)) {
      mergedEntryDel(*handle);
   }
}

void
L3NextHop2Table::mergedEntryDelAll() {
   Nuv::Ptr<L3NextHop2Table> alive(this);
   handles_.forEach([](EntryHandle& handle) { mergedEntryDel(handle); });
}

// Who waits for a newer pair still has the index, and the halves.
void
L3NextHop2Table::mergedEntryDel(EntryHandle& handle) {
   auto const before = std::exchange(handle.mergedEntry_, MergedEntry());
   if (!before || handle.unresolvedMergedEntry_) {
      return;
   }
   handle.writeIs();
   WriteWatch watch(handle);
   Nuv::AllSteps steps;
   steps([&] { handle.hwIndexValidIs(false); });
   if (!watch.isOvertaken()) {
      steps([&] { handle.hwEntryIndexIs(Asic::invalidIndex); });
   }
   if (!watch.isOvertaken()) {
      steps([&] { handle.entryStateIs(unresolved()); });
   }
   steps.finish();
}

Nuv::Ptr<L3NextHop2Table::UnresolvedMergedEntry>
L3NextHop2Table::unresolvedMergedEntry(Key const& key) const {
   auto handle = handleAtKey(key);
   return handle ? handle->unresolvedMergedEntry() : nullptr;
}

bool
L3NextHop2Table::unresolvedMergedEntryHas(Key const& key) const {
   return unresolvedMergedEntry(key) != nullptr;
}

Nuv::Ptr<L3NextHop2Table::UnresolvedMergedEntry>
L3NextHop2Table::unresolvedMergedEntryIs(Key const& key) {
   auto handle = handles_.find(key);
   return handle ? unresolvedMergedEntryIs(*handle) : nullptr;
}

Nuv::Ptr<L3NextHop2Table::UnresolvedMergedEntry>
L3NextHop2Table::unresolvedMergedEntryIs(EntryHandle& handle) {
   auto before = std::exchange(handle.unresolvedMergedEntry_, Nuv::make<UnresolvedMergedEntry>(handle));
   handle.writeIs();
   auto waiting = handle.unresolvedMergedEntry_;
   if (before) {
      before->detach();
   }
   return waiting;
}

void
L3NextHop2Table::unresolvedMergedEntryDel(Key const& key) {
   if (auto handle = handles_.find(key)) {
      unresolvedMergedEntryDel(*handle);
   }
}

void
L3NextHop2Table::unresolvedMergedEntryDelAll() {
   Nuv::Ptr<L3NextHop2Table> alive(this);
   handles_.forEach([](EntryHandle& handle) { unresolvedMergedEntryDel(handle); });
}

void
L3NextHop2Table::unresolvedMergedEntryDel(EntryHandle& handle) {
   auto const before = std::exchange(handle.unresolvedMergedEntry_, nullptr);
   if (!before) {
      return;
   }
   before->detach();
   handle.writeIs();
   WriteWatch watch(handle);
   Nuv::AllSteps steps;
   // Without a pair in place the key's index goes with the one that waited.
   if (!handle.mergedEntry_) {
      steps([&] { handle.hwEntryIndexIs(Asic::invalidIndex); });
   }
   if (!watch.isOvertaken()) {
      steps([&] { handle.entryStateIs(unresolved()); });
   }
   steps.finish();
}

} // namespace ZandorL3Tunnel
