#pragma once

#include "platform/chipstate/BrixL3IntfTypes.h"
#include "platform/chipstate/BrixTypes.h"
#include "platform/chipstate/FendoTypes.h"
#include "platform/chipstate/ZandorCentralTypes.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/Record.h"

namespace ZandorL3Tunnel {

/// One underlay via of a tunnel destination. Without a port it is a via to the CPU.
struct ZANDOR_EXPORT L3ViaEntry : Nuv::Record<L3ViaEntry> {
   Brix::NextHopEntryType nhEntryType{};
   Fendo::EthAddr macAddr;
   BrixL3Intf::L3Id l3Id;
   ZandorCentral::VirtualPort l2If;

   L3ViaEntry() = default;

   /// Reads the text form from the front of `range`. A field that cannot be read is a
   /// `Nuv::DeserializeException` with its name.
   explicit L3ViaEntry(Nuv::TextRange& range) : L3ViaEntry(fromRange(range)) {}

   static constexpr auto fieldList() {
      return Nuv::fieldList("ZandorL3Tunnel::L3ViaEntry", Nuv::field("nhEntryType", &L3ViaEntry::nhEntryType),
                            Nuv::field("macAddr", &L3ViaEntry::macAddr),
                            Nuv::field("l3Id", &L3ViaEntry::l3Id), Nuv::field("l2If", &L3ViaEntry::l2If));
   }
};

} // namespace ZandorL3Tunnel
