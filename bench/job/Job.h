#pragma once

#include "chip/model/Layouts.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <span>
#include <vector>

namespace Bench {

/// One underlay via as whoever asks knows it: a unicast next hop.
struct Via {
   std::uint64_t mac{};
   std::uint16_t interface {};
   std::uint16_t port{};
};

/// What is asked of a side: so many next hops in sets of one size that have none in common, one destination
/// for each set.
struct Job {
   std::size_t nextHops{1000};
   std::size_t set{16};
   bool hasGroups{true};    ///< whether each destination has a group row as well
   std::size_t cycles{1};   ///< how often it is done from the start
   std::size_t most{20000}; ///< destinations of a known set, and changes, are no more than that

   static constexpr std::uint16_t interfaces = 8;
   /// Destinations that are asked for between two turns of the reaction loop.
   static constexpr std::size_t destinationsPerTurn = 64;

   std::size_t sets() const { return std::max<std::size_t>(1, nextHops / set); }
   std::size_t changes() const { return std::min(sets(), most); }
   /// Rows that are enough for each table, while changes are under way too.
   std::size_t hopRows() const { return sets() * set + destinationsPerTurn * set + 1; }
   std::size_t memberRows() const { return (sets() + changes()) * set; }

   Via via(std::size_t number) const {
      // Numbers spread over the low bytes, as the addresses of neighbours do.
      std::uint64_t spread = (number * 0x9e3779b97f4a7c15ull) >> 40 << 24 | number;
      return {std::uint64_t(0x02) << 40 | (spread & 0xffffffffff), std::uint16_t(number % interfaces + 1),
              std::uint16_t(number % 1000 + 1)};
   }

   std::vector<Via> setOf(std::size_t number) const {
      std::vector<Via> vias;
      for (std::size_t position = 0; position < set; ++position) {
         vias.push_back(via(number * set + position));
      }
      return vias;
   }

   /// The same set after its change: one via is another, which nobody had before.
   std::vector<Via> changedSetOf(std::size_t number) const {
      auto vias = setOf(number);
      vias[number % set] = via(sets() * set + number);
      return vias;
   }

   /// The sets in the order in which destinations of known sets come, changes happen, and destinations go.
   std::vector<std::size_t> order(unsigned seed) const {
      std::vector<std::size_t> all(sets());
      std::iota(all.begin(), all.end(), std::size_t(0));
      std::shuffle(all.begin(), all.end(), std::mt19937(seed));
      return all;
   }
};

/// What forwarding does with a via, as a number; sums of these do not depend on the order of members.
inline std::uint64_t
digest(Via const& via) {
   std::uint64_t z = (via.mac ^ std::uint64_t(via.interface) << 48) * 0xbf58476d1ce4e5b9ull + via.port;
   return (z ^ z >> 29) * 0x94d049bb133111ebull;
}

inline std::uint64_t
digest(std::vector<Via> const& vias) {
   std::uint64_t sum = 0;
   for (auto const& via : vias) {
      sum += digest(via);
   }
   return sum;
}

/// The same from a next hop's two rows, which both sides lay out as the model chip does.
inline std::uint64_t
digestOfRows(std::span<std::uint32_t const> ing, std::span<std::uint32_t const> egr) {
   namespace Ing = ModelChip::IngL3NextHop2Table;
   namespace Egr = ModelChip::EgrL3NextHop2;
   bool isThere = Ing::valid.unpack(ing) != 0 && Egr::valid.unpack(egr) != 0;
   return !isThere ? 0
                   : digest(Via{Egr::dstMac.unpack(egr), std::uint16_t(Egr::l3Oif.unpack(egr)),
                                std::uint16_t(Ing::destinationId.unpack(ing))});
}

} // namespace Bench
