#include "agent/Explain.h"

#include "agent/Adjacency.h"
#include "agent/RouteLookup.h"

#include <array>
#include <linux/fib_rules.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <string_view>

namespace L3TunnelAgent {

namespace {

std::string
quantity(std::size_t count, std::string const& one, std::string const& many) {
   return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string
tableName(std::uint32_t table) {
   std::string number = "table " + std::to_string(table);
   switch (table) {
   case RT_TABLE_LOCAL:
      return number + " (local)";
   case RT_TABLE_MAIN:
      return number + " (main)";
   case RT_TABLE_DEFAULT:
      return number + " (default)";
   default:
      return number;
   }
}

std::string
typeName(std::uint8_t type) {
   constexpr std::array<std::string_view, 10> names{"unspecified", "unicast",   "local",     "broadcast",
                                                    "anycast",     "multicast", "blackhole", "unreachable",
                                                    "prohibit",    "throw"};
   return type < names.size() ? std::string(names[type]) : "type " + std::to_string(type);
}

std::string
neighbourState(std::uint16_t state) {
   struct Name {
      unsigned flag;
      char const* text;
   };
   for (auto const& [flag, text] :
        {Name{NUD_REACHABLE, "REACHABLE"}, Name{NUD_STALE, "STALE"}, Name{NUD_DELAY, "DELAY"},
         Name{NUD_PROBE, "PROBE"}, Name{NUD_PERMANENT, "PERMANENT"}, Name{NUD_NOARP, "NOARP"},
         Name{NUD_FAILED, "FAILED"}, Name{NUD_INCOMPLETE, "INCOMPLETE"}}) {
      if (state & flag) {
         return text;
      }
   }
   return "in no state";
}

/// Puts what the search and the adjacencies say into words.
class Explanation : public SearchObserver {
 public:
   Explanation(KernelState const& state, IpAddress const& destination)
       : state_(state), destination_(destination) {}

   std::vector<std::string> run() {
      nameEntries();
      if (destination_.isMulticast()) {
         say(0, "It is the address of a multicast group: only the CPU could serve it.");
         return std::move(lines_);
      }
      say(0, "Its route:");
      std::vector<NeighbourKey> neighbours;
      auto const result = derive(state_, destination_, this, [&](NeighbourKey const& key) {
         neighbours.push_back(key);
         return adjacency(state_, key);
      });
      sayOutcome(result);
      for (NeighbourKey const& key : neighbours) {
         explainNeighbour(key);
      }
      return std::move(lines_);
   }

   void onRule(Rule const& rule, bool applies) override {
      std::string const name = "rule " + std::to_string(rule.priority) + ": ";
      met_ = 0;
      if (applies) {
         say(1, name + whatItDoes(rule));
         suppressed_ = rule.suppressedLength.value_or(0);
      } else if (auto const verdict = ruleVerdict(state_, rule, destination_); verdict != RuleVerdict::yes) {
         say(1, name + "passed over: " + whyNot(rule, verdict));
      } else if (rule.action == FR_ACT_GOTO) {
         say(1, name + "passed over: there is no rule to go on with");
      } else {
         say(1, name + "passed over: it does not look into a table");
      }
   }

   void onTableSearched(std::uint32_t table, std::uint8_t /*length*/) override {
      if (met_ == 0) {
         say(2, state_.table(destination_.family, table) ? "no prefix there contains " + destination_.text()
                                                         : "the kernel told of no route there");
      }
   }

   void onObject(std::uint32_t id, NextHopObject const* object) override {
      std::string const name = "next-hop object " + std::to_string(id) + ": ";
      if (!object) {
         below_.push_back(name + "the kernel told of none; it goes when its device loses carrier");
      } else if (!object->group.empty()) {
         below_.push_back(name + "group of " + quantity(object->group.size(), "object", "objects"));
      } else if (object->blackhole) {
         below_.push_back(name + "blackhole");
      } else if (object->fdb) {
         below_.push_back(name + "left out: it is for forwarding entries, not for routes");
      } else {
         below_.push_back(name + hopText(object->hop));
      }
   }

   void onHop(NextHop const& hop, bool inUse) override {
      below_.push_back(hopText(hop) + ": " + (inUse ? "in use" : "left out: " + whyNot(hop)) +
                       (hop.weight > 1 ? ", weight " + std::to_string(hop.weight) : "") +
                       (hop.encapsulated ? ", with one more header; only the CPU could serve it" : ""));
   }

   void onRoute(Prefix const& prefix, Route const& route, RouteVerdict verdict) override {
      ++met_;
      std::string text =
            prefix.text() + " " + typeName(route.type) + ", metric " + std::to_string(route.metric);
      if (route.nextHopId) {
         text += ", next-hop object " + std::to_string(*route.nextHopId);
      }
      say(2, text + ": " + verdictText(route, verdict));
      for (auto const& line : std::exchange(below_, {})) {
         say(3, line);
      }
   }

 private:
   void say(std::size_t level, std::string const& text) {
      lines_.push_back(std::string(2 * level, ' ') + text);
   }

   static std::string whatItDoes(Rule const& rule) {
      switch (rule.action) {
      case FR_ACT_GOTO:
         return "go on with rule " + std::to_string(rule.target.value_or(0));
      case FR_ACT_BLACKHOLE:
         return "drop it: blackhole";
      case FR_ACT_UNREACHABLE:
         return "drop it: unreachable";
      case FR_ACT_PROHIBIT:
         return "drop it: prohibit";
      default:
         return "look into " + tableName(rule.table);
      }
   }

   std::string whyNot(Rule const& rule, RuleVerdict verdict) const {
      if (verdict == RuleVerdict::unknown) {
         return "it asks for what is not known of a tunnel's packets";
      }
      if (!rule.inverted && rule.destination && !rule.destination->contains(destination_)) {
         return "it is for " + rule.destination->text();
      }
      return "it is for other packets than a tunnel's";
   }

   void nameEntries() {
      std::map<std::pair<int, int>, std::size_t> count; // by device, and by the one that it is bound to
      for (auto const& [key, entry] : state_.vxlanEntries()) {
         for (auto const& address : namedDestinations(state_, key, entry)) {
            count[{key.device, boundTo(state_, key, entry)}] += address == destination_ ? 1 : 0;
         }
      }
      std::erase_if(count, [](auto const& entries) { return entries.second == 0; });
      if (count.empty()) {
         say(0, destination_.text() +
                      " is no tunnel destination: no forwarding entry of a vxlan device names it");
         return;
      }
      say(0, destination_.text() + " is a tunnel destination:");
      for (auto const& [of, entries] : count) {
         auto const& [device, bound] = of;
         say(1,
             quantity(entries, "forwarding entry", "forwarding entries") + " of " + state_.linkName(device) +
                   (entries == 1 ? " names it" : " name it") +
                   (bound != 0 ? ", bound to " + state_.linkName(bound) + ", which is not looked at" : ""));
      }
   }

   std::string hopText(NextHop const& hop) const {
      return (hop.gateway ? hop.gateway->text() : "directly connected") + " on " +
             state_.linkName(hop.device);
   }

   std::string whyNot(NextHop const& hop) const {
      std::string const device = state_.linkName(hop.device);
      Link const* const link = state_.link(hop.device);
      if (link && !link->isUp()) {
         return device + " is switched off";
      }
      if (!link || !state_.hopState(hop, destination_.family).linkdown) {
         return "the kernel told of it as dead";
      }
      if (state_.ignoresLinkdown(*link, destination_.family)) {
         return device + " has no carrier, and is set to be left out then";
      }
      return destination_.family == IpAddress::Family::v6
                   ? device + " was switched off, and has had no carrier since"
                   : device + " has no carrier, and the kernel told of it as dead";
   }

   std::string verdictText(Route const& route, RouteVerdict verdict) const {
      switch (verdict) {
      case RouteVerdict::taken:
         return "taken";
      case RouteVerdict::ofServiceType:
         return "passed over: it is for type of service " + std::to_string(route.tos);
      case RouteVerdict::hopsDown:
         return "passed over: none of its next hops is in use";
      case RouteVerdict::thrown:
         return "ends the search of this table";
      case RouteVerdict::suppressed:
         return "ends the search of this table: the rule suppresses lengths up to " +
                std::to_string(suppressed_);
      }
      return "";
   }

   void sayOutcome(Destination const& result) {
      if (result.vias.empty()) {
         say(0, "So there is " + result.reason + ": it is not programmed.");
      } else if (result.vias.front().kind == ViaKind::drop) {
         say(0, "So its packets are dropped: " + result.vias.front().reason + ".");
      } else if (!result.vias.front().gateway) {
         say(0, "So its packets are for this machine: " + result.vias.front().reason + ".");
      } else {
         say(0, "So it is reached over " + quantity(result.vias.size(), "next hop", "next hops") + ":");
      }
   }

   void explainNeighbour(NeighbourKey const& key) {
      std::string const device = state_.linkName(key.device);
      AdjacencyInputs inputs;
      auto const via = adjacency(state_, key, &inputs);
      say(1, key.address.text() + " on " + device);
      Link const* const link = state_.link(key.device);
      if (!link) {
         return say(2, "the kernel told of no device " + device);
      }
      say(2, device +
                   (link->isUp() ? link->hasCarrier() ? " is up and has carrier" : " is up without carrier"
                                 : " is switched off") +
                   (link->mac ? ", its address is " + link->mac->text() : ", it has no Ethernet address"));
      sayNeighbour(key, device);
      sayPort(via, inputs);
      if (via.port && via.kind == ViaKind::unicast && !via.sourceMac) {
         say(2, "no source address; only the CPU could serve it");
      }
   }

   void sayNeighbour(NeighbourKey const& key, std::string const& device) {
      std::string const name = "neighbour " + key.address.text() + " on " + device;
      auto const neighbour = neighbourOf(state_, key);
      if (!neighbour) {
         say(2, name + " has no entry: nothing was sent to it yet, or the kernel still asks for it, which it "
                       "does not announce; only the CPU could serve it");
      } else if (isUsable(*neighbour) && !state_.neighbour(key)) {
         say(2, name + " needs no entry: " + device +
                      " is set not to ask for one, so that frames go to its own "
                      "address " +
                      neighbour->mac->text());
      } else if (isUsable(*neighbour)) {
         say(2, name + " is " + neighbourState(neighbour->state) + " at " + neighbour->mac->text());
      } else if (neighbour->mac || !isResolved(*neighbour)) {
         say(2, name + " is " + neighbourState(neighbour->state) +
                      ": the kernel's last word; only the CPU could serve it");
      } else {
         say(2, name + " is " + neighbourState(neighbour->state) +
                      " without an Ethernet address; only the CPU could serve it");
      }
   }

   void sayPort(DerivedVia const& via, AdjacencyInputs const& inputs) {
      std::string const tag = via.tagged.value_or(false)
                                    ? ", tagged with VLAN " + std::to_string(via.vlan.value_or(0))
                                    : ", untagged";
      if (!inputs.bridgeEntry) {
         return via.port ? say(2, "it leaves by " + state_.linkName(*via.port) + tag) : sayNoPort(via);
      }
      auto const port = state_.bridgePort(*inputs.bridgeEntry);
      auto const& [bridge, vlan, mac] = *inputs.bridgeEntry;
      std::string const entry = "forwarding entry for MAC " + mac.text() +
                                (vlan != 0 ? " VLAN " + std::to_string(vlan) : "") + " on bridge " +
                                state_.linkName(bridge);
      if (!port) {
         return say(2, "no " + entry + ": the kernel would flood; only the CPU could serve it");
      }
      say(2, entry + ": port " + state_.linkName(*port));
      if (!via.port) {
         return sayNoPort(via);
      }
      std::string const below = via.port != port ? ", which is below " + state_.linkName(*port) : "";
      say(2,
          "it leaves by " + state_.linkName(*via.port) + below + tag +
                (vlan != 0 && below.empty() ? ", as that port is set for VLAN " + std::to_string(vlan) : ""));
   }

   void sayNoPort(DerivedVia const& via) {
      if (via.reason == "fdb-miss") {
         say(2, "the bridge has no VLAN of its own to send in; only the CPU could serve it");
      } else if (via.kind == ViaKind::unicast) {
         say(2, via.reason + "; only the CPU could serve it");
      } else if (isBridged(*via.device)) {
         say(2, "its port is looked up by the neighbour's address, which is not known");
      } else {
         say(2, "no port of the chip leads there");
      }
   }

   bool isBridged(int device) const {
      Link const* const routed = state_.link(device);
      bool const isSub = routed && routed->kind == LinkKind::vlan && routed->lower;
      Link const* const carrier = isSub ? state_.link(*routed->lower) : routed;
      return carrier && carrier->kind == LinkKind::bridge;
   }

   KernelState const& state_;
   IpAddress const& destination_;
   std::vector<std::string> lines_;
   std::vector<std::string> below_; // lines for below the route that is being asked
   std::size_t met_{};              // routes in the table that is being searched
   std::uint32_t suppressed_{};
};

} // namespace

std::vector<std::string>
explainRoute(KernelState const& state, IpAddress const& destination) {
   return Explanation(state, destination).run();
}

} // namespace L3TunnelAgent
