#include "agent/MessageReader.h"
#include "fuzz/DerivationCheck.h"

#include <linux/if.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

namespace {

using namespace L3TunnelAgent;

/// A machine with something of every kind, for messages to meet.
KernelState
machine() {
   constexpr std::uint32_t running = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;
   KernelState state;
   state.linkIs(1, {.name = "swp1", .mac = MacAddress{{2, 0, 0, 0, 0, 1}}, .flags = running});
   state.linkIs(2, {.name = "swp2", .mac = MacAddress{{2, 0, 0, 0, 0, 2}}, .flags = running});
   state.linkIs(3, {.name = "br0", .kind = LinkKind::bridge, .flags = running, .vlanFiltering = true});
   state.linkIs(4, {.name = "br0.300", .kind = LinkKind::vlan, .flags = running, .lower = 3, .vlan = 300});
   state.linkIs(5, {.name = "vx10", .kind = LinkKind::vxlan, .flags = running});
   IpAddress const gateway = IpAddress::fromV4(0x0a000001);
   IpAddress const destination = IpAddress::fromV4(0x0aff0101);
   for (int const device : {1, 2, 4}) {
      state.neighbourIs({device, gateway}, {.state = NUD_REACHABLE, .mac = MacAddress{{2, 0, 0, 0, 0, 9}}});
   }
   state.bridgeEntryIs({3, 300, {{2, 0, 0, 0, 0, 9}}}, 2);
   state.nextHopIs(1, {.hop = {.device = 1, .gateway = gateway}});
   state.nextHopIs(2, {.hop = {.device = 4, .gateway = gateway}});
   state.nextHopIs(3, {.group = {{.id = 1}, {.id = 2}}});
   state.routeIs({RT_TABLE_MAIN, Prefix::of(destination, 32)}, {.type = RTN_UNICAST, .nextHopId = 3});
   state.routeIs({RT_TABLE_MAIN, Prefix::of(destination, 0)},
                 {.type = RTN_UNICAST, .hops = {{.device = 2, .gateway = gateway}}});
   state.vxlanEntryIs({.device = 5, .groupDestination = destination}, {.destination = destination});
   state.vxlanEntryIs({.device = 5, .groupDestination = gateway}, {.destination = gateway});
   return state;
}

} // namespace

/// One datagram of the kernel: what is derived bit by bit must be what is derived from scratch, and the same
/// datagram a second time must leave it so.
extern "C" int
LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   static KernelState const start = machine();
   KernelState state = start;
   state.takeChanges();
   Derivation derivation(state);
   for (int time = 0; time < 2; ++time) {
      try {
         applyDatagram(state, std::as_bytes(std::span(data, size)));
      } catch (MessageError const&) {
         // What came before the malformed message is applied.
      }
      derivation.update(state.takeChanges());
      checkAgainstScratch(state, derivation);
   }
   return 0;
}
