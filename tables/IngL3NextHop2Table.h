#pragma once

#include "platform/nuv/Export.h"
#include "swtable/KeyedTable.h"
#include "types/SwFieldTypes.h"

namespace ZandorL3Tunnel {

/// Ingress half of the underlay next hops: where the ingress stage sends a packet, by the row's index.
struct ZANDOR_EXPORT IngL3NextHop2TableSheet {
   static constexpr char const* typeName() { return "ZandorL3Tunnel::IngL3NextHop2Table"; }
   static constexpr char const* hwTableName() { return "IngL3NextHop2Table"; }

   using Index = std::uint32_t;
   using Source = KeyIsIndex;

   static constexpr bool isOwnedByMergeTable() { return true; }

   struct Entry : Asic::EntryBase, Nuv::Record<Entry> {
      std::uint16_t destinationId{};
      std::uint8_t destinationType{}; ///< a `DestinationType`
      std::uint8_t strengthProfileIndex{};

      static constexpr auto fieldList() {
         return Nuv::fieldList("ZandorL3Tunnel::IngL3NextHop2Table::Entry",
                               Nuv::field("destinationId", &Entry::destinationId),
                               Nuv::field("destinationType", &Entry::destinationType),
                               Nuv::field("strengthProfileIndex", &Entry::strengthProfileIndex));
      }
   };
};

class ZANDOR_EXPORT IngL3NextHop2Table final
    : public KeyedTable<IngL3NextHop2Table, IngL3NextHop2TableSheet, Asic::SwKnownIndexTable> {
 public:
   explicit IngL3NextHop2Table(Pelm::String name) : KeyedTable(std::move(name)) {}

   /// A new table, not yet tied to a chip.
   static Nuv::Ptr<IngL3NextHop2Table> IngL3NextHop2TableIs(Pelm::String const& name) {
      return Nuv::make<IngL3NextHop2Table>(name);
   }

   static Nuv::FwkType staticFwkType();
};

/// A new table, not yet tied to a chip.
ZANDOR_EXPORT Nuv::Ptr<IngL3NextHop2Table> ingL3NextHop2TableFactory(Pelm::String const& name);

} // namespace ZandorL3Tunnel
