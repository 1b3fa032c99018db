#pragma once

#include "platform/asic/ChipInfo.h"
#include "platform/asic/SwTableBase.h"
#include "platform/asic/WriteResponseSm.h"
#include "platform/kallo/EntityManager.h"
#include "platform/nuv/Export.h"

namespace Asic {

class HwTable;

/// A software table over one hardware table of a chip.
class ZANDOR_EXPORT SwTable : public SwTableBase {
 public:
   class EntryHandle;
   class UnresolvedEntry;
   class Util;
   template <class Entry>
   class EntryUtil;

   /// What a table does with its entries, once for all tables; `T` is the table's own type.
   template <class T>
   class Accessor;

   /// Ties the table to the hardware table of `unit`, which it mounts and looks up in `entityManager`. Ends
   /// with `doInitComplete`. A table without a hardware table, or without a util for the chip's rows, works
   /// without writing rows. To be called once: whoever wants to begin anew makes another table.
   void doInit(UnitId unit, Nuv::Ptr<Kallo::EntityManager> const& entityManager, ChipInfo const& chipInfo);

   /// Publishes which hardware table the table writes rows to, in the entity manager of `doInit`: a
   /// `HwTableMountInfo` under the table's type. Does nothing before `doInit`, for a table without rows, or
   /// when called again. Observers may be called before it returns.
   virtual void doPublishHwTableMountInfo();

   /// Takes the table down: its rows are cleared, its handles stay valid and inert. A second call does
   /// nothing.
   virtual void cleanup() = 0;

   /// Number of rows; without a hardware table as many as an index can name.
   virtual Index numEntries() const;
   Index minIndex() const;
   Index maxIndex() const;

   ChipInfo const& chipInfo() const { return chipInfo_; }

   Nuv::Ptr<WriteResponseSm> const& writeResponseSm() const { return writeResponseSm_; }
   void writeResponseSmIs(SwTable* table);
   void writeResponseSmDel();

   /// Whether somebody else writes the rows: resolved blocks are left as they are then.
   enum class Mode : std::uint8_t { ownRows = 0, writtenElsewhere = 1 };
   Mode mode() const { return mode_; }
   void modeIs(Mode mode) { mode_ = mode; }

   /// How often there was no free index, or run of indices, for an entry.
   std::uint64_t hwIndexFailures() const { return hwIndexFailures_; }

   /// Whether entries wait for the chip's answers; off, an entry completes with the write of its row.
   bool responseEnabled() const { return responseEnabled_; }
   void responseEnabledIs(bool enabled) { responseEnabled_ = enabled; }

 protected:
   void hwIndexFailed() { ++hwIndexFailures_; }

   explicit SwTable(Pelm::String name);
   ~SwTable() override;

   virtual void doInitEnclosed(UnitId, Nuv::Ptr<Kallo::EntityManager> const&, ChipInfo const&) {}
   virtual void doInitComplete() {}

   /// The hardware table's name beneath its unit, and the table's own util for it.
   /// A table that writes no rows itself has neither.
   virtual Pelm::String hwTableName() const { return {}; }
   /// The full name of the table's type.
   virtual Pelm::String tableType() const { return {}; }
   virtual void utilIs(Nuv::Ptr<HwTable> const&) {}
   virtual HwTable* hwTable() const { return nullptr; }

   void onZeroReferences() override { cleanup(); }

 private:
   ChipInfo chipInfo_;
   bool responseEnabled_{true};
   Mode mode_{};
   bool isInitialized_{};
   std::uint64_t hwIndexFailures_{};
   UnitId unit_{};
   // Held until it is published: entities may hold tables, so no longer than that.
   Nuv::Ptr<Kallo::EntityManager> publishIn_;
   Nuv::Ptr<WriteResponseSm> writeResponseSm_;
};

/// A table whose callers name the index: the key is the index.
class ZANDOR_EXPORT SwKnownIndexTable : public SwTable {
 protected:
   using SwTable::SwTable;
};

/// A table whose unit is a block of rows.
class ZANDOR_EXPORT SwBlockTable : public SwTable {
 protected:
   using SwTable::SwTable;
};

/// The handle of one entry of a software table.
///
/// A handle that its table holds (`unset`, `committed`, `inDeletion`) points back at the table plainly; one
/// that only its users hold (`referenceOnly`, not mapped) keeps the table alive.
class ZANDOR_EXPORT SwTable::EntryHandle : public SwTableBase::EntryHandle {
 public:
   enum class EntryType : std::uint8_t { unset = 0, referenceOnly = 1, committed = 2, inDeletion = 3 };

   static constexpr EntryType unset() { return EntryType::unset; }
   static constexpr EntryType referenceOnly() { return EntryType::referenceOnly; }
   static constexpr EntryType committed() { return EntryType::committed; }
   static constexpr EntryType inDeletion() { return EntryType::inDeletion; }

   EntryType entryType() const { return EntryType(tableBytes_.entryType); }
   void entryTypeIs(EntryType);

   /// The state of the row, beneath the state of the entry.
   EntryState resolvedEntryState() const { return tableBytes_.resolvedEntryState; }
   void resolvedEntryStateIs(EntryState);

   /// Whether the table holds the handle for another key, too: it does not keep its table alive then.
   bool isMapped() const { return tableBytes_.isMapped; }
   void isMappedIs(bool mapped);

   /// The table, null once the handle has left it.
   SwTable* swTable() const { return swTable_; }
   /// The handle leaves its table, and lets it go if it kept it alive. Its observers hear of it.
   void swTableDel();

   /// The chip has confirmed the row that this handle's entry wrote last, or has refused it.
   virtual void handleRowConfirmed() {}
   virtual void handleRowRefused() {}
   /// The chip has cleared the row that this handle's entry had, or somebody else has the row now.
   virtual void handleRowDeleted() {}
   /// The row that somebody else wrote over this handle's entry is this one's again.
   virtual void handleRowReturned() {}

   /// Whether the table wants the handle's value in hardware.
   bool isResolved() const { return tableBytes_.isResolved; }

   /// Whether the chip refused the row of that value: its predecessor, if any, is in force.
   bool isRowRefused() const { return tableBytes_.isRowRefused; }

   /// Whether the row of that value was cleared without another write: the value is in force no longer.
   bool isRowTaken() const { return tableBytes_.isRowTaken; }

   /// Counts, modulo 256, the writes and removals of the entry: who announces compares it before and after,
   /// and stops where somebody else was faster.
   std::uint8_t writes() const { return tableBytes_.writes; }

 protected:
   explicit EntryHandle(SwTable* table);
   ~EntryHandle() override = default;

   /// The last reference went, or the table lets go: takes the entry out of the table.
   virtual void cleanup() = 0;
   virtual void handleResolvedEntryState() {}

   bool keepsTableAlive() const { return swTable_ && entryType() == referenceOnly() && !isMapped(); }

   void isResolvedIs(bool resolved) { tableBytes_.isResolved = resolved; }
   void isRowRefusedIs(bool refused) { tableBytes_.isRowRefused = refused; }
   void isRowTakenIs(bool taken) { tableBytes_.isRowTaken = taken; }
   void writeIs() { ++tableBytes_.writes; }
   void onZeroReferences() override { cleanup(); }

 private:
   template <class Change>
   void changeHold(Change&& change);

   SwTable* swTable_;
};

ZANDOR_EXPORT void appendText(Pelm::String& out, SwTable::EntryHandle::EntryType);

} // namespace Asic
