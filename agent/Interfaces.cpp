#include "agent/Interfaces.h"

#include "tables/EgrL3NextHop2.h"

#include <algorithm>
#include <functional>
#include <limits>

namespace L3TunnelAgent {

using ZandorL3Tunnel::EgrL3NextHop2;
using ZandorL3Tunnel::EgrL3Oif2;

namespace {

/// The highest index that the row of a next hop has the bits for.
constexpr Asic::Index highest = std::numeric_limits<decltype(EgrL3NextHop2::Entry::l3Oif2)>::max();

} // namespace

Interfaces::Interfaces(Nuv::Ptr<EgrL3Oif2> table)
    : table_(std::move(table)), indices_(Nuv::make<Asic::FirstFreeIndexAllocator>("interfaces")) {
   // Interface 0 stands for none in particular.
   indices_->numEntriesIs(std::min(table_->numEntries(), highest + 1));
   indices_->reserveIndices(0, 1);
}

Nuv::Ptr<Interfaces::Use>
Interfaces::use(InterfaceKey const& key) {
   if (auto* const* const standing = uses_.find(key)) {
      return Nuv::Ptr<Use>(*standing);
   }
   auto const index = indices_->newIndexForKey(Nuv::nuvType<InterfaceKey>(), &key);
   if (index == Asic::invalidIndex) {
      return nullptr;
   }
   std::erase(left_, key);
   EgrL3Oif2::Entry entry;
   entry.isUnderlayL2HdrTagged = key.tagged;
   entry.srcMacAddress = key.sourceMac;
   entry.tnlVlanTag = key.vlan;
   auto use = Nuv::make<Use>(*this, key, index);
   uses_.insert(key, use.get());
   table_->entryCommit(index, entry);
   return use;
}

Asic::Index
Interfaces::index(InterfaceKey const& key) const {
   return indices_->indexForKey(Nuv::nuvType<InterfaceKey>(), &key);
}

void
Interfaces::useDel(Use const& use) {
   uses_.erase(use.key());
   left_.push_back(use.key());
   table_->entryRemove(use.index());
}

bool
Interfaces::freeLeft() {
   auto const isGone = [&](InterfaceKey const& key) { return !table_->entryHas(index(key)); };
   auto const gone = std::stable_partition(left_.begin(), left_.end(), std::not_fn(isGone));
   bool const any = gone != left_.end();
   std::for_each(gone, left_.end(), [&](InterfaceKey const& key) {
      indices_->releaseIndexForKey(Nuv::nuvType<InterfaceKey>(), &key);
   });
   left_.erase(gone, left_.end());
   return any;
}

} // namespace L3TunnelAgent
