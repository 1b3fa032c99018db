#pragma once

#include "agent/tests/live/Injector.h"
#include "agent/tests/live/Namespace.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace L3TunnelAgent::Live {

/// A machine with many tunnel destinations over few next hops, in sets of these, without any router; and what
/// can happen there. All that is random follows from the seed.
class Storm {
 public:
   struct Size {
      int destinations{10000};
      int nextHops{16};
      int groups{110};
   };

   /// Makes it all.
   Storm(Size size, std::uint32_t seed);

   Namespace const& space() const { return space_; }
   Size const& size() const { return size_; }
   Injector const& injector() const { return injector_; }

   /// Lets a few hundred things happen at once: routes that change, go and come, neighbours, next hops,
   /// groups and links likewise.
   void blow();

   /// Lets a next hop's link lose its carrier, or get it back; then the next hop, and its place in groups,
   /// too.
   void linkDown(int nextHop);
   void linkUp(int nextHop);

   /// Puts everything back to where it was made.
   void calm();

 private:
   void makeDevices();
   void makeTunnels();
   void neighbourIs(int nextHop, std::uint8_t version);
   void neighbourDel(int nextHop);
   void nextHopIs(int nextHop);
   void groupIs(int group, std::vector<int> const& members);
   void routeIs(int destination, int group);
   void routeDel(int destination);
   void tunnelIs(int destination, bool isThere);
   std::vector<int> membersOf(int group) const;
   int randomBelow(int end) { return std::uniform_int_distribution(0, end - 1)(random_); }

   Size size_;
   std::mt19937 random_;
   Namespace space_{"storm"};
   Namespace peers_{"storm-peers"};
   Injector injector_;
   Injector peersInjector_;
   int tunnelDevice_{};
   std::vector<int> devices_; // of each next hop
   std::vector<int> peerDevices_;
   std::vector<std::vector<int>> groups_; // members of each, as made
   std::vector<bool> isDown_;             // of each next hop: its link
};

} // namespace L3TunnelAgent::Live
