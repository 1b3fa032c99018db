#pragma once

#include "platform/nuv/Export.h"
#include "swtable/BlockTable.h"
#include "tables/L3EcmpMember0SharedAllocator.h"

namespace ZandorL3Tunnel {

/// Level-0 ECMP members: blocks of members, each pointing at a next hop, at an underlay destination, or at
/// both.
struct ZANDOR_EXPORT L3EcmpMember0TableSheet {
   static constexpr char const* typeName() { return "ZandorL3Tunnel::L3EcmpMember0Table"; }
   static constexpr char const* hwTableName() { return "L3EcmpMember0Table"; }

   using Source = SharedAllocator<L3EcmpMember0SharedAllocator>;

   struct Entry : Asic::EntryBase, Nuv::Record<Entry> {
      Asic::NeededHandle nextHopEntryHandle;
      Asic::NeededHandle underlayDestinationHandle;
      std::uint32_t nextHopEntry{};        ///< follows from its handle
      std::uint32_t underlayDestination{}; ///< follows from its handle

      static constexpr auto fieldList() {
         return Nuv::fieldList("ZandorL3Tunnel::L3EcmpMember0Table::Entry",
                               Nuv::field("nextHopEntryHandle", &Entry::nextHopEntryHandle),
                               Nuv::field("underlayDestinationHandle", &Entry::underlayDestinationHandle),
                               Nuv::filledField("nextHopEntry", &Entry::nextHopEntry),
                               Nuv::filledField("underlayDestination", &Entry::underlayDestination));
      }

      static constexpr auto dependentFields() {
         return std::tuple(
               Asic::dependentField(&Entry::nextHopEntryHandle, &Entry::nextHopEntry),
               Asic::dependentField(&Entry::underlayDestinationHandle, &Entry::underlayDestination));
      }
   };
};

class ZANDOR_EXPORT L3EcmpMember0Table final
    : public BlockTable<L3EcmpMember0Table, L3EcmpMember0TableSheet> {
 public:
   L3EcmpMember0Table() : BlockTable(typeName()) {}

   /// A new table, not yet tied to a chip.
   static Nuv::Ptr<L3EcmpMember0Table> L3EcmpMember0TableIs() { return Nuv::make<L3EcmpMember0Table>(); }

   static Nuv::FwkType staticFwkType();
};

/// A new table, not yet tied to a chip.
ZANDOR_EXPORT Nuv::Ptr<L3EcmpMember0Table> l3EcmpMember0TableFactory();

} // namespace ZandorL3Tunnel
