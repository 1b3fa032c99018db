#include "tables/L3UnderlayEcmpMember1Table.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3UnderlayEcmpMember1Table");
Nuv::RegisteredValue<L3UnderlayEcmpMember1Table::Entry> const entryType(module);
Nuv::RegisteredClass<L3UnderlayEcmpMember1Table> const tableType(module, [](Pelm::String const&) {
   return Nuv::Ptr<Nuv::Object>(l3UnderlayEcmpMember1TableFactory());
});

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
