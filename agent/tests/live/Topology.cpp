#include "agent/tests/live/Topology.h"

#include <fmt/format.h>

namespace L3TunnelAgent::Live {

namespace {

constexpr int tunnelNetwork = 10010;

std::string
leafAddress(int leaf, int spine) {
   return fmt::format("10.{}.{}.1", leaf, spine);
}

std::string
nameOfLeaf(int leaf) {
   return fmt::format("leaf{}", leaf);
}

std::string
nameOfSpine(int spine) {
   return fmt::format("spine{}", spine);
}

constexpr int
vlanOf(int spine) {
   return 100 + spine;
}

/// Routes that have lost their next hops must find new groups, not the old ones that lack members; hence
/// "keep".
char const* const zebraText = "zebra nexthop-group keep 1\n";

std::string
bgpText(int system, int routerId, std::string const& neighbours, std::string const& unicast,
        std::string const& evpn) {
   return fmt::format(R"(
router bgp {}
 bgp router-id 10.255.0.{}
 no bgp ebgp-requires-policy
 no bgp default ipv4-unicast
 bgp bestpath as-path multipath-relax
 timers bgp 1 9
 neighbor F peer-group
 neighbor F remote-as external
 neighbor F advertisement-interval 0
 neighbor F timers connect 1
{} address-family ipv4 unicast
  neighbor F activate
  maximum-paths 64
{} exit-address-family
 address-family l2vpn evpn
  neighbor F activate
{} exit-address-family
)",
                      system, routerId, neighbours, unicast, evpn);
}

std::string
neighbourText(Uplink kind, std::string const& address, std::string const& device) {
   return fmt::format(" neighbor {} peer-group F\n",
                      kind == Uplink::unnumbered ? device + " interface" : address);
}

} // namespace

Topology::Topology(std::filesystem::path folder, std::vector<Uplink> uplinks)
    : folder_(std::move(folder)), uplinks_(std::move(uplinks)) {
   for (int spine = 1; spine <= static_cast<int>(uplinks_.size()); ++spine) {
      auto& router = spines_[spine] = std::make_unique<Router>(nameOfSpine(spine), folder_);
      router->configurationIs("zebra", zebraText);
      router->configurationIs("bgpd", bgpOfSpine(spine));
      router->start("zebra");
      router->start("bgpd");
   }
}

void
Topology::addLeaf(int leaf) {
   auto& router = leaves_[leaf] = std::make_unique<Router>(nameOfLeaf(leaf), folder_);
   router->space().sysctl("net.ipv4.conf.all.ignore_routes_with_linkdown", "1");
   router->space().ip(fmt::format("addr add {}/32 dev lo", tunnelEnd(leaf)));
   for (auto const& [spine, unused] : spines_) {
      linkUp(leaf, spine);
   }
   tunnelDeviceUp(leaf);
   router->configurationIs("zebra", zebraText);
   router->configurationIs("bgpd", bgpOfLeaf(leaf));
   router->start("zebra");
   router->start("bgpd");
}

std::string
Topology::tunnelEnd(int leaf) {
   return fmt::format("10.255.1.{}", leaf);
}

std::string
Topology::portTo(int spine) {
   return fmt::format("swp{}", spine);
}

std::string
Topology::portOf(int leaf) {
   return fmt::format("down{}", leaf);
}

std::string
Topology::deviceTo(int spine) const {
   switch (uplink(leafUnderTest, spine)) {
   case Uplink::bridged:
      return fmt::format("brup{}", spine);
   case Uplink::tagged:
      return fmt::format("{}.{}", portTo(spine), vlanOf(spine));
   case Uplink::numbered:
   case Uplink::unnumbered:
      break;
   }
   return portTo(spine);
}

std::string
Topology::spineAddress(int leaf, int spine) {
   return fmt::format("10.{}.{}.0", leaf, spine);
}

std::string
Topology::endedDaemons() {
   std::string result;
   for (auto const* routers : {&spines_, &leaves_}) {
      for (auto const& [unused, router] : *routers) {
         result += router->endedDaemons();
      }
   }
   return result;
}

Uplink
Topology::uplink(int leaf, int spine) const {
   return leaf == leafUnderTest ? uplinks_.at(static_cast<std::size_t>(spine) - 1) : Uplink::numbered;
}

void
Topology::linkUp(int leaf, int spine) {
   auto const& above = spines_.at(spine)->space();
   auto const& below = leaves_.at(leaf)->space();
   auto const kind = uplink(leaf, spine);
   auto const port = portTo(spine);
   auto const device = leaf == leafUnderTest ? deviceTo(spine) : port;
   auto peer = portOf(leaf);
   below.ip(fmt::format("link add {} type veth peer name {} netns {}", port, peer, above.name()));
   if (kind == Uplink::bridged) {
      below.ip(
            fmt::format("link add {0} type bridge forward_delay 0\nlink set {1} master {0}", device, port));
   } else if (kind == Uplink::tagged) {
      auto const tag = vlanOf(spine);
      below.ip(fmt::format("link add {} link {} type vlan id {}", device, port, tag));
      above.ip(fmt::format("link set {0} up\nlink add {0}.{1} link {0} type vlan id {1}", peer, tag));
      peer += fmt::format(".{}", tag);
   }
   if (kind != Uplink::unnumbered) {
      below.ip(fmt::format("addr add {}/31 dev {}", leafAddress(leaf, spine), device));
      above.ip(fmt::format("addr add {}/31 dev {}", spineAddress(leaf, spine), peer));
   }
   below.ip(fmt::format("link set {} up\nlink set {} up", port, device));
   above.ip(fmt::format("link set {} up", peer));
}

void
Topology::tunnelDeviceUp(int leaf) {
   leaves_.at(leaf)->space().ip(fmt::format(R"(link add br0 type bridge forward_delay 0
link add vx{0} type vxlan id {0} local {1} dstport 4789 nolearning
link set vx{0} master br0
link add host0 type veth peer name host1
link set host0 master br0
link set host0 up
link set host1 up
link set vx{0} up
link set br0 up)",
                                            tunnelNetwork, tunnelEnd(leaf)));
}

std::string
Topology::bgpOfLeaf(int leaf) const {
   std::string neighbours;
   for (auto const& [spine, unused] : spines_) {
      neighbours += neighbourText(uplink(leaf, spine), spineAddress(leaf, spine), portTo(spine));
   }
   return bgpText(65100 + leaf, leaf, neighbours, fmt::format("  network {}/32\n", tunnelEnd(leaf)),
                  "  advertise-all-vni\n");
}

std::string
Topology::bgpOfSpine(int spine) const {
   std::string neighbours;
   for (int leaf = 1; leaf <= mostLeaves; ++leaf) {
      neighbours += neighbourText(uplink(leaf, spine), leafAddress(leaf, spine), portOf(leaf));
   }
   return bgpText(65000, 100 + spine, neighbours, {}, {});
}

} // namespace L3TunnelAgent::Live
