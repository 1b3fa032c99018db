#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace L3TunnelAgent::Live {

/// One way to a destination, in words.
struct TrueVia {
   std::string kind{};             ///< "unicast", "cpu" or "drop"
   std::string device{};           ///< that the route names; empty: none
   std::string mac{};              ///< of the neighbour; of unicast alone, as all beneath
   std::string port{};             ///< that frames leave by; empty: not known
   std::optional<unsigned> vlan{}; ///< of the device
   std::optional<bool> tagged{};   ///< whether frames leave with that tag; where there is a port
   std::string source{};           ///< MAC of the device; where there is a port

   auto operator<=>(TrueVia const&) const = default;
   bool forwards() const { return kind == "unicast" && !port.empty(); }
};

std::string text(TrueVia const& via);

using TrueVias = std::multiset<TrueVia>;

/// Tunnel destinations with the ways to them; none where there is no route.
using Destinations = std::map<std::string, TrueVias>;

/// One line for each way.
std::string text(Destinations const& destinations);

/// @return how many of a destination's ways forward; 0 also when it is no destination.
std::size_t forwarding(Destinations const& destinations, std::string const& address);

/// @return the destinations of what the agent prints as JSON, with the section "interfaces".
Destinations agentDestinations(nlohmann::json const& document);

/// @return what an agent that is right does not say: how its destinations differ from the kernel's, those
/// that are not programmed, and vias that are programmed and should not be or the other way round. Empty when
/// all is right.
std::vector<std::string> differences(Destinations const& kernel, nlohmann::json const& document);

} // namespace L3TunnelAgent::Live
