#pragma once

#include "platform/chipstate/FendoTypes.h"
#include "platform/nuv/Export.h"
#include "swtable/KeyedTable.h"

namespace ZandorL3Tunnel {

/// Egress L3 interfaces of the underlay: what the L2 header of a tunnel packet carries, by the row's index.
struct ZANDOR_EXPORT EgrL3Oif2Sheet {
   static constexpr char const* typeName() { return "ZandorL3Tunnel::EgrL3Oif2"; }
   static constexpr char const* hwTableName() { return "EgrL3Oif2"; }

   using Index = std::uint32_t;
   using Source = KeyIsIndex;

   struct Entry : Asic::EntryBase, Nuv::Record<Entry> {
      bool isUnderlayL2HdrTagged{}; ///< whether the header carries `tnlVlanTag`
      Fendo::EthAddr srcMacAddress;
      std::uint16_t tnlVlanTag{};

      static constexpr auto fieldList() {
         return Nuv::fieldList(
               "ZandorL3Tunnel::EgrL3Oif2::Entry",
               Nuv::field("isUnderlayL2HdrTagged", &Entry::isUnderlayL2HdrTagged).withAnyBlanks(),
               Nuv::field("srcMacAddress", &Entry::srcMacAddress).withAnyBlanks(),
               Nuv::field("tnlVlanTag", &Entry::tnlVlanTag).withAnyBlanks());
      }
   };
};

class ZANDOR_EXPORT EgrL3Oif2 final : public KeyedTable<EgrL3Oif2, EgrL3Oif2Sheet, Asic::SwKnownIndexTable> {
 public:
   explicit EgrL3Oif2(Pelm::String name) : KeyedTable(std::move(name)) {}

   /// A new table, not yet tied to a chip.
   static Nuv::Ptr<EgrL3Oif2> EgrL3Oif2Is(Pelm::String const& name) { return Nuv::make<EgrL3Oif2>(name); }

   static Nuv::FwkType staticFwkType();
};

/// A new table, not yet tied to a chip.
ZANDOR_EXPORT Nuv::Ptr<EgrL3Oif2> egrL3Oif2Factory(Pelm::String const& name);

} // namespace ZandorL3Tunnel
