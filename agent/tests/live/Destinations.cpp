#include "agent/tests/live/Destinations.h"

#include <algorithm>
#include <fmt/format.h>

namespace L3TunnelAgent::Live {

namespace {

using nlohmann::json;

std::string
word(json const& object, char const* key) {
   auto const found = object.find(key);
   return found == object.end() || found->is_null() ? std::string() : found->get<std::string>();
}

std::map<std::string, std::string>
sourceMacs(json const& interfaces) {
   std::map<std::string, std::string> result;
   for (auto const& each : interfaces) {
      result[word(each, "dev")] = word(each, "src_mac");
   }
   return result;
}

TrueVia
agentVia(json const& via, std::map<std::string, std::string> const& sources) {
   TrueVia result{.kind = word(via, "kind"), .device = word(via, "dev")};
   if (result.kind != "unicast") {
      return result;
   }
   result.mac = word(via, "mac");
   result.port = word(via, "port_dev");
   if (!via.at("vlan").is_null()) {
      result.vlan = via.at("vlan").get<unsigned>();
   }
   if (!result.port.empty()) {
      result.tagged = via.at("tagged").get<bool>();
      auto const source = sources.find(result.device);
      result.source = source == sources.end() ? "none" : source->second;
   }
   return result;
}

std::string
text(TrueVias const& vias) {
   std::string result;
   for (auto const& via : vias) {
      result += (result.empty() ? "" : "; ") + text(via);
   }
   return "{" + result + "}";
}

/// Whether the vias that are programmed are those that should be: where some forward, these alone.
void
checkProgrammed(json const& destination, std::vector<std::string>& faults) {
   auto const& vias = destination.at("vias");
   auto const servesItself = [](json const& via) {
      return via.at("kind") == "drop" || (via.at("kind") == "unicast" && !via.at("port_dev").is_null());
   };
   bool const someForward = std::any_of(vias.begin(), vias.end(), servesItself);
   for (auto const& via : vias) {
      if (via.at("programmed").get<bool>() != (!someForward || servesItself(via))) {
         faults.push_back(
               fmt::format("{}: programmed is wrong in {}", word(destination, "vtep"), via.dump()));
      }
   }
   auto const* const state = vias.empty() ? "noRoute" : "success";
   if (destination.at("state") != state) {
      faults.push_back(
            fmt::format("{} is {}, not {}", word(destination, "vtep"), word(destination, "state"), state));
   }
}

} // namespace

std::string
text(TrueVia const& via) {
   return fmt::format("{} {} mac={} port={} vlan={} tagged={} source={}", via.kind, via.device, via.mac,
                      via.port, via.vlan ? std::to_string(*via.vlan) : "-",
                      via.tagged ? (*via.tagged ? "yes" : "no") : "-", via.source);
}

std::string
text(Destinations const& destinations) {
   std::string result;
   for (auto const& [address, vias] : destinations) {
      result += fmt::format("{}{}\n", address, vias.empty() ? " has no route" : "");
      for (auto const& via : vias) {
         result += fmt::format("   {}\n", text(via));
      }
   }
   return result;
}

std::size_t
forwarding(Destinations const& destinations, std::string const& address) {
   auto const found = destinations.find(address);
   return found == destinations.end()
                ? 0
                : static_cast<std::size_t>(std::count_if(found->second.begin(), found->second.end(),
                                                         [](TrueVia const& via) { return via.forwards(); }));
}

Destinations
agentDestinations(json const& document) {
   auto const sources = sourceMacs(document.at("interfaces"));
   Destinations result;
   for (auto const& each : document.at("destinations")) {
      auto& vias = result[word(each, "vtep")];
      for (auto const& via : each.at("vias")) {
         vias.insert(agentVia(via, sources));
      }
   }
   return result;
}

std::vector<std::string>
differences(Destinations const& kernel, json const& document) {
   std::vector<std::string> faults;
   auto const agent = agentDestinations(document);
   for (auto const& [address, vias] : kernel) {
      auto const found = agent.find(address);
      if (found == agent.end()) {
         faults.push_back(address + ": the agent has no such destination");
      } else if (found->second != vias) {
         faults.push_back(fmt::format("{}: kernel {}, agent {}", address, text(vias), text(found->second)));
      }
   }
   for (auto const& [address, unused] : agent) {
      if (!kernel.contains(address)) {
         faults.push_back(address + ": no destination of the kernel's");
      }
   }
   for (auto const& each : document.at("destinations")) {
      checkProgrammed(each, faults);
   }
   return faults;
}

} // namespace L3TunnelAgent::Live
