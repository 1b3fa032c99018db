#pragma once

#include "agent/Adjacency.h"
#include "agent/SeededHash.h"
#include "agent/TunnelEndpoints.h"

#include <map>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace L3TunnelAgent {

/// The tunnel destinations of a state with their vias, kept as the state changes: a change costs what depends
/// on it.
///
/// Each destination remembers what its derivation looked at, also where nothing was: next-hop objects,
/// devices, adjacencies, and how far down its prefixes each table was searched. An adjacency, which many
/// destinations share, remembers its links, its forwarding entry and VLANs. Both are found by these; many
/// destinations of the same ways are found as one, and share the list of these.
class Derivation {
 public:
   /// Derives everything.
   /// @param state must outlive this.
   explicit Derivation(KernelState const& state);

   Derivation(Derivation const&) = delete;
   Derivation& operator=(Derivation const&) = delete;

   /// Derives anew what depends on the changes.
   /// @param changes everything that the state noted since the last call, or since this was made.
   /// @return the addresses whose destination came, went or differs, ascending, each once.
   std::vector<IpAddress> update(Changes const& changes);

   /// All that there are, as destinations(state) has them.
   std::map<IpAddress, Destination> const& destinations() const { return destinations_; }

   /// @return how many destinations were derived since this was made, each counted as often as it was.
   std::size_t derived() const { return derived_; }

 private:
   /// How far a table was searched: prefixes shorter than that were not asked.
   struct Searched {
      std::uint32_t table{};
      std::uint8_t length{};

      auto operator<=>(Searched const&) const = default;
   };

   /// What destinations were derived from: each ascending, each once. Destinations of the same ways share
   /// one.
   struct Inputs {
      std::vector<Searched> tables;
      std::vector<std::uint32_t> objects;
      std::vector<int> devices;
      std::vector<NeighbourKey> adjacencies;

      bool operator==(Inputs const&) const = default;
   };

   struct Hash {
      std::size_t operator()(NeighbourKey const& key) const;
      std::size_t operator()(Inputs const& inputs) const;
   };

   /// The destinations of the same inputs, and the lists that they came to last.
   struct Users {
      std::unordered_set<IpAddress> destinations;
      std::vector<ViaList::Weak> lists;
   };

   class Recorder;
   using SharedInputs = std::unordered_map<Inputs, Users, Hash>;
   using Footprint = SharedInputs::value_type;
   using Footprints = std::unordered_set<Footprint*>;

   struct SharedAdjacency {
      DerivedVia via;
      AdjacencyInputs inputs;
      Footprints users;
   };

   std::vector<IpAddress> renew(std::set<IpAddress> const& touched);
   void renewAdjacencies(Changes const& changes, std::set<IpAddress>& touched);
   void addUsers(Changes const& changes, std::set<IpAddress>& touched) const;
   void addSearchers(RouteKey const& changed, std::set<IpAddress>& touched) const;
   static ViaList shared(Users& users, ViaList vias);
   bool renewDestination(IpAddress const& address);
   bool removeDestination(IpAddress const& address);
   void inputsAre(IpAddress const& address, Footprint*& footprint, Inputs inputs);
   void footprintDel(IpAddress const& address, Footprint* footprint);
   void registered(Footprint& footprint, bool present);
   void adjacencyRegistered(NeighbourKey const& key, AdjacencyInputs const& inputs, bool present);
   DerivedVia const& adjacencyVia(NeighbourKey const& key);

   KernelState const& state_;
   TunnelEndpoints endpoints_;
   std::map<IpAddress, Destination> destinations_;
   std::map<IpAddress, Footprint*> footprintOf_;
   SharedInputs footprints_;
   MapByNumber<std::uint32_t, std::size_t> searches_; // by table: how many footprints have it
   MapByNumber<std::uint32_t, Footprints> usersOfObject_;
   MapByNumber<int, Footprints> usersOfDevice_;
   std::unordered_map<NeighbourKey, SharedAdjacency, Hash> adjacencies_;
   MapByNumber<int, std::set<NeighbourKey>> adjacenciesOfLink_;
   std::map<BridgeKey, std::set<NeighbourKey>> adjacenciesOfBridgeEntry_;
   MapByNumber<int, std::set<NeighbourKey>> adjacenciesOfPortVlans_;
   std::size_t derived_{};
};

} // namespace L3TunnelAgent
