#pragma once

#include "platform/nuv/Export.h"
#include "types/L3ViaEntry.h"

namespace ZandorL3Tunnel {

/// Key of a merged next hop: what a via says, so equal vias share one next hop.
struct ZANDOR_EXPORT L3UnderlayNextHopKey : Nuv::Record<L3UnderlayNextHopKey> {
   Brix::NextHopEntryType nhEntryType{};
   Fendo::EthAddr macAddr;
   BrixL3Intf::L3Id l3Id;
   ZandorCentral::VirtualPort l2If;

   L3UnderlayNextHopKey() = default;

   /// Reads the text form from the front of `range`. A field that cannot be read is a
   /// `Nuv::DeserializeException` with its name.
   explicit L3UnderlayNextHopKey(Nuv::TextRange& range) : L3UnderlayNextHopKey(fromRange(range)) {}

   static constexpr auto fieldList() {
      return Nuv::fieldList("ZandorL3Tunnel::L3UnderlayNextHopKey",
                            Nuv::field("nhEntryType", &L3UnderlayNextHopKey::nhEntryType),
                            Nuv::field("macAddr", &L3UnderlayNextHopKey::macAddr),
                            Nuv::field("l3Id", &L3UnderlayNextHopKey::l3Id),
                            Nuv::field("l2If", &L3UnderlayNextHopKey::l2If));
   }
};

} // namespace ZandorL3Tunnel
