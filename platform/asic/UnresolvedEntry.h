#pragma once

#include "platform/asic/SwTable.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/Pool.h"

#include <memory>
#include <vector>

namespace Asic {

/// A value that waits for entries of other tables, each followed by a state machine of its own.
class ZANDOR_EXPORT SwTable::UnresolvedEntry : public Nuv::Object {
 public:
   using NeededHandle = Nuv::Ptr<SwTableBase::EntryHandle const>;

   ~UnresolvedEntry() override;

   /// How many needed entries are still waited for.
   std::size_t neededEntryHandleSms() const { return sms_.size(); }

   /// Makes room for that many in all.
   void neededEntryHandleSmsReserve(std::size_t count) { sms_.reserve(count); }

   /// Waits for one more entry. The handle is held until then.
   void neededEntryHandleSmIs(NeededHandle const& handle);

   /// Whether what needs the entry of `handle` fails for now: it failed itself, or it has left its table.
   static bool failsWith(SwTableBase::EntryHandle const& handle) {
      return handle.isFailed() || handle.hasLeft();
   }

   virtual void doResolve() = 0;
   virtual void markFailedNeededEntry() = 0;
   virtual void setEntryState(EntryState) = 0;

 protected:
   class NeededEntryHandleSm;

   UnresolvedEntry();

   /// Whether the entry of `handle` must still be waited for. A failed one must.
   virtual bool isNeeded(SwTableBase::EntryHandle const& handle) const = 0;

   /// Whether it matters to this value that a needed entry's index becomes valid, or ceases to be.
   virtual bool followsValidIndices() const { return true; }

   /// A needed entry changed. By default: a failed one marks this one failed; the last one that is no longer
   /// needed resolves it; one that recovers takes the mark away when it was the only failed one.
   virtual void handleNeededEntry(NeededEntryHandleSm&);

   /// Whether one of the needed entries has failed.
   bool hasFailedNeededEntry() const { return failed_ != 0; }

   /// Ends a state machine, which may be the one that is announcing.
   void neededEntryHandleSmDel(NeededEntryHandleSm&);

   using Sms = std::vector<std::unique_ptr<NeededEntryHandleSm>,
                           Nuv::PoolAllocator<std::unique_ptr<NeededEntryHandleSm>>>;

   Sms const& sms() const { return sms_; }

 private:
   void noteFailure(NeededEntryHandleSm&);

   Sms sms_;
   std::size_t failed_{};
};

/// Follows one needed entry for one waiting value.
class ZANDOR_EXPORT SwTable::UnresolvedEntry::NeededEntryHandleSm final
    : public SwTableBase::EntryHandle::Notifiee,
      public Nuv::Pooled {
 public:
   NeededEntryHandleSm(UnresolvedEntry& owner, NeededHandle handle, std::size_t position);

   SwTableBase::EntryHandle const& handle() const { return *handle_; }

   void handleEntryState() override { changed(); }
   void handleHwEntryIndex() override { changed(); }
   void handleHwIndexValid() override {
      if (owner_.followsValidIndices()) {
         changed();
      }
   }
   void handleSwTable() override { changed(); }

 private:
   friend class UnresolvedEntry;
   void changed();

   UnresolvedEntry& owner_;
   NeededHandle handle_;
   std::size_t position_;
   bool failed_{};
};

} // namespace Asic
