#pragma once

#include "platform/asic/UnresolvedEntry.h"
#include "platform/nuv/Export.h"

namespace Asic {

/// A software table whose entries are made of one entry in each of several member tables. It writes no rows
/// itself.
class ZANDOR_EXPORT SwMergedTable : public SwTable {
 public:
   class UnresolvedMergedEntry;

 protected:
   using SwTable::SwTable;
};

/// A merged entry that waits until all of its member entries have succeeded.
class ZANDOR_EXPORT SwMergedTable::UnresolvedMergedEntry : public SwTable::UnresolvedEntry {
 protected:
   bool isNeeded(SwTableBase::EntryHandle const& member) const override {
      return member.entryState() != success();
   }

   /// A member's row is there when it has succeeded, and until then its index need not be valid.
   bool followsValidIndices() const override { return false; }

   /// A member changed: its failure is passed on; its success is not, but takes it off the list. While
   /// another member has failed, that one's failure is passed on; else, once every member that is still
   /// waited for has its row's index, `doResolve` runs.
   void handleNeededEntry(NeededEntryHandleSm&) override;

   /// The failure of `member` is passed on as what it is.
   void failsAs(SwTableBase::EntryHandle const& member);

   /// Whether a member that is still waited for has no index.
   bool lacksIndex() const;
};

} // namespace Asic
