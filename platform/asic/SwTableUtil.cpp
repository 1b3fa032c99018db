#include "platform/asic/SwTableUtil.h"

namespace Asic {

void
SwTable::Util::doMountHwTableMountInfo(Nuv::Ptr<Kallo::MountGroup> const& group,
                                       Pelm::String const& tableType) {
   group->mountIs(HwTableMountInfo::path(tableType), HwTableMountInfo::typeName());
}

void
SwTable::Util::doRecoverHwTable(Nuv::Ptr<HwTableRecoverGroup> const& group, UnitId unit,
                                Nuv::Ptr<Kallo::EntityManager> const& entityManager, ChipInfo const&,
                                Pelm::String const& hwTableName) {
   if (auto table = HwTable::mounted(*entityManager, unit, hwTableName)) {
      group->hwTableIs(table);
   }
}

} // namespace Asic
