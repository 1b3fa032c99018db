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

   /// A member changed: its failure is passed on; its success is not, but takes it off the list. Then, once
   /// every member that is still waited for has its row's index, `doResolve` runs.
   void handleNeededEntry(NeededEntryHandleSm&) override;

   /// Whether a member that is still waited for has no index.
   bool lacksIndex() const;
};

} // namespace Asic
