#include "agent/Interfaces.h"

#include <algorithm>
#include <functional>

namespace L3TunnelAgent {

using ZandorL3Tunnel::EgrL3Oif2;

Interfaces::Interfaces(Nuv::Ptr<EgrL3Oif2> table)
    : table_(std::move(table)), indices_(Nuv::make<Asic::FirstFreeIndexAllocator>("interfaces")) {
   // Interface 0 stands for none in particular; a via names one in 16 bits.
   indices_->numEntriesIs(std::min<Asic::Index>(table_->numEntries(), 0x10000));
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
