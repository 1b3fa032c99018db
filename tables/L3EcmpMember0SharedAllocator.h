#pragma once

#include "platform/asic/AnySizedBlockAllocator.h"
#include "platform/nuv/Export.h"

namespace ZandorL3Tunnel {

/// Runs of level-0 ECMP member rows, for every table that writes such rows.
class ZANDOR_EXPORT L3EcmpMember0SharedAllocator final : public Asic::AnySizedBlockAllocator {
 public:
   using AnySizedBlockAllocator::AnySizedBlockAllocator;

   /// A new allocator, with its notification on.
   static Nuv::Ptr<L3EcmpMember0SharedAllocator> L3EcmpMember0SharedAllocatorIs(Pelm::String const& name);

   static constexpr char const* typeName() { return "ZandorL3Tunnel::L3EcmpMember0SharedAllocator"; }
   static Nuv::FwkType staticFwkType();
   Nuv::FwkType fwkType() const override { return staticFwkType(); }
};

/// The same as `L3EcmpMember0SharedAllocator::L3EcmpMember0SharedAllocatorIs`.
ZANDOR_EXPORT Nuv::Ptr<L3EcmpMember0SharedAllocator>
l3EcmpMember0SharedAllocatorFactory(Pelm::String const& name);

} // namespace ZandorL3Tunnel
