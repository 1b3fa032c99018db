#include "platform/asic/SwTable.h"

#include "platform/asic/HwTable.h"

namespace Asic {

SwTable::SwTable(Pelm::String name) : SwTableBase(std::move(name)) {}

SwTable::~SwTable() = default;

void
SwTable::doInit(UnitId unit, Nuv::Ptr<Kallo::EntityManager> const& entityManager, ChipInfo const& chipInfo) {
   chipInfo_ = chipInfo;
   if (auto name = hwTableName(); !name.empty()) {
      if (auto table = Nuv::dynamicCast<HwTable>(entityManager->getEntity(HwTable::path(unit, name)))) {
         utilIs(table);
      }
   }
   doInitEnclosed(unit, entityManager, chipInfo);
   doInitComplete();
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

void
SwTable::EntryHandle::entryTypeIs(EntryType type) {
   Nuv::Ptr<SwTable> alive(swTable_);
   if (swTable_ && type != entryType()) {
      if (type == referenceOnly()) {
         swTable_->referenceAdd();
      } else if (entryType() == referenceOnly()) {
         swTable_->referenceDel();
      }
   }
   tableBytes_.entryType = std::uint8_t(type);
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
   SwTable* table = std::exchange(swTable_, nullptr);
   if (!table) {
      return;
   }
   bool keptAlive = entryType() == referenceOnly();
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
