#include "agent/Derivation.h"

#include "agent/Index.h"
#include "agent/RouteLookup.h"

#include <algorithm>

namespace L3TunnelAgent {

namespace {

// Ways of the same neighbours differ in weights and order alone.
constexpr std::size_t listsKept = 4;

template <typename T>
void
sortUnique(std::vector<T>& values) {
   std::sort(values.begin(), values.end());
   values.erase(std::unique(values.begin(), values.end()), values.end());
}

} // namespace

/// Notes what a search looks at.
class Derivation::Recorder : public SearchObserver {
 public:
   explicit Recorder(Inputs& inputs) : inputs_(inputs) {}

   void onTableSearched(std::uint32_t table, std::uint8_t length) override {
      inputs_.tables.push_back({.table = table, .length = length});
   }

   void onObject(std::uint32_t id, NextHopObject const* /*object*/) override {
      inputs_.objects.push_back(id);
   }

   void onHop(NextHop const& hop, bool /*inUse*/) override { inputs_.devices.push_back(hop.device); }

 private:
   Inputs& inputs_;
};

std::size_t
Derivation::Hash::operator()(NeighbourKey const& key) const {
   Nuv::HashAccumulator accumulator(Nuv::hashSeed());
   accumulator.mix64(std::hash<IpAddress>()(key.address));
   accumulator.mix64(static_cast<std::uint64_t>(key.device));
   return static_cast<std::size_t>(accumulator.result64());
}

std::size_t
Derivation::Hash::operator()(Inputs const& inputs) const {
   Nuv::HashAccumulator accumulator(Nuv::hashSeed());
   auto const add = [&](std::uint64_t value) { accumulator.mix64(value); };
   add(inputs.tables.size());
   for (auto const& [table, length] : inputs.tables) {
      add(std::uint64_t(table) << 8 | length);
   }
   add(inputs.objects.size());
   for (std::uint32_t const id : inputs.objects) {
      add(id);
   }
   add(inputs.devices.size());
   for (int const device : inputs.devices) {
      add(static_cast<std::uint64_t>(device));
   }
   for (auto const& key : inputs.adjacencies) {
      add((*this)(key));
   }
   return static_cast<std::size_t>(accumulator.result64());
}

Derivation::Derivation(KernelState const& state) : state_(state), endpoints_(state) {
   renew(endpoints_.reset());
}

std::vector<IpAddress>
Derivation::update(Changes const& changes) {
   auto touched = endpoints_.update(changes);
   // What a destination came to be and what its inputs are must be of one state: adjacencies first.
   renewAdjacencies(changes, touched);
   addUsers(changes, touched);
   return renew(touched);
}

std::vector<IpAddress>
Derivation::renew(std::set<IpAddress> const& touched) {
   std::vector<IpAddress> differing;
   for (IpAddress const& address : touched) {
      if (endpoints_.has(address) ? renewDestination(address) : removeDestination(address)) {
         differing.push_back(address);
      }
   }
   return differing;
}

void
Derivation::renewAdjacencies(Changes const& changes, std::set<IpAddress>& touched) {
   std::set<NeighbourKey> keys;
   for (auto const& key : changes.neighbours) {
      if (adjacencies_.count(key)) {
         keys.insert(key);
      }
   }
   for (int const device : changes.links) {
      keys.merge(indexed(adjacenciesOfLink_, device));
   }
   for (auto const& key : changes.bridgeEntries) {
      keys.merge(indexed(adjacenciesOfBridgeEntry_, key));
   }
   for (int const device : changes.portVlans) {
      keys.merge(indexed(adjacenciesOfPortVlans_, device));
   }
   for (auto const& key : keys) {
      auto& shared = adjacencies_.at(key);
      AdjacencyInputs inputs;
      auto via = adjacency(state_, key, &inputs);
      if (!(inputs == shared.inputs)) {
         adjacencyRegistered(key, shared.inputs, false);
         adjacencyRegistered(key, inputs, true);
         shared.inputs = std::move(inputs);
      }
      if (!(via == shared.via)) {
         shared.via = std::move(via);
         for (Footprint const* user : shared.users) {
            touched.insert(user->second.destinations.begin(), user->second.destinations.end());
         }
      }
   }
}

void
Derivation::addUsers(Changes const& changes, std::set<IpAddress>& touched) const {
   auto const add = [&](auto const& index, auto const& key) {
      auto const found = index.find(key);
      if (found != index.end()) {
         for (Footprint const* user : found->second) {
            touched.insert(user->second.destinations.begin(), user->second.destinations.end());
         }
      }
   };
   for (int const device : changes.links) {
      add(usersOfDevice_, device);
   }
   for (std::uint32_t const id : changes.nextHops) {
      add(usersOfObject_, id);
   }
   for (RouteKey const& key : changes.routes) {
      addSearchers(key, touched);
   }
   for (auto const& [address, footprint] : footprintOf_) {
      if (changes.rules.empty()) {
         break;
      }
      if (changes.rules.count(address.family)) {
         touched.insert(address);
      }
   }
}

/// Adds those whose search came by a prefix of that length, which contains them.
void
Derivation::addSearchers(RouteKey const& changed, std::set<IpAddress>& touched) const {
   if (!searches_.contains(changed.table)) {
      return;
   }
   auto const end = footprintOf_.upper_bound(changed.prefix.last());
   for (auto it = footprintOf_.lower_bound(changed.prefix.address); it != end; ++it) {
      auto const& tables = it->second->first.tables;
      // The shortest length at which the table was searched is the first.
      auto const searched = std::lower_bound(tables.begin(), tables.end(), Searched{.table = changed.table});
      if (searched != tables.end() && searched->table == changed.table &&
          searched->length <= changed.prefix.length) {
         touched.insert(it->first);
      }
   }
}

/// The list that another destination of these came to lately, if it is equal.
ViaList
Derivation::shared(Users& users, ViaList vias) {
   for (auto const& weak : users.lists) {
      if (ViaList const lately(weak); lately == vias) {
         return lately;
      }
   }
   std::erase_if(users.lists, [](auto const& weak) { return weak.expired(); });
   if (users.lists.size() == listsKept) {
      users.lists.erase(users.lists.begin());
   }
   users.lists.push_back(vias.weak());
   return vias;
}

bool
Derivation::renewDestination(IpAddress const& address) {
   Inputs inputs;
   Recorder recorder(inputs);
   auto const adjacencyOf = [&](NeighbourKey const& key) {
      inputs.adjacencies.push_back(key);
      return adjacencyVia(key);
   };
   Destination destination = derive(state_, address, &recorder, adjacencyOf);
   ++derived_;
   for (auto const& via : destination.vias) {
      if (via.device) {
         inputs.devices.push_back(*via.device);
      }
   }
   sortUnique(inputs.tables);
   sortUnique(inputs.objects);
   sortUnique(inputs.devices);
   sortUnique(inputs.adjacencies);
   Footprint*& footprint = footprintOf_[address];
   inputsAre(address, footprint, std::move(inputs));
   destination.vias = shared(footprint->second, std::move(destination.vias));

   auto const [place, added] = destinations_.try_emplace(address);
   if (!added && place->second == destination) {
      return false;
   }
   place->second = std::move(destination);
   return true;
}

bool
Derivation::removeDestination(IpAddress const& address) {
   auto const found = footprintOf_.find(address);
   if (found == footprintOf_.end()) {
      return false;
   }
   footprintDel(address, found->second);
   footprintOf_.erase(found);
   destinations_.erase(address);
   return true;
}

void
Derivation::inputsAre(IpAddress const& address, Footprint*& footprint, Inputs inputs) {
   if (footprint && footprint->first == inputs) {
      return;
   }
   auto const [place, added] = footprints_.try_emplace(std::move(inputs));
   if (added) {
      registered(*place, true);
   }
   place->second.destinations.insert(address);
   // Last, so that an adjacency in both is not dropped between.
   footprintDel(address, std::exchange(footprint, &*place));
}

void
Derivation::footprintDel(IpAddress const& address, Footprint* footprint) {
   if (footprint) {
      footprint->second.destinations.erase(address);
      if (footprint->second.destinations.empty()) {
         registered(*footprint, false);
         footprints_.erase(footprints_.find(footprint->first));
      }
   }
}

void
Derivation::registered(Footprint& footprint, bool present) {
   auto const change = [&](auto& index, auto const& key) {
      if (present) {
         index[key].insert(&footprint);
      } else {
         indexDel(index, key, &footprint);
      }
   };
   for (auto const& [table, length] : footprint.first.tables) {
      if (present) {
         ++searches_[table];
      } else if (auto const place = searches_.find(table); --place->second == 0) {
         searches_.erase(place);
      }
   }
   for (std::uint32_t const id : footprint.first.objects) {
      change(usersOfObject_, id);
   }
   for (int const device : footprint.first.devices) {
      change(usersOfDevice_, device);
   }
   for (auto const& key : footprint.first.adjacencies) {
      auto const shared = adjacencies_.find(key);
      if (present) {
         shared->second.users.insert(&footprint);
         continue;
      }
      shared->second.users.erase(&footprint);
      if (shared->second.users.empty()) {
         adjacencyRegistered(key, shared->second.inputs, false);
         adjacencies_.erase(shared);
      }
   }
}

void
Derivation::adjacencyRegistered(NeighbourKey const& key, AdjacencyInputs const& inputs, bool present) {
   auto const change = [&](auto& index, auto const& input) {
      if (present) {
         index[input].insert(key);
      } else {
         indexDel(index, input, key);
      }
   };
   for (int const device : inputs.links) {
      change(adjacenciesOfLink_, device);
   }
   if (inputs.bridgeEntry) {
      change(adjacenciesOfBridgeEntry_, *inputs.bridgeEntry);
   }
   for (int const device : inputs.portVlans) {
      change(adjacenciesOfPortVlans_, device);
   }
}

DerivedVia const&
Derivation::adjacencyVia(NeighbourKey const& key) {
   auto const [place, added] = adjacencies_.try_emplace(key);
   auto& shared = place->second;
   if (added) {
      shared.via = adjacency(state_, key, &shared.inputs);
      adjacencyRegistered(key, shared.inputs, true);
   }
   return shared.via;
}

} // namespace L3TunnelAgent
