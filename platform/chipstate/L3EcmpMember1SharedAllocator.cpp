#include "platform/chipstate/L3EcmpMember1SharedAllocator.h"

namespace ZandorL3Common {

namespace {

Nuv::Module const module("L3EcmpMember1SharedAllocator");
Nuv::RegisteredClass<L3EcmpMember1SharedAllocator> const allocatorType(module, [](Pelm::String const& name) {
   return Nuv::Ptr<Nuv::Object>(Nuv::make<L3EcmpMember1SharedAllocator>(name));
});

} // namespace

Nuv::FwkType
L3EcmpMember1SharedAllocator::staticFwkType() {
   return {&module};
}

} // namespace ZandorL3Common
