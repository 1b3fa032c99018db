#pragma once

#include "platform/chipstate/FendoTypes.h"
#include "platform/nuv/Export.h"
#include "swtable/KeyedTable.h"
#include "types/SwFieldTypes.h"

namespace ZandorL3Tunnel {

/// Egress half of the underlay next hops: the L2 header that the egress stage writes, by the row's index. A
/// next hop waits for the interface that it names.
struct ZANDOR_EXPORT EgrL3NextHop2Sheet {
   static constexpr char const* typeName() { return "ZandorL3Tunnel::EgrL3NextHop2"; }
   static constexpr char const* hwTableName() { return "EgrL3NextHop2"; }

   using Index = std::uint32_t;
   using Source = KeyIsIndex;

   static constexpr bool isOwnedByMergeTable() { return true; }

   struct Entry : Asic::EntryBase, Nuv::Record<Entry> {
      Asic::NeededHandle l3Oif2Handle;
      U13 l3Oif2; ///< follows from the handle
      Fendo::EthAddr dstMacAddress;
      std::uint8_t strengthProfileIndex{};

      /// Whether the entry differs from an empty one.
      explicit operator bool() const { return !(*this == Entry()); }

      static constexpr auto fieldList() {
         return Nuv::fieldList(
               "ZandorL3Tunnel::EgrL3NextHop2::Entry", Nuv::field("l3Oif2Handle", &Entry::l3Oif2Handle),
               Nuv::filledField("l3Oif2", &Entry::l3Oif2), Nuv::field("dstMacAddress", &Entry::dstMacAddress),
               Nuv::field("strengthProfileIndex", &Entry::strengthProfileIndex));
      }

      static constexpr auto dependentFields() {
         return std::tuple(Asic::dependentField(&Entry::l3Oif2Handle, &Entry::l3Oif2));
      }
   };
};

class ZANDOR_EXPORT EgrL3NextHop2 final
    : public KeyedTable<EgrL3NextHop2, EgrL3NextHop2Sheet, Asic::SwKnownIndexTable> {
 public:
   explicit EgrL3NextHop2(Pelm::String name) : KeyedTable(std::move(name)) {}

   /// A new table, not yet tied to a chip.
   static Nuv::Ptr<EgrL3NextHop2> EgrL3NextHop2Is(Pelm::String const& name) {
      return Nuv::make<EgrL3NextHop2>(name);
   }

   static Nuv::FwkType staticFwkType();
};

/// A new table, not yet tied to a chip.
ZANDOR_EXPORT Nuv::Ptr<EgrL3NextHop2> egrL3NextHop2Factory(Pelm::String const& name);

} // namespace ZandorL3Tunnel
