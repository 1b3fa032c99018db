#pragma once

#include "platform/nuv/Export.h"
#include "swtable/TableCore.h"

namespace ZandorL3Tunnel {

/// A software table with one row for each key: the operations that its users call.
///
/// `T` and `SheetType` as for `TableCore`; the sheet also has the type `Index`, the table's key. `Base`
/// should be one of the platform's tables.
template <class T, class SheetType, class Base>
class ZANDOR_EXPORT KeyedTable : public TableCore<T, SheetType, typename SheetType::Index, Base> {
   using Core = TableCore<T, SheetType, typename SheetType::Index, Base>;

 public:
   using typename Core::Entry;
   using typename Core::HandlePtr;
   using Index = typename SheetType::Index;

   /// Writes the entry; it lives as long as somebody holds a handle of it, or as its commit stands. An entry
   /// that needs entries of other tables waits for them; its old row stays until then. Observers and other
   /// tables may be called before it returns; the chip answers later.
   HandlePtr entryRef(Index const& key, Entry const& entry) { return this->accessor().entryRef(key, entry); }

   /// Writes the entry to stay until `entryRemove`. A new value passes through `unresolved`.
   HandlePtr entryCommit(Index const& key, Entry const& entry) {
      return this->accessor().entryCommit(key, entry);
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

 protected:
   using Core::Core;
};

} // namespace ZandorL3Tunnel
