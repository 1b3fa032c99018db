#include "tables/EgrL3Oif2.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("EgrL3Oif2");
Nuv::RegisteredValue<EgrL3Oif2::Entry> const entryType(module);
Nuv::RegisteredClass<EgrL3Oif2> const tableType(module, [](Pelm::String const& name) {
   return Nuv::Ptr<Nuv::Object>(egrL3Oif2Factory(name));
});

} // namespace

Nuv::FwkType
EgrL3Oif2::staticFwkType() {
   return {&module};
}

Nuv::Ptr<EgrL3Oif2>
egrL3Oif2Factory(Pelm::String const& name) {
   return Nuv::make<EgrL3Oif2>(name);
}

} // namespace ZandorL3Tunnel
