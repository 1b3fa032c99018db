#pragma once

#include "platform/nuv/Export.h"
#include "swtable/Sheet.h"
#include "swtable/TableCore.h"

namespace ZandorL3Tunnel {

/// A software table whose entries are blocks, runs of rows: the operations that its users call. `T` and
/// `SheetType` as for `TableCore`.
template <class T, class SheetType>
class ZANDOR_EXPORT BlockTable
    : public TableCore<T, SheetType, ZandorL3Tunnel::EntryBlock<SheetType>, Asic::SwBlockTable> {
   using Core = TableCore<T, SheetType, ZandorL3Tunnel::EntryBlock<SheetType>, Asic::SwBlockTable>;

   static_assert(BlockTableSheet<SheetType>,
                 "the data sheet of a block table has typeName(), hwTableName(), the types Entry (its "
                 "member: a record "
                 "that is an Asic::EntryBase) and Source (OwnAllocator<A> or SharedAllocator<A>, A an "
                 "Asic::AnySizedBlockAllocator)");

 public:
   using typename Core::HandlePtr;
   using EntryBlock = ZandorL3Tunnel::EntryBlock<SheetType>;
   using UnresolvedEntryBlock = typename Core::UnresolvedEntry;
   using ResponseFunction = Asic::SwTableBase::ResponseFunction;

   /// The handle of the block that is equal to `block`, or of a new one, which waits for its members' handles
   /// and then takes a run of rows. It lives as long as somebody holds the handle. Throws `Nuv::Exception`,
   /// changing nothing, when the block's size does not fit 16 bits.
   HandlePtr entryBlockRef(EntryBlock const& block) { return this->accessor().entryBlockRef(block); }

   /// The same block to stay until `entryBlockRemove`. `handler` hears each progress and each failure of the
   /// block, up to its first success, and replaces an earlier one, also when it is empty.
   HandlePtr entryBlockCommitWithResponseHandler(EntryBlock const& block, ResponseFunction handler) {
      return this->accessor().entryBlockCommit(block, std::move(handler));
   }
   HandlePtr entryBlockCommit(EntryBlock const& block) {
      return entryBlockCommitWithResponseHandler(block, {});
   }

   /// A commit with `needsExplicitRemove`, else a reference, which takes no handler.
   HandlePtr entryBlockWriteWithResponseHandler(EntryBlock const& block, ResponseFunction handler,
                                                Asic::AutoRemoveType autoRemoveType) {
      return autoRemoveType == Asic::needsExplicitRemove()
                   ? entryBlockCommitWithResponseHandler(block, std::move(handler))
                   : entryBlockRef(block);
   }
   HandlePtr entryBlockWrite(EntryBlock const& block, Asic::AutoRemoveType autoRemoveType) {
      return entryBlockWriteWithResponseHandler(block, {}, autoRemoveType);
   }

   /// Gives the block's commit back: it goes with its last holder. Without a commit it does nothing.
   void entryBlockRemove(EntryBlock const& block) { this->accessor().entryRemove(block); }

   /// Gives every commit back; blocks that are only referenced stay with their holders.
   void entryBlockRemoveAll() { this->accessor().entryRemoveAll(); }

   bool entryBlockHas(EntryBlock const& block) const { return this->entryHas(block); }

   /// What waits at the block; null when it waits for nothing or is not there.
   Nuv::Ptr<UnresolvedEntryBlock> unresolvedEntryBlock(EntryBlock const& block) const {
      auto handle = this->entryHandle(block);
      return handle ? handle->unresolvedEntry() : nullptr;
   }

   /// Whether the block is to be in hardware.
   bool resolvedEntryBlockHas(EntryBlock const& block) const {
      auto handle = this->entryHandle(block);
      return handle && handle->isResolved();
   }

   /// Programs the block once more, as if it had just been resolved; a block that is not resolved is left
   /// alone. Equal rows cost nothing.
   void handleEntryBlock(EntryBlock const& block) { this->accessor().handleEntryBlock(block); }

 protected:
   using Core::Core;
};

} // namespace ZandorL3Tunnel
