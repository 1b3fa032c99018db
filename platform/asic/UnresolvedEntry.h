#pragma once

#include "platform/asic/SwTable.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/Pool.h"

#include <cstddef>
#include <span>

namespace Asic {

/// A value that waits for entries of other tables, each followed by a state machine of its own.
class ZANDOR_EXPORT SwTable::UnresolvedEntry : public Nuv::Object {
 public:
   using NeededHandle = Nuv::Ptr<SwTableBase::EntryHandle const>;

   ~UnresolvedEntry() override;

   /// How many needed entries are still waited for.
   std::size_t neededEntryHandleSms() const { return count_; }

   /// Makes room in one piece for that many, beyond those there are; without it each has a piece of its own.
   void neededEntryHandleSmsReserve(std::size_t count);

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

   /// Room for the state machines of `count` needed entries, for a class whose values mostly need so many.
   template <std::size_t count>
   class Room;

   UnresolvedEntry() = default;

   /// Puts the first state machines there. The room must outlive them: `neededEntryHandleSmDelAll` ends them.
   void roomIs(std::byte* room, std::size_t bytes) {
      room_ = room;
      roomEnd_ = room + bytes;
   }

   /// Ends all state machines; none hears of the end of another.
   void neededEntryHandleSmDelAll();

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

   /// The first of the state machines, in the order in which they came; each knows the next.
   NeededEntryHandleSm* sms() const { return first_; }

 private:
   void noteFailure(NeededEntryHandleSm&);
   void unlink(NeededEntryHandleSm&);
   void end(NeededEntryHandleSm&);

   NeededEntryHandleSm* first_{};
   NeededEntryHandleSm* last_{};
   std::byte* room_{}; ///< what is left of it
   std::byte* roomEnd_{};
   std::byte* piece_{}; ///< room that was made here
   std::size_t pieceBytes_{};
   std::uint32_t count_{};
   std::uint32_t failed_{};
};

/// Follows one needed entry for one waiting value.
class ZANDOR_EXPORT SwTable::UnresolvedEntry::NeededEntryHandleSm final
    : public SwTableBase::EntryHandle::Notifiee,
      public Nuv::Pooled {
 public:
   NeededEntryHandleSm(UnresolvedEntry& owner, NeededHandle handle, bool isInRoom)
       : owner_(owner), handle_(std::move(handle)), isInRoom_(isInRoom) {
      handle_->notifieeIs(*this);
   }

   SwTableBase::EntryHandle const& handle() const { return *handle_; }
   NeededEntryHandleSm* next() const { return next_; }

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
   NeededEntryHandleSm* previous_{};
   NeededEntryHandleSm* next_{};
   bool const isInRoom_;
   bool failed_{};
};

template <std::size_t count>
class SwTable::UnresolvedEntry::Room {
 public:
   explicit Room(UnresolvedEntry& owner) { owner.roomIs(bytes_, sizeof bytes_); }

 private:
   alignas(NeededEntryHandleSm) std::byte bytes_[count * sizeof(NeededEntryHandleSm)];
};

template <>
class SwTable::UnresolvedEntry::Room<0> {
 public:
   explicit Room(UnresolvedEntry&) {}
};

} // namespace Asic
