#pragma once

#include "agent/Index.h"
#include "agent/KernelObjects.h"
#include "agent/SeededHash.h"

#include <map>
#include <set>
#include <vector>

namespace L3TunnelAgent {

/// The forwarding entries of bridges, each to a port, found by key or by port.
class BridgeEntries {
 public:
   using Map = std::map<BridgeKey, int>;

   Map const& map() const { return ports_; }
   Map::const_iterator begin() const { return ports_.begin(); }
   Map::const_iterator end() const { return ports_.end(); }
   Map::const_iterator find(BridgeKey const& key) const { return ports_.find(key); }
   bool contains(BridgeKey const& key) const { return ports_.contains(key); }

   /// @return whether the entry says something else now.
   bool portIs(BridgeKey const& key, int port) {
      auto const [place, added] = ports_.try_emplace(key, port);
      if (!added) {
         if (place->second == port) {
            return false;
         }
         indexDel(ofPort_, place->second, key);
         place->second = port;
      }
      ofPort_[port].insert(key);
      return true;
   }

   /// @return whether there was such an entry.
   bool del(BridgeKey const& key) {
      auto const found = ports_.find(key);
      if (found == ports_.end()) {
         return false;
      }
      indexDel(ofPort_, found->second, key);
      ports_.erase(found);
      return true;
   }

   /// @return the keys of a device's entries, as a bridge or as a port.
   std::vector<BridgeKey> keysOf(int device) const {
      std::vector<BridgeKey> keys;
      auto const found = ofPort_.find(device);
      if (found != ofPort_.end()) {
         keys.assign(found->second.begin(), found->second.end());
      }
      for (auto at = ports_.lower_bound({.bridge = device}); at != ports_.end() && at->first.bridge == device;
           ++at) {
         keys.push_back(at->first);
      }
      return keys;
   }

 private:
   Map ports_;
   MapByNumber<int, std::set<BridgeKey>> ofPort_;
};

} // namespace L3TunnelAgent
