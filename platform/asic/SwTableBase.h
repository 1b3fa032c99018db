#pragma once

#include "platform/asic/Index.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/Notifiee.h"
#include "platform/nuv/Ptr.h"
#include "platform/nuv/Text.h"
#include "platform/nuv/TextRange.h"

#include <functional>

namespace Asic {

/// What every software table is: a named thing with entries, whose users hold handles on them.
class ZANDOR_EXPORT SwTableBase : public Nuv::Object {
 public:
   /// How far an entry has come.
   enum class EntryState : std::uint8_t {
      unresolved = 0,        ///< written, not programmed: perhaps waiting for an entry that it needs
      inProgress = 1,        ///< row issued, not confirmed
      suspended = 2,         ///< the platform's; no table sets it
      success = 3,           ///< programmed
      failedNeededEntry = 4, ///< an entry that this one needs failed
      failed = 5             ///< no valid hardware index, or the row was refused
   };

   static constexpr EntryState unresolved() { return EntryState::unresolved; }
   static constexpr EntryState inProgress() { return EntryState::inProgress; }
   static constexpr EntryState success() { return EntryState::success; }
   static constexpr EntryState failedNeededEntry() { return EntryState::failedNeededEntry; }
   static constexpr EntryState failed() { return EntryState::failed; }

   class EntryHandle;

   /// What a user gives with a write, to hear how far the entry comes.
   using ResponseFunction = std::function<void(EntryState)>;

   Pelm::String const& tblName() const { return name_; }

   /// The index by which another table's row names the entry of `handle`; the invalid index without a handle.
   static Index getHwIndexForDependentField(Nuv::Ptr<EntryHandle const> const& handle);

   /// The handle at `address`, if a live table has one there; null otherwise. Walks the live tables.
   static Nuv::Ptr<EntryHandle const> liveHandle(std::uintptr_t address);

 protected:
   explicit SwTableBase(Pelm::String name);
   ~SwTableBase() override;

   /// The table's own handle at `address`, or null.
   virtual Nuv::Ptr<EntryHandle const> handleAt(std::uintptr_t address) const;

 private:
   Pelm::String name_;
   // The live tables are one list through the process.
   SwTableBase* previous_{};
   SwTableBase* next_{};
};

ZANDOR_EXPORT void appendText(Pelm::String& out, SwTableBase::EntryState);

/// Reads the address of a handle. Only null, a don't-care handle and the handle of a live table are found;
/// any other address is a `Nuv::RangeException`, so text never makes a pointer of its own.
ZANDOR_EXPORT void parseText(Nuv::TextRange& range, Nuv::Ptr<SwTableBase::EntryHandle const>& handle);

/// The counted handle of one entry: what users hold, and where they see how far the entry has come.
///
/// A mutator that changes a value tells the handle's own reaction first, then the observers in the order of
/// their registration, and only then returns; one that changes nothing tells nobody.
class ZANDOR_EXPORT SwTableBase::EntryHandle : public Nuv::Object {
 public:
   /// Observer of one handle. It may do anything: leave, bring or end observers, change or drop the handle.
   class Notifiee : public Nuv::Notifiee {
    public:
      virtual void handleEntryState() {}
      virtual void handleHwEntryIndex() {}
      virtual void handleHwIndexValid() {}
      /// The handle has left its table.
      virtual void handleSwTable() {}
   };

   EntryState entryState() const { return entryState_; }
   void entryStateIs(EntryState);

   /// The index that the entry's row was issued at; invalid before that.
   Index hwEntryIndex() const { return hwEntryIndex_; }
   void hwEntryIndexIs(Index);

   /// Whether the chip has confirmed a row at the index and no delete of it is queued.
   bool isHwIndexValid() const { return hwIndexValid_; }
   void hwIndexValidIs(bool);

   bool isComplete() const { return entryState_ == success(); }
   /// Whether the handle has left its table: nothing becomes of its entry any more.
   bool hasLeft() const { return tableBytes_.hasLeft; }

   bool isFailed() const { return entryState_ == failed() || entryState_ == failedNeededEntry(); }

   virtual Index hwIndexForDependentField() const { return hwEntryIndex_; }

   /// Unlike the address, the same in every run: handles are hashed and ordered by it. From 1, never reused.
   std::uint64_t creationNumber() const { return creationNumber_; }

   /// Registers an observer; it hears changes until it leaves or the handle ends.
   void notifieeIs(Notifiee& notifiee) const { notifieeList_.notifieeIs(notifiee); }

 protected:
   EntryHandle();

   /// The handle's own reaction to a change of its state, ahead of all observers.
   virtual void handleEntryState() {}

   // The bytes of the table's handle that lie here, in what would be padding.
   struct TableBytes {
      std::uint8_t entryType{};
      EntryState resolvedEntryState{};
      bool isResolved : 1 = false;
      bool isRowRefused : 1 = false;
      bool isRowTaken : 1 = false;
      bool isMapped : 1 = false;
      bool hasLeft : 1 = false;
      std::uint8_t writes{};
   };
   TableBytes tableBytes_;

   /// Tells the observers that the handle has left its table.
   void announceSwTable();

   /// The handle has no observers any more. They hear nothing of it.
   void notifieeDelAll() { notifieeList_.clear(); }

 private:
   template <class Tell>
   void announce(Tell&&);

   EntryState entryState_{EntryState::unresolved};
   bool hwIndexValid_{};
   Index hwEntryIndex_{invalidIndex};
   std::uint64_t creationNumber_;
   mutable Nuv::NotifieeList<Notifiee> notifieeList_;
};

inline Index
SwTableBase::getHwIndexForDependentField(Nuv::Ptr<EntryHandle const> const& handle) {
   return handle ? handle->hwIndexForDependentField() : invalidIndex;
}

} // namespace Asic
