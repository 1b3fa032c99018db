#include "platform/chipstate/L3EcmpMember1SharedAllocator.h"

namespace ZandorL3Common {

namespace {

Nuv::Module const module("L3EcmpMember1SharedAllocator");

} // namespace

Nuv::FwkType
L3EcmpMember1SharedAllocator::staticFwkType() {
   return {&module};
}

} // namespace ZandorL3Common
