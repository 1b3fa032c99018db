#include "tables/L3EcmpGroup0Table.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3EcmpGroup0Table");
Nuv::RegisteredValue<L3EcmpGroup0Table::Entry> const entryType(module);
Nuv::RegisteredClass<L3EcmpGroup0Table> const tableType(module, [](Pelm::String const& name) {
   return Nuv::Ptr<Nuv::Object>(l3EcmpGroup0TableFactory(name));
});

} // namespace

Nuv::FwkType
L3EcmpGroup0Table::staticFwkType() {
   return {&module};
}

Nuv::Ptr<L3EcmpGroup0Table>
l3EcmpGroup0TableFactory(Pelm::String const& name) {
   return Nuv::make<L3EcmpGroup0Table>(name);
}

} // namespace ZandorL3Tunnel
