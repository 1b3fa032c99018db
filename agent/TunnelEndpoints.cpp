#include "agent/TunnelEndpoints.h"

#include "agent/Derive.h"
#include "agent/Index.h"

namespace L3TunnelAgent {

std::set<IpAddress>
TunnelEndpoints::reset() {
   Changes all;
   for (auto const& [key, entry] : state_.vxlanEntries()) {
      all.vxlanEntries.insert(key);
   }
   for (auto const& [index, link] : state_.links()) {
      all.links.insert(index);
   }
   return update(all);
}

std::set<IpAddress>
TunnelEndpoints::update(Changes const& changes) {
   std::set<VxlanKey> keys = changes.vxlanEntries;
   for (int const device : changes.links) {
      // Only becoming a vxlan device, or none, matters to its entries.
      Link const* const link = state_.link(device);
      bool const isVxlan = link && link->kind == LinkKind::vxlan;
      if (isVxlan ? vxlanDevices_.insert(device).second : vxlanDevices_.erase(device) != 0) {
         addEntriesOf(device, keys);
      }
   }
   std::set<std::uint32_t> objects;
   for (std::uint32_t const id : changes.nextHops) {
      objects.merge(indexed(byMember_, id));
   }
   std::set<IpAddress> touched;
   for (std::uint32_t const id : objects) {
      renewObject(id, touched);
   }
   for (VxlanKey const& key : keys) {
      renew(key, touched);
   }
   return touched;
}

void
TunnelEndpoints::addEntriesOf(int device, std::set<VxlanKey>& keys) const {
   auto const addFrom = [&](auto const& map) {
      for (auto it = map.lower_bound({.device = device}); it != map.end() && it->first.device == device;
           ++it) {
         keys.insert(it->first);
      }
   };
   addFrom(named_);
   addFrom(state_.vxlanEntries());
}

TunnelEndpoints::Named
TunnelEndpoints::named(VxlanKey const& key) const {
   auto const entry = state_.vxlanEntries().find(key);
   if (entry == state_.vxlanEntries().end() || !vxlanDevices_.count(key.device)) {
      return {};
   }
   return {.address = entry->second.destination, .object = entry->second.nextHopId};
}

// Counted before what was is discounted, here as for objects, so that what stays never goes.
void
TunnelEndpoints::renew(VxlanKey const& key, std::set<IpAddress>& touched) {
   auto const now = named(key);
   if (now.address) {
      count(*now.address, touched);
   }
   if (now.object) {
      objectIsNamed(*now.object, touched);
   }
   auto const found = named_.find(key);
   auto const before = found == named_.end() ? Named() : found->second;
   if (before.address) {
      discount(*before.address, touched);
   }
   if (before.object) {
      objectIsNotNamed(*before.object, touched);
   }
   if (now == Named()) {
      named_.erase(key);
   } else {
      named_[key] = now;
   }
}

void
TunnelEndpoints::objectIsNamed(std::uint32_t id, std::set<IpAddress>& touched) {
   if (objects_[id].entries++ == 0) {
      renewObject(id, touched);
   }
}

void
TunnelEndpoints::objectIsNotNamed(std::uint32_t id, std::set<IpAddress>& touched) {
   if (--objects_.at(id).entries == 0) {
      renewObject(id, touched);
      objects_.erase(id);
   }
}

void
TunnelEndpoints::renewObject(std::uint32_t id, std::set<IpAddress>& touched) {
   auto& object = objects_.at(id);
   NamedByObject now{.entries = object.entries};
   if (now.entries != 0) {
      now.addresses = namedDestinations(state_, id, &now.objects);
   }
   for (auto const& address : now.addresses) {
      count(address, touched);
   }
   for (auto const& address : object.addresses) {
      discount(address, touched);
   }
   for (std::uint32_t const member : object.objects) {
      indexDel(byMember_, member, id);
   }
   for (std::uint32_t const member : now.objects) {
      byMember_[member].insert(id);
   }
   object = std::move(now);
}

void
TunnelEndpoints::count(IpAddress const& address, std::set<IpAddress>& touched) {
   ++counts_[address];
   touched.insert(address);
}

void
TunnelEndpoints::discount(IpAddress const& address, std::set<IpAddress>& touched) {
   touched.insert(address);
   auto const found = counts_.find(address);
   if (--found->second == 0) {
      counts_.erase(found);
   }
}

} // namespace L3TunnelAgent
