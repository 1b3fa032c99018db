#include "tables/L3NextHop2Table.h"

#include "platform/nuv/AllSteps.h"
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
   ingL3NextHop2Table_ = ingL3NextHop2TableFactory(IngL3NextHop2Table::typeName());
   egrL3NextHop2_ = egrL3NextHop2Factory(EgrL3NextHop2::typeName());
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
   indexDeallocatorSm_ = std::make_unique<IndexDeallocatorSm>(*this);
}

Asic::Index
L3NextHop2Table::numEntries() const {
   return std::min(ingL3NextHop2Table_->numEntries(), egrL3NextHop2_->numEntries());
}

bool
L3NextHop2Table::entryHas(Key const& key) const {
   return handles_.find(key) != nullptr;
}

Nuv::Ptr<L3NextHop2Table::EntryHandle const>
L3NextHop2Table::entryHandle(Key const& key) const {
   return handles_.find(key);
}

std::optional<IngL3NextHop2Table::Entry>
L3NextHop2Table::ingL3NextHop2TableEntry(Key const& key) const {
   auto index = source_.held(key);
   return index == Asic::invalidIndex ? std::nullopt : ingL3NextHop2Table_->entry(index);
}

std::optional<EgrL3NextHop2::Entry>
L3NextHop2Table::egrL3NextHop2Entry(Key const& key) const {
   auto index = source_.held(key);
   return index == Asic::invalidIndex ? std::nullopt : egrL3NextHop2_->entry(index);
}

Nuv::Ptr<L3NextHop2Table::EntryHandle>
L3NextHop2Table::writtenHandle(Key const& key, Asic::AutoRemoveType autoRemoveType) {
   auto handle = handles_.findOrMake(key, [&] { return Nuv::make<EntryHandle>(key, this); });
   if (autoRemoveType == Asic::needsExplicitRemove()) {
      AccessorBase::committed(*handle);
   } else {
      AccessorBase::referenced(*handle);
   }
   return handle;
}

L3NextHop2Table::HandlePtr
L3NextHop2Table::entryWrite(Key const& key, IngL3NextHop2Table::Entry const& ingEntry,
                            EgrL3NextHop2::Entry const& egrEntry, Asic::AutoRemoveType autoRemoveType) {
   if (isTakenDown_) {
      return nullptr;
   }
   auto handle = writtenHandle(key, autoRemoveType);
   auto index = source_.acquire(*this, key);
   if (index == Asic::invalidIndex) {
      handle->entryStateIs(failed());
      return handle;
   }
   if (isInPlace(*handle, index, ingEntry, egrEntry)) {
      DUOLOG(_defaultTraceHandle(), TraceLevel::write, "entryWriteWithResponseHandler",
             ": merged table entry already exists");
      return handle;
   }
   handle->writeIs();
   WriteWatch watch(*handle);
   Nuv::AllSteps steps;
   HandlePtr ing;
   HandlePtr egr;
   steps([&] { ing = ingL3NextHop2Table_->entryRef(index, ingEntry); });
   if (!watch.isOvertaken()) {
      steps([&] { egr = egrL3NextHop2_->entryRef(index, egrEntry); });
   }
   // A half whose observers failed is written all the same.
   ing = ing ? ing : ingL3NextHop2Table_->entryHandle(index);
   egr = egr ? egr : egrL3NextHop2_->entryHandle(index);
   if (!watch.isOvertaken()) {
      MergedEntry entry;
      entry.mergedEntryHandleIs(ing);
      entry.mergedEntryHandleIs(egr);
      steps([&] { unresolvedMergedEntryIs(*handle, entry); });
   }
   steps.finish();
   return handle;
}

// Rows that somebody else keeps at the index do not make a fresh key's pair complete, so the key itself must
// hold or wait for one.
bool
L3NextHop2Table::isInPlace(EntryHandle const& handle, Asic::Index index,
                           IngL3NextHop2Table::Entry const& ingEntry,
                           EgrL3NextHop2::Entry const& egrEntry) const {
   if (!handle.mergedEntry() && !handle.unresolvedMergedEntry()) {
      return false;
   }
   auto egr = egrL3NextHop2_->entryHandle(index);
   return ingL3NextHop2Table_->resolvedEntry(index) == ingEntry && egr &&
          egr->entryType() != EntryHandle::inDeletion() && egrL3NextHop2_->entry(index) == egrEntry;
}

void
L3NextHop2Table::unresolvedMergedEntryIs(EntryHandle& handle, MergedEntry const& entry) {
   // The pair held so far goes last: its halves' handles are mostly those of the new one.
   auto before = std::move(handle.unresolvedMergedEntry_);
   if (before) {
      before->detach();
   }
   auto waiting = Nuv::make<UnresolvedMergedEntry>(handle);
   handle.writeIs();
   handle.unresolvedMergedEntry_ = waiting;
   WriteWatch watch(handle);
   Nuv::AllSteps steps;
   steps([&] { handle.entryStateIs(unresolved()); });
   if (!watch.isOvertaken()) {
      steps([&] { waiting->initUnresolvedMergedEntry(entry); });
   }
   steps.finish();
}

void
L3NextHop2Table::entryRemove(Key const& key) {
   auto handle = handles_.find(key);
   AccessorBase::removed(handle.get(), *this, key);
}

void
L3NextHop2Table::entryRemoveAll() {
   handles_.forEach([this](EntryHandle& handle) { AccessorBase::removed(&handle, *this, handle.key()); });
}

void
L3NextHop2Table::cleanup(EntryHandle& handle) {
   Nuv::Ptr<L3NextHop2Table> alive(this);
   AccessorBase::handleLeaves(handle, handles_.hasHandle(handle), *this, handle.key());
   handles_.del(handle);
   leave(handle);
}

void
L3NextHop2Table::leave(EntryHandle& handle) {
   auto waiting = std::move(handle.unresolvedMergedEntry_);
   auto inPlace = std::exchange(handle.mergedEntry_, MergedEntry());
   if (waiting) {
      waiting->detach();
   }
   Nuv::AllSteps steps;
   steps([&] { handle.swTableDel(); });
   steps([&] { handle.hwIndexValidIs(false); });
   steps.finish();
   // The halves go here, unless others hold them, and with them the index.
}

void
L3NextHop2Table::cleanup() {
   if (isTakenDown_) {
      return;
   }
   isTakenDown_ = true;
   Nuv::AllSteps steps;
   for (auto const& handle : handles_.takeAll()) {
      bool isHeldByTable = handle->entryType() != EntryHandle::referenceOnly();
      steps([&] { leave(*handle); });
      if (isHeldByTable) {
         steps([&] { handle->referenceDel(); });
      }
   }
   indexDeallocatorSm_ = nullptr;
   source_.del(*this);
   steps.finish();
}

} // namespace ZandorL3Tunnel
