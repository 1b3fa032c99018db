#include "platform/asic/HwTableRecoverGroup.h"

#include <algorithm>

namespace Asic {

void
HwTableRecoverGroup::hwTableIs(Nuv::Ptr<HwTable> const& table) {
   if (std::none_of(members_.begin(), members_.end(),
                    [&](auto const& each) { return each.table == table; })) {
      members_.push_back({table});
   }
}

void
HwTableRecoverGroup::recover() {
   for (auto& member : members_) {
      if (member.progress == Progress::added) {
         member.progress = Progress::recovered;
         member.table->recover();
      }
   }
}

std::size_t
HwTableRecoverGroup::purge() {
   std::size_t rows = 0;
   std::for_each(members_.rbegin(), members_.rend(), [&](Member& member) {
      if (member.progress == Progress::recovered) {
         member.progress = Progress::purged;
         rows += member.table->purge();
      }
   });
   return rows;
}

} // namespace Asic
