#include "tables/EgrL3NextHop2.h"
#include "tables/IngL3NextHop2Table.h"
#include "tables/L3NextHop2Table.h"

namespace ZandorL3Tunnel {

// The member tables belong to the merged table's module.
Nuv::FwkType
IngL3NextHop2Table::staticFwkType() {
   return L3NextHop2Table::staticFwkType();
}

Nuv::FwkType
EgrL3NextHop2::staticFwkType() {
   return L3NextHop2Table::staticFwkType();
}

Nuv::Ptr<IngL3NextHop2Table>
ingL3NextHop2TableFactory(Pelm::String const& name) {
   return Nuv::make<IngL3NextHop2Table>(name);
}

Nuv::Ptr<EgrL3NextHop2>
egrL3NextHop2Factory(Pelm::String const& name) {
   return Nuv::make<EgrL3NextHop2>(name);
}

} // namespace ZandorL3Tunnel
