#pragma once

#include "agent/KernelState.h"

#include <map>
#include <set>
#include <unordered_map>
#include <vector>

namespace L3TunnelAgent {

/// The addresses that forwarding entries of vxlan devices name, kept as the entries change.
class TunnelEndpoints {
 public:
   /// Empty until reset().
   /// @param state must outlive this.
   explicit TunnelEndpoints(KernelState const& state) : state_(state) {}

   /// Takes everything from the state, once, before any update.
   /// @return the addresses that came.
   std::set<IpAddress> reset();

   /// Takes what the changes concern anew from the state.
   /// @return the addresses that came or went, among others that did not.
   std::set<IpAddress> update(Changes const& changes);

   bool has(IpAddress const& address) const { return counts_.count(address) != 0; }

 private:
   /// What one forwarding entry names, and by which objects.
   struct Named {
      std::vector<IpAddress> addresses;
      std::vector<std::uint32_t> objects;
   };

   void addEntriesOf(int device, std::set<VxlanKey>& keys) const;
   void renew(VxlanKey const& key, std::set<IpAddress>& touched);

   KernelState const& state_;
   std::map<VxlanKey, Named> named_;
   std::unordered_map<IpAddress, unsigned> counts_; // how many entries name it
   std::unordered_map<std::uint32_t, std::set<VxlanKey>> byObject_;
   std::set<int> vxlanDevices_;
};

} // namespace L3TunnelAgent
