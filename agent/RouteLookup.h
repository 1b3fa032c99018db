#pragma once

#include "agent/KernelState.h"

#include <cstdint>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// What the kernel does with a packet to a destination.
struct RouteMatch {
   enum class Outcome : std::uint8_t {
      none,    // there is no route
      forward, // to one of the next hops
      local,   // it is for this machine, or for many
      drop,
   };

   Outcome outcome{Outcome::none};
   std::vector<NextHop> hops{}; // those in use; of a local outcome: the device, when the route names one
   std::string reason{};        // empty when it is forwarded
};

/// What became of a route that a search met.
enum class RouteVerdict : std::uint8_t {
   taken,
   ofServiceType, // it is for packets of a type of service
   hopsDown,      // none of its next hops is in use
   thrown,        // it ends the search in this table
   suppressed,    // the rule ends the search in this table here
};

/// Hears what a search looks at, in order. Each call may be ignored.
class SearchObserver {
 public:
   SearchObserver() = default;
   SearchObserver(SearchObserver const&) = delete;
   SearchObserver& operator=(SearchObserver const&) = delete;
   virtual ~SearchObserver() = default;

   /// A rule's turn.
   /// @param applies whether it counts for the destination: then its table is searched next, or the rule
   /// drops the packet, or jumps to a later one.
   virtual void onRule(Rule const& /*rule*/, bool /*applies*/) {}

   /// The search of a table is over.
   /// @param length that of the shortest prefix that mattered: routes of shorter ones were not asked.
   virtual void onTableSearched(std::uint32_t /*table*/, std::uint8_t /*length*/) {}

   /// An object was asked for, whether it is there or not; `object` is null when it is not.
   virtual void onObject(std::uint32_t /*id*/, NextHopObject const* /*object*/) {}

   /// The state of a next hop was asked for.
   virtual void onHop(NextHop const& /*hop*/, bool /*inUse*/) {}

   /// A route of a prefix that contains the destination, after its objects and next hops.
   virtual void onRoute(Prefix const& /*prefix*/, Route const& /*route*/, RouteVerdict /*verdict*/) {}
};

/// Whether a rule applies to the packets that tunnels send to a destination.
enum class RuleVerdict : std::uint8_t {
   no,
   yes,
   unknown, // it asks for something that is not known of them
};

RuleVerdict ruleVerdict(KernelState const& state, Rule const& rule, IpAddress const& destination);

/// @return how many rules of both families ask for something that is not known of any tunnel's packets, and
/// so are passed over.
std::size_t unknownRules(KernelState const& state);

/// Finds the route of the packets that tunnels send to a destination. Rules that ask for what is not known of
/// these, and routes of a type of service, do not apply.
/// @param observer hears of the search; may be null.
RouteMatch findRoute(KernelState const& state, IpAddress const& destination,
                     SearchObserver* observer = nullptr);

} // namespace L3TunnelAgent
