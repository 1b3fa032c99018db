#pragma once

#include "agent/Derive.h"

#include <linux/fib_rules.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <string>

namespace L3TunnelAgent {

/// A small machine, made by hand: the test adds what it is about.
struct StateBuilder {
   static constexpr int vxlan = 9;
   static constexpr std::uint32_t main = RT_TABLE_MAIN;

   KernelState state;

   StateBuilder() {
      link(vxlan, "vx10", LinkKind::vxlan);
      rule(32766, main);
   }

   static IpAddress ip(std::string const& text) { return IpAddress::parse(text).value(); }
   static MacAddress mac(std::string const& text) { return MacAddress::parse(text).value(); }

   static Prefix prefix(std::string const& text) {
      auto const slash = text.find('/');
      return Prefix::of(ip(text.substr(0, slash)).v4(),
                        static_cast<std::uint8_t>(std::stoi(text.substr(slash + 1))));
   }

   static NextHop hop(int device, std::string const& gateway = "") {
      NextHop result{.device = device};
      if (!gateway.empty()) {
         result.gateway = ip(gateway);
      }
      return result;
   }

   Link& link(int index, std::string const& name, LinkKind kind = LinkKind::plain) {
      return state.links[index] = {.name = name, .kind = kind};
   }

   /// A VLAN sub-interface.
   Link& subInterface(int index, int lower, std::uint16_t vlan) {
      Link& result = link(index, "sub" + std::to_string(vlan), LinkKind::vlan);
      result.lower = lower;
      result.vlan = vlan;
      return result;
   }

   void rule(std::uint32_t priority, std::uint32_t table) {
      state.addRule({.priority = priority, .action = FR_ACT_TO_TBL, .table = table});
   }

   void route(std::string const& to, std::vector<NextHop> hops, std::uint32_t metric = 0,
              std::uint32_t table = main) {
      state.tables[table].add(prefix(to), {.type = RTN_UNICAST, .metric = metric, .hops = std::move(hops)});
   }

   void routeByObject(std::string const& to, std::uint32_t id) {
      state.tables[main].add(prefix(to), {.type = RTN_UNICAST, .nextHopId = id});
   }

   void routeOfType(std::uint8_t type, std::string const& to, std::uint32_t table = main) {
      state.tables[table].add(prefix(to), {.type = type});
   }

   void neighbour(int device, std::string const& address, std::string const& macText,
                  std::uint16_t neighbourState = NUD_REACHABLE) {
      state.neighbours[{device, ip(address)}] = {.state = neighbourState, .mac = MacAddress::parse(macText)};
   }

   void tunnelTo(std::string const& destination) {
      state.vxlanEntries[{.device = vxlan, .groupDestination = ip(destination)}] = {.destination =
                                                                                          ip(destination)};
   }

   /// @return what is derived for this destination, to which a tunnel is added.
   Destination derive(std::string const& destination) {
      tunnelTo(destination);
      for (auto const& found : destinations(state)) {
         if (found.address == ip(destination)) {
            return found;
         }
      }
      return {};
   }

   /// @return the gateways of what is derived, in order, a space behind each; the reason when there is no
   /// via.
   std::string gateways(std::string const& destination) {
      auto const found = derive(destination);
      std::string text;
      for (auto const& via : found.vias) {
         text += (via.gateway ? via.gateway->text() : via.reason) + " ";
      }
      return found.vias.empty() ? found.reason : text;
   }
};

} // namespace L3TunnelAgent
