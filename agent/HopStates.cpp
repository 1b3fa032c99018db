#include "agent/KernelState.h"

#include <algorithm>

// How the next hops of a KernelState are, which links, settings and their own messages say together.
namespace L3TunnelAgent {

namespace {

/// IPv6 has a next hop dead from when its device is switched off until it is on and has carrier, IPv4 only
/// until it is on.
bool
isDead(NextHop const& hop, Link const& over, IpAddress::Family family) {
   if (!over.isUp() || over.hasCarrier() || family == IpAddress::Family::v4) {
      return !over.isUp();
   }
   bool const isSinceTold = over.off.value > std::max(over.ready.value, hop.told.value);
   return isSinceTold || (hop.dead && over.ready.value < hop.told.value);
}

} // namespace

/// What settings make of it is left out.
KernelState::HopState
KernelState::linkedState(NextHop const& hop, Family family) const {
   Link const* const over = link(hop.device);
   if (hop.unaddressed) {
      return {.dead = true, .linkdown = over && !over->hasCarrier()};
   }
   if (!over || over->told.value <= hop.told.value) {
      return {.dead = hop.dead, .linkdown = hop.linkdown};
   }
   return {.dead = isDead(hop, *over, family), .linkdown = !over->hasCarrier()};
}

KernelState::HopState
KernelState::hopState(NextHop const& hop, Family family) const {
   auto state = linkedState(hop, family);
   Link const* const over = link(hop.device);
   state.dead |= state.linkdown && over && ignoresLinkdown(*over, family);
   return state;
}

/// Its link may say later, in a message like the one before, that it is not so any more.
void
KernelState::markedBy(NextHop const& hop) {
   if (hop.dead || hop.linkdown) {
      markedDevices_.insert(hop.device);
   }
}

/// One that is left out for want of carrier is marked as a dead one too, which ends with the setting.
void
KernelState::markIsOwn(NextHop& hop, Family family) const {
   Link const* const over = link(hop.device);
   hop.dead &= !(hop.linkdown && over && over->isUp() && ignoresLinkdown(*over, family));
}

bool
KernelState::isSameState(Route const& one, Route const& other, Family family) const {
   return std::equal(
         one.hops.begin(), one.hops.end(), other.hops.begin(), other.hops.end(),
         [&](auto const& a, auto const& b) { return linkedState(a, family) == linkedState(b, family); });
}

bool
KernelState::ignoresLinkdown(Link const& link, Family family) const {
   return family == Family::v4 ? ignoreLinkdown_ || link.ignoreLinkdown : link.ignoreLinkdownV6;
}

void
KernelState::ignoreLinkdownIs(bool ignore) {
   if (std::exchange(ignoreLinkdown_, ignore) == ignore) {
      return;
   }
   for (auto const& [index, link] : links_) {
      if (!link.ignoreLinkdown) {
         changes_.links.insert(index);
      }
   }
}

/// What the link says of its next hops is as old as before.
void
KernelState::ignoreLinkdownIs(int device, Family family, bool ignore) {
   auto const found = links_.find(device);
   if (found == links_.end()) {
      return;
   }
   Link& link = found->second;
   bool& own = family == Family::v4 ? link.ignoreLinkdown : link.ignoreLinkdownV6;
   if (std::exchange(own, ignore) != ignore) {
      changes_.links.insert(device);
   }
}

} // namespace L3TunnelAgent
