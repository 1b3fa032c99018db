#pragma once

#include "agent/Address.h"

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>

namespace L3TunnelAgent {

/// What a destination lacked when it failed.
struct Need {
   enum class Kind : std::uint8_t {
      attempt,   ///< nothing that can be counted
      group,     ///< an index
      memberRun, ///< one of so many rows
      nextHop,   ///< an index, or more
      interface, ///< an index, or a port's number: until then the CPU serves the via
   };

   Kind kind{};
   std::uint32_t length{};  ///< of the run
   std::uint64_t content{}; ///< that of the set: its number; 0 where it says nothing

   auto operator<=>(Need const&) const = default;
};

/// The destinations that lack something, each with one need, in the order of these.
class Waiting {
 public:
   struct Place {
      Need need{};
      std::optional<IpAddress> address{};

      /// Before all that have a need after this one's.
      static Place after(Need const& need);
      /// Before all that have a need of a kind after this one.
      static Place after(Need::Kind kind);
   };

   /// In place of an earlier need.
   void needIs(IpAddress const& address, Need const& need);
   void needDel(IpAddress const& address);

   Need const* need(IpAddress const& address) const;
   std::size_t size() const { return needs_.size(); }
   bool empty() const { return needs_.empty(); }

   /// The first one after a place.
   std::optional<Place> next(Place const& place) const;

   /// Those who need it are to be tried, whatever there is room for; true when there are any.
   bool isMet(Need const& need);

 private:
   std::map<Need, std::set<IpAddress>> byNeed_;
   std::unordered_map<IpAddress, Need> needs_;
};

} // namespace L3TunnelAgent
