#pragma once

#include "agent/tests/live/Router.h"

#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace L3TunnelAgent::Live {

/// How the leaf under test reaches a spine.
enum class Uplink : std::uint8_t {
   numbered,
   unnumbered,
   bridged, ///< the port is one of a bridge without VLANs, which has the address
   tagged,  ///< a VLAN sub-interface
};

/// Leaves and spines of FRR routers, each leaf linked to each spine: BGP over these links, EVPN over that,
/// and one tunnel device per leaf. Leaf 1 is the one under test; all other leaves' links are numbered.
class Topology {
 public:
   static constexpr int leafUnderTest = 1;
   static constexpr int mostLeaves = 5;

   /// Makes the spines, one for each uplink of the leaf under test, and starts them. Spines count from 1.
   Topology(std::filesystem::path folder, std::vector<Uplink> uplinks);

   /// Makes and starts a leaf, 1 to `mostLeaves`.
   void addLeaf(int leaf);

   /// Ends a leaf at once.
   void leafDel(int leaf) { leaves_.erase(leaf); }

   Router& leaf(int number) { return *leaves_.at(number); }
   Router& spine(int number) { return *spines_.at(number); }

   /// Address of a leaf's end of its tunnels.
   static std::string tunnelEnd(int leaf);

   /// Name of a leaf's port to a spine, and of a spine's port to a leaf.
   static std::string portTo(int spine);
   static std::string portOf(int leaf);

   /// Name of the leaf's device on that port that has the address.
   std::string deviceTo(int spine) const;

   /// Address of a spine on its link to a leaf.
   static std::string spineAddress(int leaf, int spine);

   /// @return the daemons of all routers that should run and do not.
   std::string endedDaemons();

 private:
   Uplink uplink(int leaf, int spine) const;
   void linkUp(int leaf, int spine);
   void tunnelDeviceUp(int leaf);
   std::string bgpOfLeaf(int leaf) const;
   std::string bgpOfSpine(int spine) const;

   std::filesystem::path folder_;
   std::vector<Uplink> uplinks_;
   std::map<int, std::unique_ptr<Router>> spines_;
   std::map<int, std::unique_ptr<Router>> leaves_;
};

} // namespace L3TunnelAgent::Live
