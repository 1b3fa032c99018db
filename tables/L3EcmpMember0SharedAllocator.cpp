#include "tables/L3EcmpMember0SharedAllocator.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3EcmpMember0SharedAllocator");
Nuv::RegisteredClass<L3EcmpMember0SharedAllocator> const allocatorType(module, [](Pelm::String const& name) {
   return Nuv::Ptr<Nuv::Object>(l3EcmpMember0SharedAllocatorFactory(name));
});

} // namespace

Nuv::FwkType
L3EcmpMember0SharedAllocator::staticFwkType() {
   return {&module};
}

Nuv::Ptr<L3EcmpMember0SharedAllocator>
L3EcmpMember0SharedAllocator::L3EcmpMember0SharedAllocatorIs(Pelm::String const& name) {
   return Nuv::make<L3EcmpMember0SharedAllocator>(name);
}

Nuv::Ptr<L3EcmpMember0SharedAllocator>
l3EcmpMember0SharedAllocatorFactory(Pelm::String const& name) {
   return L3EcmpMember0SharedAllocator::L3EcmpMember0SharedAllocatorIs(name);
}

} // namespace ZandorL3Tunnel
