#include "platform/asic/SwTableBase.h"

#include "platform/asic/DontCareHandle.h"

namespace Asic {

namespace {

SwTableBase* liveTables = nullptr;

} // namespace

SwTableBase::SwTableBase(Pelm::String name) : name_(std::move(name)), next_(liveTables) {
   if (next_) {
      next_->previous_ = this;
   }
   liveTables = this;
}

SwTableBase::~SwTableBase() {
   (previous_ ? previous_->next_ : liveTables) = next_;
   if (next_) {
      next_->previous_ = previous_;
   }
}

Nuv::Ptr<SwTableBase::EntryHandle const>
SwTableBase::handleAt(std::uintptr_t) const {
   return nullptr;
}

Nuv::Ptr<SwTableBase::EntryHandle const>
SwTableBase::liveHandle(std::uintptr_t address) {
   for (auto const* table = liveTables; table; table = table->next_) {
      if (auto handle = table->handleAt(address)) {
         return handle;
      }
   }
   return nullptr;
}

void
parseText(Nuv::TextRange& range, Nuv::Ptr<SwTableBase::EntryHandle const>& handle) {
   auto before = range;
   range.require("0x");
   std::uintptr_t address = 0;
   do {
      if (address >> (8 * sizeof address - 4)) {
         throw before.expected("the address of a handle");
      }
      address = address << 4 | range.hexDigit();
   } while (range.atHexDigit());
   auto found = address == 0 ? nullptr : SwTableBase::liveHandle(address);
   if (!found && address != 0) {
      found = SwTableWorkaround::dontCareHandleAt(address);
   }
   if (!found && address != 0) {
      throw before.expected("the address of a handle");
   }
   handle = found;
}

void
appendText(Pelm::String& out, SwTableBase::EntryState state) {
   static constexpr char const* names[] = {"unresolved", "inProgress",        "suspended",
                                           "success",    "failedNeededEntry", "failed"};
   auto number = unsigned(state);
   if (number < std::size(names)) {
      out.append(names[number]);
   } else {
      Nuv::appendText(out, number);
   }
}

SwTableBase::EntryHandle::EntryHandle() {
   static std::uint64_t created = 0;
   creationNumber_ = ++created;
}

template <class Tell>
void
SwTableBase::EntryHandle::announce(Tell&& tell) {
   if (!notifieeList_.empty() && hasNotificationActive()) {
      notifieeList_.announce(tell);
   }
}

void
SwTableBase::EntryHandle::entryStateIs(EntryState state) {
   if (state == entryState_) {
      return;
   }
   entryState_ = state;
   Nuv::Ptr<EntryHandle> alive(this);
   Nuv::AllSteps steps;
   steps([this] { handleEntryState(); });
   steps([this] { announce([](Notifiee& notifiee) { notifiee.handleEntryState(); }); });
   steps.finish();
}

void
SwTableBase::EntryHandle::hwEntryIndexIs(Index index) {
   if (index == hwEntryIndex_) {
      return;
   }
   hwEntryIndex_ = index;
   announce([](Notifiee& notifiee) { notifiee.handleHwEntryIndex(); });
}

void
SwTableBase::EntryHandle::announceSwTable() {
   tableBytes_.hasLeft = true;
   announce([](Notifiee& notifiee) { notifiee.handleSwTable(); });
}

void
SwTableBase::EntryHandle::hwIndexValidIs(bool valid) {
   if (valid == hwIndexValid_) {
      return;
   }
   hwIndexValid_ = valid;
   announce([](Notifiee& notifiee) { notifiee.handleHwIndexValid(); });
}

} // namespace Asic
