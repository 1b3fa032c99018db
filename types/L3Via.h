#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/HashMap.h"
#include "platform/nuv/TypeInfo.h"
#include "types/L3ViaEntry.h"

namespace ZandorL3Tunnel {

/// The vias of one tunnel destination: a set, each with a number that is kept for its owner. Equal sets
/// iterate in one order, however they were filled.
class ZANDOR_EXPORT L3Via final : public Nuv::Object {
 public:
   using ViaMap = Nuv::HashMap<L3ViaEntry, std::uint32_t>;

   /// A new empty set, with its notification on.
   static Nuv::Ptr<L3Via> L3ViaIs();

   ViaMap const& via() const { return via_; }

   /// Adds the via, or gives the one that is there a new value.
   void viaIs(L3ViaEntry const& entry, std::uint32_t value);
   void viaDel(L3ViaEntry const& entry);
   void viaDelAll();

   static constexpr char const* typeName() { return "ZandorL3Tunnel::L3Via"; }
   static constexpr auto attributeList() { return std::tuple(Nuv::attribute("via", &L3Via::via)); }
   static Nuv::FwkType staticFwkType();
   Nuv::FwkType fwkType() const override { return staticFwkType(); }

 private:
   ViaMap via_;
};

/// The same as `L3Via::L3ViaIs`.
ZANDOR_EXPORT Nuv::Ptr<L3Via> l3ViaFactory();

} // namespace ZandorL3Tunnel
