#pragma once

#include "platform/nuv/Export.h"
#include "swtable/TableCore.h"

namespace ZandorL3Tunnel {

/// A software table whose entries are blocks, runs of rows: the operations that its users call. `T` and
/// `SheetType` as for `TableCore`.
template <class T, class SheetType>
class ZANDOR_EXPORT BlockTable
    : public TableCore<T, SheetType, ZandorL3Tunnel::EntryBlock<SheetType>, Asic::SwBlockTable> {
   using Core = TableCore<T, SheetType, ZandorL3Tunnel::EntryBlock<SheetType>, Asic::SwBlockTable>;

 public:
   using typename Core::HandlePtr;
   using EntryBlock = ZandorL3Tunnel::EntryBlock<SheetType>;

   /// The handle of the block that is equal to `block`, or of a new one, which waits for its members' handles
   /// and then takes a run of rows. It lives as long as somebody holds the handle. Throws `Nuv::Exception`,
   /// changing nothing, when the block's size does not fit 16 bits.
   HandlePtr entryBlockRef(EntryBlock const& block) { return this->accessor().entryBlockRef(block); }

   /// Gives every commit back; blocks that are only referenced stay with their holders.
   void entryBlockRemoveAll() { this->accessor().entryRemoveAll(); }

 protected:
   using Core::Core;
};

} // namespace ZandorL3Tunnel
