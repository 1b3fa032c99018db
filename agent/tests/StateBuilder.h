#pragma once

#include "agent/Derive.h"

#include <linux/fib_rules.h>
#include <linux/if.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <string>

namespace L3TunnelAgent {

/// @return what is derived from a state at once, for what is derived bit by bit to be held against.
inline std::map<IpAddress, Destination>
fromScratch(KernelState const& state) {
   std::map<IpAddress, Destination> result;
   for (auto& destination : destinations(state)) {
      result[destination.address] = std::move(destination);
   }
   return result;
}

/// A small machine, made by hand: the test adds what it is about.
struct StateBuilder {
   static constexpr int vxlan = 9;
   static constexpr std::uint32_t main = RT_TABLE_MAIN;
   static constexpr MacAddress ownMac{{2, 0, 0, 0, 0, 0x99}};
   static constexpr std::uint32_t running = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;

   KernelState state;

   StateBuilder() {
      link(vxlan, "vx10", LinkKind::vxlan);
      state.takeChanges();
   }

   static IpAddress ip(std::string const& text) { return IpAddress::parse(text).value(); }
   static MacAddress mac(std::string const& text) { return MacAddress::parse(text).value(); }

   static Prefix prefix(std::string const& text) {
      auto const slash = text.find('/');
      return Prefix::of(ip(text.substr(0, slash)),
                        static_cast<std::uint8_t>(std::stoi(text.substr(slash + 1))));
   }

   static NextHop hop(int device, std::string const& gateway = "") {
      NextHop result{.device = device};
      if (!gateway.empty()) {
         result.gateway = ip(gateway);
      }
      return result;
   }

   /// A link with carrier.
   void link(int index, std::string const& name, LinkKind kind = LinkKind::plain) {
      state.linkIs(index, {.name = name, .kind = kind, .mac = ownMac, .flags = running});
   }

   /// A VLAN sub-interface with carrier.
   void subInterface(int index, std::optional<int> lower, std::uint16_t vlan) {
      state.linkIs(index, {.name = "sub" + std::to_string(vlan),
                           .kind = LinkKind::vlan,
                           .mac = ownMac,
                           .flags = running,
                           .lower = lower,
                           .vlan = vlan});
   }

   /// Tells a link anew, changed by change(link).
   template <typename Change>
   void relink(int index, Change const& change) {
      Link changed = *state.link(index);
      change(changed);
      state.linkIs(index, changed);
   }

   void linkFlags(int index, std::uint32_t flags) {
      relink(index, [&](Link& changed) { changed.flags = flags; });
   }

   void rule(std::uint32_t priority, std::uint32_t table, IpAddress::Family family = IpAddress::Family::v4) {
      state.ruleIs(family, {.priority = priority, .action = FR_ACT_TO_TBL, .table = table});
   }

   void addRoute(std::string const& to, Route const& added, std::uint32_t table = main) {
      state.routeIs({table, prefix(to)}, added);
   }

   void route(std::string const& to, std::vector<NextHop> hops, std::uint32_t metric = 0,
              std::uint32_t table = main) {
      addRoute(to, {.type = RTN_UNICAST, .metric = metric, .hops = std::move(hops)}, table);
   }

   void routeByObject(std::string const& to, std::uint32_t id) {
      addRoute(to, {.type = RTN_UNICAST, .nextHopId = id});
   }

   void routeOfType(std::uint8_t type, std::string const& to, std::uint32_t table = main) {
      addRoute(to, {.type = type}, table);
   }

   /// @return how many routes there are to exactly that prefix.
   std::size_t routes(std::string const& to, std::uint32_t table = main) const {
      auto const* const found = state.routes({table, prefix(to)});
      return found ? found->size() : 0;
   }

   void neighbour(int device, std::string const& address, std::string const& macText,
                  std::uint16_t neighbourState = NUD_REACHABLE) {
      state.neighbourIs({device, ip(address)}, {.state = neighbourState, .mac = MacAddress::parse(macText)});
   }

   void tunnelTo(std::string const& destination) {
      state.vxlanEntryIs({.device = vxlan, .groupDestination = ip(destination)},
                         {.destination = ip(destination)});
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
