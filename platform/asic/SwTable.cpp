#include "platform/asic/SwTable.h"

#include "platform/asic/HwTable.h"
#include "platform/asic/HwTableMountInfo.h"
#include "platform/nuv/Assert.h"

namespace Asic {

SwTable::SwTable(Pelm::String name) : SwTableBase(std::move(name)) {}

SwTable::~SwTable() = default;

void
SwTable::doInit(UnitId unit, Nuv::Ptr<Kallo::EntityManager> const& entityManager, ChipInfo const& chipInfo) {
   NUV_ASSERT(!isInitialized_, tblName());
   isInitialized_ = true;
   chipInfo_ = chipInfo;
   if (auto name = hwTableName(); !name.empty()) {
      if (auto table = HwTable::mounted(*entityManager, unit, name)) {
         utilIs(table);
      }
   }
   unit_ = unit;
   publishIn_ = hwTable() ? entityManager : nullptr;
   doInitEnclosed(unit, entityManager, chipInfo);
   doInitComplete();
}

void
SwTable::doPublishHwTableMountInfo() {
   if (auto stateDatabase = std::exchange(publishIn_, nullptr)) {
      HwTableMountInfo::publish(*stateDatabase, tableType(), unit_, *hwTable());
   }
}

Index
SwTable::numEntries() const {
   return hwTable() ? hwTable()->numEntries() : invalidIndex;
}

Index
SwTable::minIndex() const {
   return hwTable() ? hwTable()->minIndex() : 0;
}

Index
SwTable::maxIndex() const {
   return hwTable() ? hwTable()->maxIndex() : invalidIndex;
}

void
SwTable::writeResponseSmIs(SwTable* table) {
   writeResponseSm_ = Nuv::make<WriteResponseSm>(table);
}

void
SwTable::writeResponseSmDel() {
   writeResponseSm_ = nullptr;
}

SwTable::EntryHandle::EntryHandle(SwTable* table) : swTable_(table) {}

// Whether the handle keeps its table alive is settled before and after the change.
template <class Change>
void
SwTable::EntryHandle::changeHold(Change&& change) {
   bool before = keepsTableAlive();
   change();
   bool after = keepsTableAlive();
   if (after && !before) {
      swTable_->referenceAdd();
   } else if (before && !after) {
      // Perhaps the table's last: it is not touched any more.
      swTable_->referenceDelQuietly();
   }
}

void
SwTable::EntryHandle::entryTypeIs(EntryType type) {
   changeHold([&] { tableBytes_.entryType = std::uint8_t(type); });
}

void
SwTable::EntryHandle::isMappedIs(bool mapped) {
   changeHold([&] { tableBytes_.isMapped = mapped; });
}

void
SwTable::EntryHandle::resolvedEntryStateIs(EntryState state) {
   if (state == tableBytes_.resolvedEntryState) {
      return;
   }
   tableBytes_.resolvedEntryState = state;
   handleResolvedEntryState();
}

void
SwTable::EntryHandle::swTableDel() {
   bool keptAlive = keepsTableAlive();
   SwTable* table = std::exchange(swTable_, nullptr);
   if (!table) {
      return;
   }
   Nuv::AllSteps steps;
   steps([this] { announceSwTable(); });
   if (keptAlive) {
      steps([table] { table->referenceDel(); });
   }
   steps.finish();
}

void
appendText(Pelm::String& out, SwTable::EntryHandle::EntryType type) {
   static constexpr char const* names[] = {"unset", "referenceOnly", "committed", "inDeletion"};
   out.append(names[unsigned(type)]);
}

} // namespace Asic
