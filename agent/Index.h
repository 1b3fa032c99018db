#pragma once

namespace L3TunnelAgent {

/// Takes a value out of an index, which is a map to sets; a key without values goes too.
template <typename Index, typename Key, typename Value>
void
indexDel(Index& index, Key const& key, Value const& value) {
   auto const found = index.find(key);
   if (found == index.end()) {
      return;
   }
   found->second.erase(value);
   if (found->second.empty()) {
      index.erase(found);
   }
}

/// @return a copy of a key's values, so that the index may change while they are gone through.
template <typename Index, typename Key>
typename Index::mapped_type
indexed(Index const& index, Key const& key) {
   auto const found = index.find(key);
   return found == index.end() ? typename Index::mapped_type{} : found->second;
}

} // namespace L3TunnelAgent
