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
   for (std::uint32_t const id : changes.nextHops) {
      keys.merge(indexed(byObject_, id));
   }
   std::set<IpAddress> touched;
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

void
TunnelEndpoints::renew(VxlanKey const& key, std::set<IpAddress>& touched) {
   Named now;
   auto const entry = state_.vxlanEntries().find(key);
   if (entry != state_.vxlanEntries().end()) {
      now.addresses = namedDestinations(state_, key, entry->second, &now.objects);
   }
   // Counted before what was is discounted, so that what stays never goes.
   for (auto const& address : now.addresses) {
      ++counts_[address];
      touched.insert(address);
   }
   auto const before = named_.find(key);
   if (before != named_.end()) {
      for (auto const& address : before->second.addresses) {
         touched.insert(address);
         auto const count = counts_.find(address);
         if (--count->second == 0) {
            counts_.erase(count);
         }
      }
      for (std::uint32_t const id : before->second.objects) {
         indexDel(byObject_, id, key);
      }
   }
   for (std::uint32_t const id : now.objects) {
      byObject_[id].insert(key);
   }
   if (now.addresses.empty() && now.objects.empty()) {
      named_.erase(key);
   } else {
      named_[key] = std::move(now);
   }
}

} // namespace L3TunnelAgent
