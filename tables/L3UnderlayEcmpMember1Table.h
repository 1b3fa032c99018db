#pragma once

#include "platform/chipstate/L3EcmpMember1SharedAllocator.h"
#include "platform/nuv/Export.h"
#include "swtable/BlockTable.h"

namespace ZandorL3Tunnel {

/// First-level ECMP members of the underlay: blocks of members, each pointing at a merged next hop.
struct ZANDOR_EXPORT L3UnderlayEcmpMember1TableSheet {
   static constexpr char const* typeName() { return "ZandorL3Tunnel::L3UnderlayEcmpMember1Table"; }
   static constexpr char const* hwTableName() { return "L3UnderlayEcmpMember1Table"; }

   using Source = SharedAllocator<ZandorL3Common::L3EcmpMember1SharedAllocator>;

   struct Entry : Asic::EntryBase, Nuv::Record<Entry> {
      Asic::NeededHandle underlayEcmpNextHopIndexHandle;
      std::uint8_t strengthProfile{};
      std::uint32_t underlayEcmpNextHopIndex{}; ///< follows from the handle

      static constexpr auto fieldList() {
         return Nuv::fieldList(
               "ZandorL3Tunnel::L3UnderlayEcmpMember1Table::Entry",
               Nuv::field("underlayEcmpNextHopIndexHandle", &Entry::underlayEcmpNextHopIndexHandle),
               Nuv::field("strengthProfile", &Entry::strengthProfile),
               Nuv::filledField("underlayEcmpNextHopIndex", &Entry::underlayEcmpNextHopIndex));
      }

      static constexpr auto dependentFields() {
         return std::tuple(Asic::dependentField(&Entry::underlayEcmpNextHopIndexHandle,
                                                &Entry::underlayEcmpNextHopIndex));
      }
   };
};

class ZANDOR_EXPORT L3UnderlayEcmpMember1Table final
    : public BlockTable<L3UnderlayEcmpMember1Table, L3UnderlayEcmpMember1TableSheet> {
 public:
   L3UnderlayEcmpMember1Table() : BlockTable(typeName()) {}

   /// A new table, not yet tied to a chip.
   static Nuv::Ptr<L3UnderlayEcmpMember1Table> L3UnderlayEcmpMember1TableIs() {
      return Nuv::make<L3UnderlayEcmpMember1Table>();
   }

   static Nuv::FwkType staticFwkType();
};

/// A new table, not yet tied to a chip.
ZANDOR_EXPORT Nuv::Ptr<L3UnderlayEcmpMember1Table> l3UnderlayEcmpMember1TableFactory();

} // namespace ZandorL3Tunnel
