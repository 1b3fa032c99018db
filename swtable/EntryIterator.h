#pragma once

#include "platform/nuv/Export.h"

#include <optional>

namespace ZandorL3Tunnel {

/// Walks over the entries of a table in the canonical order of its keys. Whatever is written and removed
/// meanwhile, it meets every entry that is there from its first step to its last exactly once. The table must
/// outlive it.
///
/// `T` should be a `KeyedTable`.
template <class T>
class ZANDOR_EXPORT EntryIteratorConst {
 public:
   using Key = typename T::Key;
   using Entry = typename T::Entry;
   using Cursor = decltype(std::declval<typename T::Handles const&>().iterator());

   EntryIteratorConst(T const& table, Cursor cursor) : table_(&table), cursor_(std::move(cursor)) {
      settle();
   }

   /// Whether there is an entry.
   explicit operator bool() const {
      settle();
      return bool(cursor_);
   }

   /// The key, and the newest value written at it; only while there is an entry.
   Key const& key() const { return (*cursor_)->key(); }
   Entry entry() const { return table_->entry(key()).value_or(Entry()); }

   EntryIteratorConst& operator++() {
      ++cursor_;
      settle();
      return *this;
   }

 private:
   // A handle whose entry is being deleted has no entry.
   void settle() const {
      while (cursor_ && !table_->entry(key())) {
         ++cursor_;
      }
   }

   T const* table_;
   mutable Cursor cursor_;
};

} // namespace ZandorL3Tunnel
