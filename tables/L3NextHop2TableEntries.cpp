#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Assert.h"
#include "swtable/AccessorBase.h"
#include "tables/L3NextHop2Table.h"

namespace ZandorL3Tunnel {

void
L3NextHop2Table::MergedEntry::mergedEntryHandleIs(HandlePtr const& handle) {
   for (auto const& held : *this) {
      if (held == handle) {
         return;
      }
   }
   NUV_ASSERT(size_ < numMemberTables(), "a merged entry has one handle for each member table");
   handles_[size_++] = handle;
   // A set: the order in which it was filled must not show.
   if (size_ == 2 && handles_[1]->creationNumber() < handles_[0]->creationNumber()) {
      std::swap(handles_[0], handles_[1]);
   }
}

void
L3NextHop2Table::MergedEntry::mergedEntryHandleDel(HandlePtr const& handle) {
   if (size_ == 2 && handles_[0] == handle) {
      std::swap(handles_[0], handles_[1]);
   }
   if (size_ != 0 && handles_[size_ - 1] == handle) {
      handles_[--size_] = nullptr;
   }
}

void
parseText(Nuv::TextRange&, L3NextHop2Table::MergedEntry&) {
   NUV_ASSERT_AS("L3NextHop2Table", false,
                 "\"No String constructor for MergedEntry - has collection\" == nullptr", "");
}

L3NextHop2Table::EntryHandle::EntryHandle(Key const& key, L3NextHop2Table* table)
    : SwTable::EntryHandle(table), key_(key) {}

L3NextHop2Table::EntryHandle::~EntryHandle() = default;

void
L3NextHop2Table::EntryHandle::cleanup() {
   if (auto* owner = table()) {
      owner->cleanup(*this);
   }
}

void
L3NextHop2Table::EntryHandle::handleEntryState() {
   DUOLOG(_defaultTraceHandle(), TraceLevel::state, "handleEntryState", " : ", entryState());
   NUV_ASSERT_AS("L3NextHop2Table", entryState() <= failed(), "0", "unexpected entryState");
   if (responseHandler_ && entryState() == success()) {
      DUOLOG(_defaultTraceHandle(), TraceLevel::state, "handleEntryState", " success callback ",
             entryState());
   }
   responseHandler_.entryStateIs(entryState());
}

void
L3NextHop2Table::UnresolvedMergedEntry::initUnresolvedMergedEntry(MergedEntry const& entry) {
   NUV_ASSERT_AS("L3NextHop2Table", entry.mergedEntryHandles() == MergedEntry::numMemberTables(),
                 "entry.mergedEntryHandles() == MergedEntry::numMemberTables()",
                 "All member tables are not filled");
   Nuv::Ptr<UnresolvedMergedEntry> alive(this);
   entry_ = entry;
   for (auto const& member : entry) {
      if (isNeeded(*member)) {
         neededEntryHandleSmIs(member);
      }
   }
   // All are followed before anybody hears of one.
   for (auto const& member : entry) {
      if (member->isFailed()) {
         setEntryState(member->entryState());
      }
   }
   if (!lacksIndex()) {
      doResolve();
   }
}

void
L3NextHop2Table::UnresolvedMergedEntry::setEntryState(Asic::SwTableBase::EntryState state) {
   if (handle_) {
      handle_->entryStateIs(state);
   }
}

void
L3NextHop2Table::UnresolvedMergedEntry::doResolve() {
   if (!handle_ || !handle_->table()) {
      return;
   }
   Nuv::Ptr<EntryHandle> handle(handle_);
   Nuv::Ptr<UnresolvedMergedEntry> alive(this);
   WriteWatch watch(*handle);
   Nuv::AllSteps steps;
   steps([&] { handle->hwEntryIndexIs(handle->table()->source_.held(handle->key())); });
   if (watch.isOvertaken() || hasFailedNeededEntry()) {
      steps.finish();
      return;
   }
   if (neededEntryHandleSms() != 0) {
      steps([&] { handle->entryStateIs(inProgress()); });
      steps.finish();
      return;
   }
   handle->mergedEntry_ = entry_;
   handle->unresolvedMergedEntry_ = nullptr;
   detach();
   steps([&] { handle->hwIndexValidIs(true); });
   if (!watch.isOvertaken()) {
      steps([&] { handle->entryStateIs(success()); });
   }
   steps.finish();
}

L3NextHop2Table::IndexDeallocatorSm::IndexDeallocatorSm(L3NextHop2Table& table)
    : table_(table), mergedTableSm_(*this), ingSm_(*this), egrSm_(*this) {
   table.notifieeIs(mergedTableSm_);
}

void
L3NextHop2Table::IndexDeallocatorSm::hasNotificationActiveIs(bool active) {
   Nuv::Object::hasNotificationActiveIs(active);
   mergedTableSm_.isActive = ingSm_.isActive = egrSm_.isActive = active;
   mergedTableSm_.handleIngL3NextHop2Table();
   mergedTableSm_.handleEgrL3NextHop2();
}

void
L3NextHop2Table::IndexDeallocatorSm::MergedTableSm::handleIngL3NextHop2Table() {
   if (isActive) {
      owner.ingSm_.leave();
      if (auto const& table = owner.table_.ingL3NextHop2Table()) {
         table->resolvedEntryNotifiees().notifieeIs(owner.ingSm_);
      }
   }
}

void
L3NextHop2Table::IndexDeallocatorSm::MergedTableSm::handleEgrL3NextHop2() {
   if (isActive) {
      owner.egrSm_.leave();
      if (auto const& table = owner.table_.egrL3NextHop2()) {
         table->resolvedEntryNotifiees().notifieeIs(owner.egrSm_);
      }
   }
}

void
L3NextHop2Table::IndexDeallocatorSm::MemberTableSm::handleResolvedEntry(Asic::Index const& index) {
   if (isActive) {
      owner.handleResolvedEntry(index);
   }
}

void
L3NextHop2Table::IndexDeallocatorSm::handleResolvedEntry(Asic::Index index) {
   auto const& trace = _defaultTraceHandle();
   if (!table_.indexAllocator()) {
      return;
   }
   auto& allocator = *table_.indexAllocator();
   auto key = allocator.keyForIndex(index);
   if (!key.type) {
      return;
   }
   if (table_.ingL3NextHop2Table_ && table_.ingL3NextHop2Table_->resolvedEntry(index)) {
      DUOLOG(trace, TraceLevel::resolve, "handleResolvedEntry", ": index still used in ingL3NextHop2Table");
      return;
   }
   if (table_.egrL3NextHop2_ && table_.egrL3NextHop2_->resolvedEntry(index)) {
      DUOLOG(trace, TraceLevel::resolve, "handleResolvedEntry", ": index still used in egrL3NextHop2");
      return;
   }
   DUOLOG(trace, TraceLevel::resolve, "handleResolvedEntry", ": freeing index :", index);
   allocator.releaseIndexForKey(*key.type, key.value, &table_);
}

} // namespace ZandorL3Tunnel
