#include "tables/L3UnderlayEcmpMember1Table.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3UnderlayEcmpMember1Table");

} // namespace

Nuv::FwkType
L3UnderlayEcmpMember1Table::staticFwkType() {
   return {&module};
}

Nuv::Ptr<L3UnderlayEcmpMember1Table>
l3UnderlayEcmpMember1TableFactory() {
   return Nuv::make<L3UnderlayEcmpMember1Table>();
}

} // namespace ZandorL3Tunnel
