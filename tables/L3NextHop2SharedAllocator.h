#pragma once

#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/nuv/Export.h"

namespace ZandorL3Tunnel {

/// Indices of underlay next hops: one serves both halves of a merged next hop.
class ZANDOR_EXPORT L3NextHop2SharedAllocator final : public Asic::FirstFreeIndexAllocator {
 public:
   using FirstFreeIndexAllocator::FirstFreeIndexAllocator;

   /// A new allocator, with its notification on.
   static Nuv::Ptr<L3NextHop2SharedAllocator> L3NextHop2SharedAllocatorIs(Pelm::String const& name);

   static constexpr char const* typeName() { return "ZandorL3Tunnel::L3NextHop2SharedAllocator"; }
   static Nuv::FwkType staticFwkType();
   Nuv::FwkType fwkType() const override { return staticFwkType(); }
};

/// The same as `L3NextHop2SharedAllocator::L3NextHop2SharedAllocatorIs`.
ZANDOR_EXPORT Nuv::Ptr<L3NextHop2SharedAllocator> l3NextHop2SharedAllocatorFactory(Pelm::String const& name);

} // namespace ZandorL3Tunnel
