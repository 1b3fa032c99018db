#include "platform/asic/HwTableMountInfo.h"

namespace Asic {

Pelm::String
HwTableMountInfo::path(Pelm::String const& tableType) {
   return Nuv::text("asic/hwTableMountInfo/", tableType);
}

void
HwTableMountInfo::publish(Kallo::EntityManager& stateDatabase, Pelm::String const& tableType, UnitId unit,
                          HwTable const& hwTable) {
   // Of this function's own: who hears of the mount or the entity may let go of all of them.
   Nuv::Ptr<Kallo::EntityManager> database(&stateDatabase);
   auto const at = path(tableType);
   auto const shape = hwTable.shape();
   database->doMount(at, typeName());
   if (auto published = Nuv::dynamicCast<HwTableMountInfo>(database->getEntity(at))) {
      published->hwTableIs(unit, shape);
      return;
   }
   auto info = Nuv::make<HwTableMountInfo>(tableType);
   info->hwTableIs(unit, shape);
   database->entityIs(at, info);
}

HwTable::Shape const*
HwTableMountInfo::hwTable(UnitId unit) const {
   auto found = hwTables_.find(unit);
   return found == hwTables_.end() ? nullptr : &found->second;
}

void
HwTableMountInfo::hwTableIs(UnitId unit, HwTable::Shape const& shape) {
   auto [at, isNew] = hwTables_.try_emplace(unit, shape);
   if (!isNew && at->second == shape) {
      return;
   }
   at->second = shape;
   notifieeList_.announce([&](Notifiee& notifiee) { notifiee.handleHwTable(unit); });
}

} // namespace Asic
