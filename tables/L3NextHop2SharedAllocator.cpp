#include "tables/L3NextHop2SharedAllocator.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3NextHop2SharedAllocator");
Nuv::RegisteredClass<L3NextHop2SharedAllocator> const allocatorType(module, [](Pelm::String const& name) {
   return Nuv::Ptr<Nuv::Object>(l3NextHop2SharedAllocatorFactory(name));
});

} // namespace

Nuv::FwkType
L3NextHop2SharedAllocator::staticFwkType() {
   return {&module};
}

Nuv::Ptr<L3NextHop2SharedAllocator>
L3NextHop2SharedAllocator::L3NextHop2SharedAllocatorIs(Pelm::String const& name) {
   return Nuv::make<L3NextHop2SharedAllocator>(name);
}

Nuv::Ptr<L3NextHop2SharedAllocator>
l3NextHop2SharedAllocatorFactory(Pelm::String const& name) {
   return L3NextHop2SharedAllocator::L3NextHop2SharedAllocatorIs(name);
}

} // namespace ZandorL3Tunnel
