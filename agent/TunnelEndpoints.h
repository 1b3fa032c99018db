#pragma once

#include "agent/KernelState.h"
#include "agent/SeededHash.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

namespace L3TunnelAgent {

/// The addresses that forwarding entries of vxlan devices name, kept as the entries change. What a next-hop
/// object names is counted once, however many entries name the object.
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
   /// What one forwarding entry names.
   struct Named {
      std::optional<IpAddress> address{};
      std::optional<std::uint32_t> object{};

      bool operator==(Named const&) const = default;
   };

   /// What a next-hop object names for all entries that name it, and by which objects.
   struct NamedByObject {
      std::size_t entries{};
      std::vector<IpAddress> addresses{};
      std::vector<std::uint32_t> objects{};
   };

   void addEntriesOf(int device, std::set<VxlanKey>& keys) const;
   Named named(VxlanKey const& key) const;
   void renew(VxlanKey const& key, std::set<IpAddress>& touched);
   void renewObject(std::uint32_t id, std::set<IpAddress>& touched);
   void objectIsNamed(std::uint32_t id, std::set<IpAddress>& touched);
   void objectIsNotNamed(std::uint32_t id, std::set<IpAddress>& touched);
   void count(IpAddress const& address, std::set<IpAddress>& touched);
   void discount(IpAddress const& address, std::set<IpAddress>& touched);

   KernelState const& state_;
   std::map<VxlanKey, Named> named_;
   MapByNumber<std::uint32_t, NamedByObject> objects_;            // that entries name
   std::unordered_map<IpAddress, std::size_t> counts_;            // how many entries and objects name it
   MapByNumber<std::uint32_t, std::set<std::uint32_t>> byMember_; // and by itself
   std::set<int> vxlanDevices_;
};

} // namespace L3TunnelAgent
