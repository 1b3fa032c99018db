#include "tables/L3EcmpMember0Table.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3EcmpMember0Table");
Nuv::RegisteredValue<L3EcmpMember0Table::Entry> const entryType(module);
Nuv::RegisteredClass<L3EcmpMember0Table> const tableType(module, [](Pelm::String const&) {
   return Nuv::Ptr<Nuv::Object>(l3EcmpMember0TableFactory());
});

} // namespace

Nuv::FwkType
L3EcmpMember0Table::staticFwkType() {
   return {&module};
}

Nuv::Ptr<L3EcmpMember0Table>
l3EcmpMember0TableFactory() {
   return Nuv::make<L3EcmpMember0Table>();
}

} // namespace ZandorL3Tunnel
