#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Assert.h"
#include "swtable/AccessorBase.h"
#include "tables/L3NextHop2Table.h"

namespace ZandorL3Tunnel {

void
L3NextHop2Table::MergedEntry::mergedEntryHandleIs(HandlePtr handle) {
   for (auto const& held : *this) {
      if (held == handle) {
         return;
      }
   }
   NUV_ASSERT(size_ < numMemberTables(), "a merged entry has one handle for each member table");
   handles_[size_++] = std::move(handle);
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
   DUOLOG(defaultTraceHandle(), TraceLevel::state, "handleEntryState", " : ", entryState());
   NUV_ASSERT_AS("L3NextHop2Table", entryState() <= failed(), "0", "unexpected entryState");
   if (responseHandler_ && entryState() == success()) {
      DUOLOG(defaultTraceHandle(), TraceLevel::state, "handleEntryState", " success callback ", entryState());
   }
   responseHandler_.entryStateIs(entryState());
}

void
L3NextHop2Table::UnresolvedMergedEntry::initUnresolvedMergedEntry(MergedEntry entry) {
   NUV_ASSERT_AS("L3NextHop2Table", entry.mergedEntryHandles() == MergedEntry::numMemberTables(),
                 "entry.mergedEntryHandles() == MergedEntry::numMemberTables()",
                 "All member tables are not filled");
   Nuv::Ptr<UnresolvedMergedEntry> alive(this);
   entry_ = std::move(entry);
   for (auto const& member : entry_) {
      if (isNeeded(*member)) {
         neededEntryHandleSmIs(member);
      }
   }
   // All are followed before anybody hears of one. Of two failures that of a needed entry is told, whichever
   // half has it.
   Asic::SwTableBase::EntryHandle const* failed = nullptr;
   for (auto const& member : entry_) {
      if (failsWith(*member) && (!failed || failed->entryState() == Asic::SwTableBase::failed())) {
         failed = member.get();
      }
   }
   if (failed) {
      failsAs(*failed);
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
   bool isWhole = entry_.mergedEntryHandles() == MergedEntry::numMemberTables();
   if (!isWhole || !handle_ || !handle_->table()) {
      return;
   }
   // The halves are issued at the key's index.
   auto const& half = *entry_.begin();
   auto likely = half ? half->hwEntryIndex() : Asic::invalidIndex;
   bool isUnderWay = likely != Asic::invalidIndex && likely == handle_->hwEntryIndex() &&
                     handle_->entryState() == inProgress();
   if (isUnderWay && neededEntryHandleSms() != 0) {
      return;
   }
   auto index = isUnderWay ? likely : handle_->table()->source_.held(handle_->key(), likely);
   Nuv::Ptr<EntryHandle> handle(handle_);
   Nuv::Ptr<UnresolvedMergedEntry> alive(this);
   WriteWatch watch(*handle);
   Nuv::AllSteps steps;
   steps([&] { handle->hwEntryIndexIs(index); });
   // Who heard of the index may have resolved the pair, too.
   if (watch.isOvertaken() || !handle_ || hasFailedNeededEntry()) {
      steps.finish();
      return;
   }
   if (neededEntryHandleSms() != 0) {
      steps([&] { handle->entryStateIs(inProgress()); });
      steps.finish();
      return;
   }
   auto const before = std::exchange(handle->mergedEntry_, std::move(entry_));
   handle->unresolvedMergedEntry_ = nullptr;
   detach();
   steps([&] { handle->hwIndexValidIs(true); });
   if (!watch.isOvertaken()) {
      steps([&] { handle->entryStateIs(success()); });
   }
   steps.finish();
}

namespace {

// A handle may begin anywhere in a line, and is shorter than two.
void
prefetchHandle(Asic::SwTableBase::EntryHandle const* handle) {
   auto const* bytes = reinterpret_cast<char const*>(handle);
   __builtin_prefetch(bytes);
   __builtin_prefetch(bytes + 64);
}

template <class T>
void
prefetchHalf(Nuv::Ptr<T> const& table, Asic::Index index) {
   if (table) {
      table->handles().prefetch(index);
      if (auto const& util = table->util()) {
         util->hwTable().prefetch(index);
      }
   }
}

} // namespace

// All that the end of a next hop will read, and that lies apart from each other.
void
L3NextHop2Table::endExpected(EntryHandle const& handle) const {
   handles_.prefetch(handle.key());
   for (auto const& half : handle.mergedEntry()) {
      prefetchHandle(half.get());
   }
   if (handle.hwEntryIndex() != Asic::invalidIndex) {
      prefetchHalf(ingL3NextHop2Table_, handle.hwEntryIndex());
      prefetchHalf(egrL3NextHop2_, handle.hwEntryIndex());
   }
}

L3NextHop2Table::IndexDeallocatorSm::IndexDeallocatorSm(L3NextHop2Table& table)
    : table_(table), mergedTable_(*this), ingSm_(*this), egrSm_(*this) {
   table.notifieeIs(mergedTable_);
}

void
L3NextHop2Table::IndexDeallocatorSm::hasNotificationActiveIs(bool active) {
   Nuv::Object::hasNotificationActiveIs(active);
   mergedTable_.isActive = ingSm_.isActive = egrSm_.isActive = active;
   mergedTable_.handleIngL3NextHop2Table();
   mergedTable_.handleEgrL3NextHop2();
}

void
L3NextHop2Table::IndexDeallocatorSm::NuvMergedTable::handleIngL3NextHop2Table() {
   if (isActive) {
      owner.ingSm_.leave();
      if (auto const& table = owner.table_.ingL3NextHop2Table()) {
         table->resolvedEntryNotifiees().notifieeIs(owner.ingSm_);
      }
   }
}

void
L3NextHop2Table::IndexDeallocatorSm::NuvMergedTable::handleEgrL3NextHop2() {
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
   auto const& trace = defaultTraceHandle();
   auto const allocator = table_.indexAllocator();
   if (!allocator || !allocator->isHeldAt(index)) {
      return;
   }
   if (table_.ingL3NextHop2Table_ && table_.ingL3NextHop2Table_->resolvedEntryHas(index)) {
      DUOLOG(trace, TraceLevel::resolve, "handleResolvedEntry", ": index still used in ingL3NextHop2Table");
      return;
   }
   if (table_.egrL3NextHop2_ && table_.egrL3NextHop2_->resolvedEntryHas(index)) {
      DUOLOG(trace, TraceLevel::resolve, "handleResolvedEntry", ": index still used in egrL3NextHop2");
      return;
   }
   DUOLOG(trace, TraceLevel::resolve, "handleResolvedEntry", ": freeing index :", index);
   allocator->releaseIndexAt(index, &table_);
}

} // namespace ZandorL3Tunnel
