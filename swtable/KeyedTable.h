#pragma once

#include "platform/nuv/Export.h"
#include "swtable/EntryIterator.h"
#include "swtable/Sheet.h"
#include "swtable/TableCore.h"

namespace ZandorL3Tunnel {

/// A software table with one row for each key: the operations that its users call.
///
/// `T` and `SheetType` as for `TableCore`; the sheet also has the type `Index`, the table's key. `Base`
/// should be one of the platform's tables.
template <class T, class SheetType, class Base>
class ZANDOR_EXPORT KeyedTable : public TableCore<T, SheetType, typename SheetType::Index, Base> {
   using Core = TableCore<T, SheetType, typename SheetType::Index, Base>;

   static_assert(
         KeyedTableSheet<SheetType>,
         "the data sheet of a keyed table has typeName(), hwTableName(), the types Index (its key), Entry (a "
         "record that is an Asic::EntryBase) and Source (KeyIsIndex with 32-bit keys, OwnAllocator<A> or "
         "SharedAllocator<A>)");

 public:
   using typename Core::Entry;
   using typename Core::HandlePtr;
   using Index = typename SheetType::Index;
   using ResponseFunction = Asic::SwTableBase::ResponseFunction;
   using EntryIterator = EntryIteratorConst<KeyedTable>;

   /// Writes the entry; it lives as long as somebody holds a handle of it, or as its commit stands. An entry
   /// that needs entries of other tables waits for them; its old row stays until then. Observers and other
   /// tables may be called before it returns; the chip answers later.
   HandlePtr entryRef(Index const& key, Entry const& entry) { return this->accessor().entryRef(key, entry); }

   /// The same, and `held` has the handle before anybody hears of the entry: so that an observer who throws
   /// does not end it.
   void entryRef(Index const& key, Entry const& entry, HandlePtr& held) {
      this->accessor().entryRef(key, entry, held);
   }

   /// Writes the entry to stay until `entryRemove`. A new value passes through `unresolved`.
   HandlePtr entryCommit(Index const& key, Entry const& entry) {
      return this->accessor().entryCommit(key, entry, {});
   }

   /// The same, and `handler` hears each progress and each failure of the entry, up to its first success. It
   /// replaces an earlier handler, also when it is empty; an equal entry that is in progress or failed
   /// already is reported when its state changes next. The handler may do anything, writing and removing this
   /// entry included; what it throws leaves through whoever changed the state.
   HandlePtr entryCommitWithResponseHandler(Index const& key, Entry const& entry, ResponseFunction handler) {
      return this->accessor().entryCommit(key, entry, std::move(handler));
   }

   /// A commit with `needsExplicitRemove`, else a reference.
   HandlePtr entryWrite(Index const& key, Entry const& entry, Asic::AutoRemoveType autoRemoveType) {
      return entryWriteWithResponseHandler(key, entry, {}, autoRemoveType);
   }

   /// The same with a response handler, which only a commit takes.
   HandlePtr
   entryWriteWithResponseHandler(Index const& key, Entry const& entry, ResponseFunction handler,
                                 Asic::AutoRemoveType autoRemoveType = Asic::needsExplicitRemove()) {
      return autoRemoveType == Asic::needsExplicitRemove()
                   ? entryCommitWithResponseHandler(key, entry, std::move(handler))
                   : entryRef(key, entry);
   }

   /// Gives the commit at `key` back: the entry goes with its last holder. Without a commit it does nothing.
   void entryRemove(Index const& key) { this->accessor().entryRemove(key); }

   /// Gives every commit back.
   void entryRemoveAll() { this->accessor().entryRemoveAll(); }

   /// The handle at `key`, which must be there, without a commit.
   HandlePtr entryWeakRef(Index const& key) const { return this->accessor().entryWeakRef(key); }

   /// The newest value written at `key`, waiting or not; empty when there is none.
   std::optional<Entry> entry(Index const& key) const { return this->accessor().entry(key); }

   /// The value that is to be in hardware at `key`, if any.
   std::optional<Entry> resolvedEntry(Index const& key) const { return this->accessor().resolvedEntry(key); }

   /// Whether there is a value that is to be in hardware at `key`.
   bool resolvedEntryHas(Index const& key) const { return this->accessor().resolvedEntryHas(key); }

   /// The value that waits at `key` for entries that it needs; null when none does. `...Is` lets a value wait
   /// at the key's entry in place of an earlier one, or resolves it at once when it needs nothing, and
   /// returns what waits then; null without an entry. `...Del` drops what waits: a value that is to be in
   /// hardware is the entry's again, and without one the entry is `unresolved` until it is written. For
   /// tables whose entries name entries of others.
   Nuv::Ptr<typename Core::UnresolvedEntry> unresolvedEntry(Index const& key) const {
      auto handle = this->entryHandle(key);
      return handle ? handle->unresolvedEntry() : nullptr;
   }
   bool unresolvedEntryHas(Index const& key) const { return unresolvedEntry(key) != nullptr; }
   Nuv::Ptr<typename Core::UnresolvedEntry>
   unresolvedEntryIs(Index const& key, Entry const& entry) requires Asic::HasDependentFields<Entry> {
      return this->accessor().unresolvedEntryIs(key, entry);
   }
   void unresolvedEntryDel(Index const& key) requires Asic::HasDependentFields<Entry> {
      this->accessor().unresolvedEntryDel(key);
   }
   void unresolvedEntryDelAll() requires Asic::HasDependentFields<Entry> {
      this->accessor().unresolvedEntryDelAll();
   }

   /// Takes every resolved value back: its row is cleared, and its entry is `unresolved` until it is written
   /// again.
   void resolvedEntryDelAll() { this->accessor().resolvedEntryDelAll(); }

   /// Clears the row of every entry. The values stay: `handleEntry` programs one again.
   void hwTableEntryDelAll() { this->accessor().hwTableEntryDelAll(); }

   /// Lets every handle go, as taking the table down does: rows are cleared, and handles that users hold are
   /// inert.
   void entryHandleDelAll() { this->accessor().cleanup(); }

   /// Iterators over the entries, from the first one, and from that of `key` (at the end without one).
   EntryIterator entryIteratorConst() const { return EntryIterator(*this, this->handles().iterator()); }
   EntryIterator entryIteratorConst(Index const& key) const {
      return EntryIterator(*this, this->handles().iterator(key));
   }

   /// Programs the entry at `key` once more, as if it had changed; without a resolved entry it does nothing.
   /// Equal rows cost nothing.
   void handleEntry(Index const& key) { this->accessor().handleEntry(key); }

 protected:
   using Core::Core;
};

} // namespace ZandorL3Tunnel
