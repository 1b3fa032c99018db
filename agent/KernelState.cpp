#include "agent/KernelState.h"

#include "agent/Index.h"

#include <algorithm>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>

namespace L3TunnelAgent {

namespace {

constexpr std::uint32_t localPriority = 0;
constexpr std::uint32_t mainPriority = 32766;
constexpr std::uint32_t defaultPriority = 32767;

Rule
tableRule(std::uint32_t priority, std::uint32_t table) {
   return {.priority = priority, .action = FR_ACT_TO_TBL, .table = table};
}

template <typename Map, typename Key>
auto const*
valueOf(Map const& map, Key const& key) {
   auto const found = map.find(key);
   return found == map.end() ? nullptr : &found->second;
}

/// @return whether the map says something else now.
template <typename Map, typename Key, typename Value>
bool
valueIs(Map& map, Key const& key, Value value) {
   auto const [place, added] = map.try_emplace(key);
   if (!added && place->second == value) {
      return false;
   }
   place->second = std::move(value);
   return true;
}

bool
isOwn(std::map<int, std::set<InterfaceAddress>> const& addresses, IpAddress const& address) {
   return std::any_of(addresses.begin(), addresses.end(), [&](auto const& ofDevice) {
      return std::any_of(ofDevice.second.begin(), ofDevice.second.end(),
                         [&](InterfaceAddress const& own) { return own.address == address; });
   });
}

} // namespace

KernelState::KernelState() {
   rules_[static_cast<std::size_t>(Family::v4)].list = {tableRule(localPriority, RT_TABLE_LOCAL),
                                                        tableRule(mainPriority, RT_TABLE_MAIN),
                                                        tableRule(defaultPriority, RT_TABLE_DEFAULT)};
   rules_[static_cast<std::size_t>(Family::v6)].list = {tableRule(localPriority, RT_TABLE_LOCAL),
                                                        tableRule(mainPriority, RT_TABLE_MAIN)};
}

Link const*
KernelState::link(int index) const {
   return valueOf(links_, index);
}

Neighbour const*
KernelState::neighbour(NeighbourKey const& key) const {
   return valueOf(neighbours_, key);
}

NextHopObject const*
KernelState::nextHop(std::uint32_t id) const {
   return valueOf(nextHops_, id);
}

PortVlans const*
KernelState::portVlans(int device) const {
   return valueOf(portVlans_, device);
}

RouteTable const*
KernelState::table(Family family, std::uint32_t id) const {
   return valueOf(tables_, std::pair(family, id));
}

RouteTable::Routes const*
KernelState::routes(RouteKey const& key) const {
   auto const* const found = table(key.prefix.address.family, key.table);
   return found ? found->find(key.prefix) : nullptr;
}

std::optional<int>
KernelState::bridgePort(BridgeKey const& key) const {
   auto const* const found = valueOf(bridgeEntries_, key);
   return found ? std::optional(*found) : std::nullopt;
}

std::string
KernelState::linkName(int index) const {
   Link const* const found = link(index);
   return found ? found->name : "#" + std::to_string(index);
}

void
KernelState::linkIs(int index, Link link) {
   link.told.value = ++messages_;
   bool const isUp = link.isUp();
   bool const hasCarrier = link.hasCarrier();
   Link const* const before = this->link(index);
   bool const isLost = before && ((before->isUp() && !isUp) || (before->hasCarrier() && !hasCarrier));
   bool const isBack = before && !before->isUp() && isUp;
   link.off = !isUp ? link.told : before ? before->off : MessageNumber();
   link.ready = isUp && hasCarrier ? link.told : before ? before->ready : MessageNumber();
   tunnelEndChanged(tunnelEnd(before), tunnelEnd(&link));
   if (!valueIs(links_, index, link)) {
      // It speaks of its hops once more, but for those that may be dead for want of an address.
      bool const hasAddress = !addressesDumped_ || addresses_.count(index) != 0;
      if (hasAddress && markedDevices_.erase(index) != 0) {
         links_.at(index) = std::move(link);
         changes_.links.insert(index);
      }
      return;
   }
   markedDevices_.erase(index);
   changes_.links.insert(index);
   doubts_ += isLost ? 1 : 0;
   if (!isUp || !hasCarrier) {
      hopsGoWithDevice(index);
   }
   if (!isUp) {
      routesGoDown(index);
   }
   if (isBack) { // which makes up for a missing address too
      hopsAre(index, false);
   }
}

void
KernelState::linkDel(int index) {
   tunnelEndChanged(tunnelEnd(link(index)), {});
   if (links_.erase(index) == 0) {
      return;
   }
   changes_.links.insert(index);
   ++doubts_;
   hopsGoWithDevice(index);
   routesGoAway(index);
   for (auto const& address : indexed(addresses_, index)) {
      addressDel(index, address);
   }
   entriesGoAway(index);
}

std::optional<KernelState::TunnelEnd>
KernelState::tunnelEnd(Link const* link) {
   return link && link->kind == LinkKind::vxlan ? std::optional(TunnelEnd(link->source, link->port))
                                                : std::nullopt;
}

void
KernelState::tunnelEndChanged(std::optional<TunnelEnd> const& before, std::optional<TunnelEnd> const& now) {
   if (before == now) {
      return;
   }
   if (now) {
      ++tunnelEnds_[*now];
   }
   if (before && --tunnelEnds_.at(*before) == 0) {
      tunnelEnds_.erase(*before);
   }
   for (auto const family : {Family::v4, Family::v6}) {
      auto const& all = rules(family);
      if (std::any_of(all.begin(), all.end(), [](Rule const& rule) { return rule.source || rule.port; })) {
         changes_.rules.insert(family);
      }
   }
}

OuterHeader
KernelState::outerHeader(Family family) const {
   std::optional<OuterHeader> common;
   for (auto const& [end, devices] : tunnelEnds_) {
      auto const& [source, port] = end;
      if (source && source->family != family) {
         continue;
      }
      // For IPv6 the kernel may choose one and look again.
      OuterHeader one{.source = source, .port = port != 0 ? std::optional(port) : std::nullopt};
      if (!source && family == Family::v4) {
         one.source = IpAddress::fromV4(0);
      }
      if (!common) {
         common = one;
      }
      if (common->source != one.source) {
         common->source.reset();
      }
      if (common->port != one.port) {
         common->port.reset();
      }
   }
   return common.value_or(OuterHeader{});
}

void
KernelState::neighbourIs(NeighbourKey const& key, Neighbour const& neighbour) {
   if (valueIs(neighbours_, key, neighbour)) {
      changes_.neighbours.insert(key);
   }
}

void
KernelState::neighbourDel(NeighbourKey const& key) {
   if (neighbours_.erase(key) != 0) {
      changes_.neighbours.insert(key);
   }
}

void
KernelState::vxlanEntryIs(VxlanKey const& key, VxlanEntry const& entry) {
   auto const* const old = valueOf(vxlanEntries_, key);
   if (old && *old == entry) {
      return;
   }
   if (old && old->nextHopId) {
      indexDel(entriesOfObject_, *old->nextHopId, key);
   }
   if (entry.nextHopId) {
      entriesOfObject_[*entry.nextHopId].insert(key);
   }
   vxlanEntries_[key] = entry;
   changes_.vxlanEntries.insert(key);
}

void
KernelState::vxlanEntryDel(VxlanKey const& key) {
   auto const found = vxlanEntries_.find(key);
   if (found == vxlanEntries_.end()) {
      return;
   }
   if (found->second.nextHopId) {
      indexDel(entriesOfObject_, *found->second.nextHopId, key);
   }
   changes_.vxlanEntries.insert(key);
   vxlanEntries_.erase(found);
}

void
KernelState::addressIs(int device, InterfaceAddress const& address, bool dumped) {
   addressesDumped_ |= dumped;
   bool const isFirst = addresses_.count(device) == 0;
   addresses_[device].insert(address);
   Link const* const over = link(device);
   if (!dumped && isFirst && over && over->isUp()) {
      hopsAre(device, false);
   }
}

void
KernelState::addressDel(int device, InterfaceAddress const& address) {
   bool const wasThere = addresses_.count(device) != 0;
   indexDel(addresses_, device, address);
   if (!addressesDumped_ || !wasThere) {
      return;
   }
   if (routesOfSource_.count(address.address) && !isOwn(addresses_, address.address)) {
      ++doubts_;
      routesGoWithSource(address.address);
   }
   if (!addresses_.count(device)) {
      ++doubts_;
      routesGoWithAddresses(device);
   }
}

void
KernelState::bridgeEntryIs(BridgeKey const& key, int port) {
   if (bridgeEntries_.portIs(key, port)) {
      changes_.bridgeEntries.insert(key);
   }
}

void
KernelState::bridgeEntryDel(BridgeKey const& key) {
   if (bridgeEntries_.del(key)) {
      changes_.bridgeEntries.insert(key);
   }
}

void
KernelState::portVlansAre(int device, PortVlans const& vlans) {
   if (valueIs(portVlans_, device, vlans)) {
      changes_.portVlans.insert(device);
   }
}

void
KernelState::portVlansDel(int device) {
   if (portVlans_.erase(device) != 0) {
      changes_.portVlans.insert(device);
   }
}

void
KernelState::ruleIs(Family family, Rule const& rule, bool dumped) {
   auto& rules = rules_[static_cast<std::size_t>(family)];
   if (dumped && !std::exchange(rules.dumped, true)) {
      if (std::exchange(rules.list, {rule}) != std::vector{rule}) {
         changes_.rules.insert(family);
      }
      return;
   }
   auto const first =
         std::lower_bound(rules.list.begin(), rules.list.end(), rule.priority,
                          [](Rule const& r, std::uint32_t priority) { return r.priority < priority; });
   auto const behind =
         std::upper_bound(first, rules.list.end(), rule.priority,
                          [](std::uint32_t priority, Rule const& r) { return priority < r.priority; });
   if (std::find(first, behind, rule) == behind) {
      rules.list.insert(behind, rule);
      changes_.rules.insert(family);
   }
}

void
KernelState::rulesAreDumped(Family family) {
   auto& rules = rules_[static_cast<std::size_t>(family)];
   if (!std::exchange(rules.dumped, true)) {
      rules.list.clear();
      changes_.rules.insert(family);
   }
}

void
KernelState::ruleDel(Family family, Rule const& rule) {
   if (std::erase(rules_[static_cast<std::size_t>(family)].list, rule) != 0) {
      changes_.rules.insert(family);
   }
}

} // namespace L3TunnelAgent
