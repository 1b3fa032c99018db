#pragma once

#include "platform/asic/UnresolvedEntry.h"
#include "platform/nuv/Export.h"
#include "swtable/EntryBlock.h"
#include "swtable/ResponseHandler.h"

#include <deque>
#include <memory>

namespace ZandorL3Tunnel {

/// The key of `Key` is a block: the handle's own value is its key.
template <class Key>
concept BlockKey = requires(Key const& key) {
   key.members();
};

template <class T>
class WaitingEntry;

/// What a keyed table's handle holds for its entry's row: the value that should be there.
template <class T, class Key>
struct ZANDOR_EXPORT RowContent {
   typename T::Entry entry;
};

/// What a block table's handle holds for its run: how many of its rows the chip has not confirmed.
template <class T, BlockKey Key>
struct ZANDOR_EXPORT RowContent<T, Key> {
   std::uint32_t unconfirmedRows{};
};

/// The handle of one entry or block of table `T`: the one slot behind its table's collections.
template <class T>
class ZANDOR_EXPORT TableEntryHandle final : public Asic::SwTable::EntryHandle {
 public:
   using Key = typename T::Key;
   using Entry = typename T::Entry;
   using Accessor = Asic::SwTable::Accessor<T>;

   static constexpr char const* typeName() { return T::Sheet::typeName(); }

   TableEntryHandle(Key key, T* table);
   ~TableEntryHandle() override;

   Key const& key() const { return key_; }
   T* table() const { return static_cast<T*>(swTable()); }

   /// The value that waits for needed entries, or null.
   Nuv::Ptr<WaitingEntry<T>> const& unresolvedEntry() const { return unresolvedEntry_; }

   /// Whether the value that is to be in hardware is `entry`; of a keyed table alone, like the next.
   bool isResolvedAs(Entry const& entry) const { return isResolved() && content_.entry == entry; }

   /// Whether the newest value written is `entry`, and its row is not being cleared.
   bool isWrittenAs(Entry const& entry) const;

   /// A queue of values that come after the one that is in progress; it is emptied when that one is done. The
   /// front must be there to be read or dequeued.
   void pendingEntryEnq(Entry const& entry);
   Entry pendingEntryDeq();
   Entry const& pendingEntryFront() const { return pendingEntries_->front(); }
   Entry const& pendingEntryBack() const { return pendingEntries_->back(); }
   void pendingEntryDel() { pendingEntryDeq(); }
   void pendingEntryDelAll() { pendingEntries_ = nullptr; }
   std::size_t pendingEntries() const { return pendingEntries_ ? pendingEntries_->size() : 0; }

   /// A block's rows may belong to several tables: then the handle does not carry their index, and dependants
   /// find what the block holds.
   Asic::Index hwIndexForDependentField() const override;

   void handleRowConfirmed() override;
   void handleRowRefused() override;
   void handleRowDeleted() override;
   void handleRowReturned() override;

 protected:
   void cleanup() override;
   void handleEntryState() override;
   void handleResolvedEntryState() override;

 private:
   friend Accessor;

   Key key_;
   [[no_unique_address]] RowContent<T, Key> content_;
   Nuv::Ptr<WaitingEntry<T>> unresolvedEntry_;
   ResponseHandler responseHandler_;
   std::unique_ptr<std::deque<Entry>> pendingEntries_;
};

/// What a waiting value holds beside its handle: a keyed table's entry. A block is its own key.
template <class T, class Key>
struct ZANDOR_EXPORT WaitingValue {
   typename T::Entry entry;
};

template <class T, BlockKey Key>
struct ZANDOR_EXPORT WaitingValue<T, Key> {};

/// A value of table `T` that waits for entries of other tables.
template <class T>
class ZANDOR_EXPORT WaitingEntry final : public Asic::SwTable::UnresolvedEntry {
 public:
   using Handle = TableEntryHandle<T>;
   using Accessor = Asic::SwTable::Accessor<T>;

   WaitingEntry(Handle& handle, WaitingValue<T, typename T::Key> value)
       : handle_(&handle), value_(std::move(value)) {}
   ~WaitingEntry() override { this->neededEntryHandleSmDelAll(); }

   WaitingValue<T, typename T::Key> const& value() const { return value_; }

   /// The entry is waited for no longer: whatever its needed entries still say changes nothing.
   void detach() { handle_ = nullptr; }

   void doResolve() override;
   void markFailedNeededEntry() override { setEntryState(Asic::SwTableBase::failedNeededEntry()); }
   void setEntryState(Asic::SwTableBase::EntryState) override;

   bool isNeeded(Asic::SwTableBase::EntryHandle const& handle) const override;

 private:
   // A block knows how many it waits for when it begins to.
   using Room = Asic::SwTable::UnresolvedEntry::Room<BlockKey<typename T::Key> ? 0 : T::numDependentFields()>;

   Handle* handle_;
   [[no_unique_address]] WaitingValue<T, typename T::Key> value_;
   [[no_unique_address]] Room room_{*this};
};

} // namespace ZandorL3Tunnel
