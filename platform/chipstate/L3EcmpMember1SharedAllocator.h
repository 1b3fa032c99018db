#pragma once

#include "platform/asic/AnySizedBlockAllocator.h"
#include "platform/nuv/Export.h"

namespace ZandorL3Common {

/// Runs of first-level ECMP member rows, for every table that writes such rows.
class ZANDOR_EXPORT L3EcmpMember1SharedAllocator : public Asic::AnySizedBlockAllocator {
 public:
   using AnySizedBlockAllocator::AnySizedBlockAllocator;

   static constexpr char const* typeName() { return "ZandorL3Common::L3EcmpMember1SharedAllocator"; }
   static Nuv::FwkType staticFwkType();
   Nuv::FwkType fwkType() const override { return staticFwkType(); }
};

} // namespace ZandorL3Common
