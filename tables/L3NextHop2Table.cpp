#include "tables/L3NextHop2Table.h"

#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Assert.h"
#include "swtable/AccessorBase.h"

#include <algorithm>

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3NextHop2Table");
Nuv::RegisteredValue<IngL3NextHop2Table::Entry> const ingEntryType(module);
Nuv::RegisteredValue<EgrL3NextHop2::Entry> const egrEntryType(module);
Nuv::RegisteredClass<IngL3NextHop2Table> const ingTableType(module, [](Pelm::String const& name) {
   return Nuv::Ptr<Nuv::Object>(ingL3NextHop2TableFactory(name));
});
Nuv::RegisteredClass<EgrL3NextHop2> const egrTableType(module, [](Pelm::String const& name) {
   return Nuv::Ptr<Nuv::Object>(egrL3NextHop2Factory(name));
});
Nuv::RegisteredClass<L3NextHop2Table> const tableType(module, [](Pelm::String const&) {
   return Nuv::Ptr<Nuv::Object>(l3NextHop2TableFactory());
});

} // namespace

L3NextHop2Table::L3NextHop2Table() : SwMergedTable(typeName()) {}

L3NextHop2Table::~L3NextHop2Table() = default;

Nuv::FwkType
L3NextHop2Table::staticFwkType() {
   return {&module};
}

Nuv::Ptr<L3NextHop2Table>
l3NextHop2TableFactory() {
   return Nuv::make<L3NextHop2Table>();
}

void
L3NextHop2Table::doEnclosingInit() {
   ingL3NextHop2TableIs();
   egrL3NextHop2Is();
}

void
L3NextHop2Table::ingL3NextHop2TableIs(Nuv::Ptr<IngL3NextHop2Table> table) {
   std::swap(ingL3NextHop2Table_, table);
   notifieeList_.announce([](Notifiee& notifiee) { notifiee.handleIngL3NextHop2Table(); });
}

void
L3NextHop2Table::egrL3NextHop2Is(Nuv::Ptr<EgrL3NextHop2> table) {
   std::swap(egrL3NextHop2_, table);
   notifieeList_.announce([](Notifiee& notifiee) { notifiee.handleEgrL3NextHop2(); });
}

Nuv::Ptr<IngL3NextHop2Table>
L3NextHop2Table::ingL3NextHop2TableIs() {
   auto table = ingL3NextHop2TableFactory(IngL3NextHop2Table::typeName());
   ingL3NextHop2TableIs(table);
   return table;
}

Nuv::Ptr<EgrL3NextHop2>
L3NextHop2Table::egrL3NextHop2Is() {
   auto table = egrL3NextHop2Factory(EgrL3NextHop2::typeName());
   egrL3NextHop2Is(table);
   return table;
}

void
L3NextHop2Table::ingL3NextHop2TableDel() {
   ingL3NextHop2TableIs(nullptr);
}

void
L3NextHop2Table::egrL3NextHop2Del() {
   egrL3NextHop2Is(nullptr);
}

void
L3NextHop2Table::doInitEnclosed(Asic::UnitId unit, Nuv::Ptr<Kallo::EntityManager> const& entityManager,
                                Asic::ChipInfo const& chip) {
   doEnclosingInit();
   ingL3NextHop2Table_->doInit(unit, entityManager, chip);
   egrL3NextHop2_->doInit(unit, entityManager, chip);
}

void
L3NextHop2Table::doInitComplete() {
   source_.init(*this);
   doReserveIndicesAtTableInit();
   indexDeallocatorSm_ = Nuv::make<IndexDeallocatorSm>(*this);
}

void
L3NextHop2Table::indexAllocatorIs(Nuv::Ptr<L3NextHop2SharedAllocator> const& allocator) {
   NUV_ASSERT(handles_.size() == 0, tblName());
   source_.allocatorIs(allocator);
   if (allocator) {
      doReserveIndicesAtTableInit();
   }
}

void
L3NextHop2Table::doMountHwTableMountInfo(Nuv::Ptr<Kallo::MountGroup> const& group) {
   IngL3NextHop2Table::doMountHwTableMountInfo(group);
   EgrL3NextHop2::doMountHwTableMountInfo(group);
}

void
L3NextHop2Table::doRecoverHwTable(Nuv::Ptr<Asic::HwTableRecoverGroup> const& group, Asic::UnitId unit,
                                  Nuv::Ptr<Kallo::EntityManager> const& entityManager,
                                  Asic::ChipInfo const& chipInfo) {
   IngL3NextHop2Table::doRecoverHwTable(group, unit, entityManager, chipInfo);
   EgrL3NextHop2::doRecoverHwTable(group, unit, entityManager, chipInfo);
}

// The rows are those of the member tables.
void
L3NextHop2Table::hasNotificationActiveIs(bool active) {
   Nuv::Object::hasNotificationActiveIs(active);
   if (hasMemberTables()) {
      ingL3NextHop2Table_->hasNotificationActiveIs(active);
      egrL3NextHop2_->hasNotificationActiveIs(active);
   }
}

void
L3NextHop2Table::doPublishHwTableMountInfo() {
   if (!hasMemberTables()) {
      return;
   }
   // Who hears of the first may let go of this table.
   Nuv::Ptr<L3NextHop2Table> alive(this);
   Nuv::AllSteps steps;
   steps([this] { ingL3NextHop2Table_->doPublishHwTableMountInfo(); });
   steps([this] { egrL3NextHop2_->doPublishHwTableMountInfo(); });
   steps.finish();
}

Asic::Index
L3NextHop2Table::numEntries() const {
   return hasMemberTables() ? std::min(ingL3NextHop2Table_->numEntries(), egrL3NextHop2_->numEntries())
                            : Asic::invalidIndex;
}

Nuv::Ptr<L3NextHop2Table::EntryHandle>
L3NextHop2Table::handleAtKey(Key const& key) const {
   auto const* mapped = mapped_.find(key);
   return mapped ? *mapped : handles_.find(key);
}

Nuv::Ptr<L3NextHop2Table::EntryHandle const>
L3NextHop2Table::entryHandle(Key const& key) const {
   return handleAtKey(key);
}

Asic::Index
L3NextHop2Table::hwIndexOnlyForCrossAgentCommunication(Key const& key) const {
   auto handle = handleAtKey(key);
   return handle ? handle->hwEntryIndex() : Asic::invalidIndex;
}

std::optional<IngL3NextHop2Table::Entry>
L3NextHop2Table::ingL3NextHop2TableEntry(Key const& key) const {
   auto handle = handleAtKey(key);
   auto index = source_.held(handle ? handle->key() : key);
   return index == Asic::invalidIndex || !ingL3NextHop2Table_ ? std::nullopt
                                                              : ingL3NextHop2Table_->entry(index);
}

std::optional<EgrL3NextHop2::Entry>
L3NextHop2Table::egrL3NextHop2Entry(Key const& key) const {
   auto handle = handleAtKey(key);
   auto index = source_.held(handle ? handle->key() : key);
   return index == Asic::invalidIndex || !egrL3NextHop2_ ? std::nullopt : egrL3NextHop2_->entry(index);
}

Nuv::Ptr<L3NextHop2Table::EntryHandle>
L3NextHop2Table::ownHandle(Key const& key) {
   return handles_.findOrMake(key, [&] { return Nuv::make<EntryHandle>(key, this); });
}

Nuv::Ptr<L3NextHop2Table::EntryHandle>
L3NextHop2Table::writtenHandle(Key const& key, Asic::AutoRemoveType autoRemoveType) {
   auto handle = ownHandle(key);
   if (autoRemoveType == Asic::needsExplicitRemove()) {
      AccessorBase::committed(*handle);
   } else {
      AccessorBase::referenced(*handle);
   }
   return handle;
}

L3NextHop2Table::HandlePtr
L3NextHop2Table::entryWriteAtIndex(Asic::Index index, Key const& key,
                                   IngL3NextHop2Table::Entry const& ingEntry,
                                   EgrL3NextHop2::Entry const& egrEntry) {
   if (!isTakenDown_) {
      source_.request(*this, key, index);
   }
   return entryCommit(key, ingEntry, egrEntry);
}

L3NextHop2Table::HandlePtr
L3NextHop2Table::entryWriteWithResponseHandler(Key const& key, IngL3NextHop2Table::Entry const& ingEntry,
                                               EgrL3NextHop2::Entry const& egrEntry, ResponseFunction handler,
                                               Asic::AutoRemoveType autoRemoveType) {
   if (isTakenDown_ || !hasMemberTables()) {
      return nullptr;
   }
   auto handle = writtenHandle(key, autoRemoveType);
   // The handler before ends last: its own end may lead back here.
   ResponseHandler handlerBefore;
   if (handler || handle->responseHandler_) {
      handlerBefore = std::exchange(handle->responseHandler_, ResponseHandler());
      handle->responseHandler_.functionIs(std::move(handler));
   }
   bool mayBeInPlace = !handle->unresolvedMergedEntry() && handle->entryState() != unresolved();
   if (mayBeInPlace && isInPlace(*handle, ingEntry, egrEntry)) {
      DUOLOG(defaultTraceHandle(), TraceLevel::write, "entryWriteWithResponseHandler",
             ": merged table entry already exists");
      return handle;
   }
   auto index = source_.acquire(*this, key, handle->hwEntryIndex());
   if (index == Asic::invalidIndex) {
      failsAgain(*handle);
      return handle;
   }
   if (isInPlace(*handle, index, ingEntry, egrEntry)) {
      DUOLOG(defaultTraceHandle(), TraceLevel::write, "entryWriteWithResponseHandler",
             ": merged table entry already exists");
      return handle;
   }
   handle->writeIs();
   // The pair that waited so far says nothing any more; what it held goes last, and is mostly held anew.
   auto const before = std::exchange(handle->unresolvedMergedEntry_, nullptr);
   if (before) {
      before->detach();
   }
   WriteWatch watch(*handle);
   Nuv::AllSteps steps;
   HandlePtr ing;
   HandlePtr egr;
   steps([&] { ingL3NextHop2Table_->entryRef(index, ingEntry, ing); });
   if (!watch.isOvertaken()) {
      steps([&] { egrL3NextHop2_->entryRef(index, egrEntry, egr); });
   }
   if (!watch.isOvertaken() && ing && egr) {
      MergedEntry entry;
      entry.mergedEntryHandleIs(std::move(ing));
      entry.mergedEntryHandleIs(std::move(egr));
      steps([&] { unresolvedMergedEntryIs(*handle, std::move(entry)); });
   }
   steps.finish();
   return handle;
}

// Whoever asks again is told again, unless an observer was faster with another write.
void
L3NextHop2Table::failsAgain(EntryHandle& handle) {
   WriteWatch watch(handle);
   Nuv::AllSteps steps;
   if (handle.entryState() == failed()) {
      steps([&] { handle.entryStateIs(unresolved()); });
   }
   if (!watch.isOvertaken()) {
      steps([&] { handle.entryStateIs(failed()); });
   }
   steps.finish();
}

// Rows that somebody else keeps at the index do not make a fresh key's pair complete, so the key itself must
// hold or wait for one. An entry whose waiting pair was dropped is written anew.
bool
L3NextHop2Table::isInPlace(EntryHandle const& handle, Asic::Index index,
                           IngL3NextHop2Table::Entry const& ingEntry,
                           EgrL3NextHop2::Entry const& egrEntry) const {
   bool isHeld = handle.mergedEntry() && handle.entryState() != unresolved();
   if (!isHeld && !handle.unresolvedMergedEntry()) {
      return false;
   }
   auto ing = ingL3NextHop2Table_->entryHandle(index);
   auto egr = egrL3NextHop2_->entryHandle(index);
   return ing && ing->isResolvedAs(ingEntry) && egr && egr->isWrittenAs(egrEntry);
}

// The same of a pair that is in place: as long as its halves are in their tables, they are what stands at the
// key's index.
bool
L3NextHop2Table::isInPlace(EntryHandle const& handle, IngL3NextHop2Table::Entry const& ingEntry,
                           EgrL3NextHop2::Entry const& egrEntry) const {
   std::size_t inPlace = 0;
   for (auto const& member : handle.mergedEntry()) {
      auto const& half = static_cast<Asic::SwTable::EntryHandle const&>(*member);
      if (half.hwEntryIndex() != handle.hwEntryIndex()) {
         return false;
      }
      if (half.swTable() == ingL3NextHop2Table_.get()) {
         inPlace += static_cast<IngL3NextHop2Table::EntryHandle const&>(half).isResolvedAs(ingEntry);
      } else if (half.swTable() == egrL3NextHop2_.get()) {
         inPlace += static_cast<EgrL3NextHop2::EntryHandle const&>(half).isWrittenAs(egrEntry);
      }
   }
   return inPlace == MergedEntry::numMemberTables();
}

void
L3NextHop2Table::unresolvedMergedEntryIs(EntryHandle& handle, MergedEntry entry) {
   // The pair held so far goes last: its halves' handles are mostly those of the new one.
   auto const before = handle.unresolvedMergedEntry_;
   auto waiting = unresolvedMergedEntryIs(handle);
   WriteWatch watch(handle);
   Nuv::AllSteps steps;
   steps([&] { handle.entryStateIs(unresolved()); });
   if (!watch.isOvertaken()) {
      steps([&] { waiting->initUnresolvedMergedEntry(std::move(entry)); });
   }
   steps.finish();
}

L3NextHop2Table::HandlePtr
L3NextHop2Table::entryMapToKey(Key const& newKey, Key const& existingKey,
                               Asic::AutoRemoveType autoRemoveType) {
   NUV_ASSERT_AS("L3NextHop2Table", !(existingKey == newKey), "existingKey != newKey",
                 "new and existing key can't be same");
   NUV_ASSERT_AS("L3NextHop2Table", autoRemoveType == Asic::needsExplicitRemove(),
                 "autoRemoveType == Asic::needsExplicitRemove()",
                 " Only explicit remove supported with entryMapToKey");
   auto eh = handleAtKey(existingKey);
   NUV_ASSERT_AS("L3NextHop2Table", eh, "eh", "Expected to see an entryhandle at existingKey");
   mappingIs(newKey, eh);
   return eh;
}

void
L3NextHop2Table::entryRemove(Key const& key) {
   if (mapped_.has(key)) {
      mappedEntryHandleDel(key);
      return;
   }
   auto handle = handles_.find(key);
   AccessorBase::removed(handle.get(), handle ? &handle->responseHandler_ : nullptr, *this, key);
   lastReferenceDel(handle);
}

void
L3NextHop2Table::entryRemoveAll() {
   Nuv::Ptr<L3NextHop2Table> alive(this);
   Nuv::AllSteps steps;
   steps([this] { mappedEntryHandleDelAll(); });
   steps([this] {
      handles_.forEach([this](EntryHandle& handle) {
         AccessorBase::removed(&handle, &handle.responseHandler_, *this, handle.key());
      });
   });
   steps.finish();
}

void
L3NextHop2Table::cleanup(EntryHandle& handle) {
   Nuv::Ptr<L3NextHop2Table> alive(this);
   if (handles_.size() >= manyHandles) {
      endExpected(handle);
   }
   bool isRegistered = handles_.del(handle);
   AccessorBase::handleLeaves(handle, isRegistered, *this, handle.key());
   leave(handle);
}

void
L3NextHop2Table::leave(EntryHandle& handle) {
   Nuv::AllSteps steps;
   steps([&] { pairsDel(handle); });
   // Silent tables do not tell that the halves have gone.
   if (!hasNotificationActive() && indexDeallocatorSm_) {
      steps([&] { indexDeallocatorSm_->handleResolvedEntry(source_.held(handle.key())); });
   }
   steps.finish();
}

void
L3NextHop2Table::pairsDel(EntryHandle& handle) {
   auto waiting = std::move(handle.unresolvedMergedEntry_);
   auto inPlace = std::exchange(handle.mergedEntry_, MergedEntry());
   if (waiting) {
      waiting->detach();
   }
   Nuv::AllSteps steps;
   auto const handler = std::exchange(handle.responseHandler_, ResponseHandler());
   steps([&] { handle.swTableDel(); });
   steps([&] { handle.hwIndexValidIs(false); });
   steps.finish();
   // The halves go here, unless others hold them, and with them the index.
}

void
L3NextHop2Table::entryHandleDelAll() {
   Nuv::Ptr<L3NextHop2Table> alive(this);
   Nuv::AllSteps steps;
   auto mapped = std::exchange(mapped_, {});
   for (auto const& handle : handles_.takeAll()) {
      steps([&] { letGo(*handle); });
   }
   steps.finish();
}

// The handle is held by the caller, and not found any more.
void
L3NextHop2Table::letGo(EntryHandle& handle) {
   bool isHeldByTable = handle.entryType() != EntryHandle::referenceOnly();
   Nuv::AllSteps steps;
   steps([&] { leave(handle); });
   if (isHeldByTable) {
      steps([&] { handle.referenceDel(); });
   }
   steps.finish();
}

void
L3NextHop2Table::cleanup() {
   if (isTakenDown_) {
      return;
   }
   // Who hears of it may let go of the table.
   Nuv::Ptr<L3NextHop2Table> alive(this);
   isTakenDown_ = true;
   Nuv::AllSteps steps;
   steps([this] { entryHandleDelAll(); });
   indexDeallocatorSm_ = nullptr;
   source_.del(*this);
   steps.finish();
}

} // namespace ZandorL3Tunnel
