#include "agent/tests/live/KernelTruth.h"

#include "agent/tests/live/Process.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace L3TunnelAgent::Live {

namespace {

using nlohmann::json;

std::string
word(json const& object, char const* key) {
   auto const found = object.find(key);
   return found == object.end() ? std::string() : found->get<std::string>();
}

/// @return the first object of a list in which a key is a value, or null.
template <typename Value>
json const*
findBy(json const& list, char const* key, Value const& value) {
   auto const found = std::find_if(list.begin(), list.end(), [&](json const& each) {
      return each.contains(key) && each[key] == value;
   });
   return found == list.end() ? nullptr : &*found;
}

std::string
kindOf(json const& link) {
   auto const info = link.find("linkinfo");
   return info == link.end() ? std::string() : word(*info, "info_kind");
}

std::string
gatewayOf(json const& hop) {
   return hop.contains("via") ? word(hop["via"], "host") : word(hop, "gateway");
}

bool
hasFlag(json const& object, char const* flag) {
   auto const flags = object.find("flags");
   return flags != object.end() && std::find(flags->begin(), flags->end(), flag) != flags->end();
}

/// The next hops of a route that the kernel sends by: those with carrier, as its look-ups skip the others
/// where they are told to ignore them.
std::vector<json>
hopsOf(json const& route) {
   std::vector<json> result;
   if (route.contains("nexthops")) {
      for (auto const& hop : route["nexthops"]) {
         if (!hasFlag(hop, "dead") && !hasFlag(hop, "linkdown")) {
            result.push_back(hop);
         }
      }
   } else {
      result.push_back(route);
   }
   return result;
}

/// Goes from one machine's facts to its destinations.
class Reader {
 public:
   explicit Reader(KernelFacts const& facts) : facts_(facts) {
      for (auto const& each : facts.links) {
         links_[word(each, "ifname")] = &each;
      }
      for (auto const& each : facts.neighbours) {
         neighbours_[{word(each, "dev"), word(each, "dst")}] = &each;
      }
   }

   std::set<std::string> addresses() const {
      std::set<std::string> result;
      for (auto const& entry : facts_.forwarding) {
         if (kindOf(*links_.at(word(entry, "ifname"))) != "vxlan") {
            continue;
         }
         if (entry.contains("dst")) {
            result.insert(word(entry, "dst"));
         }
         if (entry.contains("nhid")) {
            addMembers(entry["nhid"].get<int>(), result);
         }
      }
      return result;
   }

   TrueVias vias(std::string const& address) const {
      if (auto const refusal = facts_.refusals.find(address); refusal != facts_.refusals.end()) {
         return refused(refusal->second);
      }
      auto const& route = facts_.routes.at(address);
      auto const type = word(route, "type");
      if (type == "local" || type == "broadcast" || type == "multicast" || type == "anycast") {
         return {{.kind = "cpu"}}; // it leaves by no device
      }
      TrueVias result;
      for (auto const& hop : hopsOf(route)) {
         auto const gateway = gatewayOf(hop);
         result.insert(via(word(hop, "dev"), gateway.empty() ? address : gateway));
      }
      return result;
   }

 private:
   void addMembers(int id, std::set<std::string>& addresses) const {
      auto const* const object = findBy(facts_.nextHops, "id", id);
      if (object && object->contains("group")) {
         for (auto const& member : (*object)["group"]) {
            addMembers(member["id"].get<int>(), addresses);
         }
      } else if (object) {
         addresses.insert(gatewayOf(*object));
      }
   }

   static TrueVias refused(std::string const& why) {
      if (why.find("Network is unreachable") != std::string::npos) {
         return {};
      }
      for (auto const* each : {"Invalid argument", "No route to host", "Permission denied"}) {
         if (why.find(each) != std::string::npos) { // blackhole, unreachable, prohibit
            return {{.kind = "drop"}};
         }
      }
      throw std::runtime_error("the kernel's look-up: " + why);
   }

   /// @return the neighbour's Ethernet address, or nothing when the kernel cannot send to it at once.
   std::string macOf(std::string const& device, std::string const& address) const {
      static std::set<std::string> const sendable{"REACHABLE", "STALE",     "DELAY",
                                                  "PROBE",     "PERMANENT", "NOARP"};
      auto const found = neighbours_.find({device, address});
      if (found == neighbours_.end() || !sendable.contains(found->second->at("state").at(0))) {
         return {};
      }
      return word(*found->second, "lladdr");
   }

   TrueVia via(std::string const& device, std::string const& gateway) const {
      TrueVia result{.kind = "cpu", .device = device};
      auto const mac = macOf(device, gateway);
      if (mac.empty()) {
         return result;
      }
      result.kind = "unicast";
      result.mac = mac;
      auto const& link = *links_.at(device);
      leave(link, result);
      if (!result.port.empty()) {
         result.source = word(link, "address");
      }
      return result;
   }

   void leave(json const& link, TrueVia& via) const {
      auto const kind = kindOf(link);
      if (kind == "bridge") {
         return leaveBridge(link, std::nullopt, via);
      }
      if (kind != "vlan") {
         via.port = via.device;
         via.tagged = false;
         return;
      }
      via.vlan = link["linkinfo"]["info_data"]["id"].get<unsigned>();
      auto const below = word(link, "link");
      if (kindOf(*links_.at(below)) == "bridge") {
         return leaveBridge(*links_.at(below), via.vlan, via);
      }
      via.port = below;
      via.tagged = true;
   }

   void leaveBridge(json const& bridge, std::optional<unsigned> vlan, TrueVia& via) const {
      auto const name = word(bridge, "ifname");
      for (auto const& entry : facts_.forwarding) {
         // No VLAN has the number 0.
         bool const isOfVlan = entry.value("vlan", 0U) == vlan.value_or(0U);
         if (word(entry, "master") == name && word(entry, "mac") == via.mac && isOfVlan) {
            via.port = word(entry, "ifname");
            via.tagged = vlan && !isUntagged(via.port, *vlan);
            return;
         }
      }
   }

   bool isUntagged(std::string const& port, unsigned vlan) const {
      auto const* const settings = findBy(facts_.portVlans, "ifname", port);
      auto const* const found = settings ? findBy((*settings)["vlans"], "vlan", vlan) : nullptr;
      return found && hasFlag(*found, "Egress Untagged");
   }

   KernelFacts const& facts_;
   std::map<std::string, json const*> links_;
   std::map<std::pair<std::string, std::string>, json const*> neighbours_;
};

json
printed(Words const& command, Namespace const& space) {
   auto const text = outputOf(command, space.name());
   auto result = json::array();
   if (text.find_first_not_of(" \n") != std::string::npos) {
      for (auto& each : json::parse(text)) {
         if (!each.empty()) { // stands for what a filter left out
            result.push_back(std::move(each));
         }
      }
   }
   return result;
}

/// Asks the kernel for the routes of all destinations in one go.
void
lookUp(Namespace const& space, std::set<std::string> const& addresses, KernelFacts& facts) {
   std::vector<std::string> const asked(addresses.begin(), addresses.end());
   std::string lines;
   for (auto const& address : asked) {
      // As a tunnel's packets are, which policy rules may ask for.
      lines += "route get " + address + " ipproto udp dport 4789 fibmatch\n";
   }
   auto const answer = finished({"ip", "-force", "-json", "-batch", "-"}, space.name(), lines);
   static std::regex const refusal("RTNETLINK answers: ([^\n]*)\nCommand failed -:([0-9]+)");
   for (std::sregex_iterator each(answer.error.begin(), answer.error.end(), refusal), end; each != end;
        ++each) {
      facts.refusals[asked.at(std::stoul((*each)[2]) - 1)] = (*each)[1];
   }
   std::istringstream out(answer.out);
   auto next = asked.begin();
   for (std::string line; std::getline(out, line);) {
      if (line.empty()) {
         continue;
      }
      next = std::find_if(next, asked.end(),
                          [&](auto const& address) { return !facts.refusals.contains(address); });
      if (next == asked.end()) {
         throw std::runtime_error("more routes than destinations: " + line);
      }
      facts.routes[*next++] = json::parse(line).at(0);
   }
   if (facts.routes.size() + facts.refusals.size() != asked.size()) {
      throw std::runtime_error("fewer routes than destinations: " + answer.error);
   }
}

std::string
hopText(json const& hop) {
   return word(hop, "dev") + " " + gatewayOf(hop);
}

} // namespace

Destinations
kernelTruth(KernelFacts const& facts) {
   Reader const reader(facts);
   Destinations result;
   for (auto const& address : reader.addresses()) {
      result[address] = reader.vias(address);
   }
   return result;
}

KernelFacts
kernelFacts(Namespace const& space) {
   KernelFacts facts{.links = printed({"ip", "-j", "-d", "link"}, space),
                     .neighbours = printed({"ip", "-j", "neigh", "show", "nud", "all"}, space),
                     .forwarding = printed({"bridge", "-j", "fdb", "show"}, space),
                     .portVlans = printed({"bridge", "-j", "vlan", "show"}, space),
                     .nextHops = printed({"ip", "-j", "nexthop"}, space),
                     .routes = {},
                     .refusals = {}};
   lookUp(space, Reader(facts).addresses(), facts);
   return facts;
}

std::set<std::string>
sampledHops(Namespace const& space, std::string const& destination, int flows) {
   std::string lines;
   for (int flow = 0; flow < flows; ++flow) {
      lines += fmt::format("route get {} ipproto udp sport {} dport 4789\n", destination, 49152 + flow * 7);
   }
   std::istringstream out(outputOf({"ip", "-json", "-batch", "-"}, space.name(), lines));
   std::set<std::string> result;
   for (std::string line; std::getline(out, line);) {
      if (!line.empty()) {
         result.insert(hopText(json::parse(line).at(0)));
      }
   }
   return result;
}

std::set<std::string>
routeHops(Namespace const& space, std::string const& destination) {
   auto const route = printed({"ip", "-j", "route", "get", destination, "fibmatch"}, space).at(0);
   std::set<std::string> result;
   for (auto const& hop : hopsOf(route)) {
      result.insert(hopText(hop));
   }
   return result;
}

} // namespace L3TunnelAgent::Live
