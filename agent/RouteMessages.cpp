#include "agent/Attributes.h"
#include "agent/Messages.h"

#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

constexpr AttributeName multipath = L3TUNNEL_ATTRIBUTE(RTA_MULTIPATH);

/// A gateway of the other family than the route comes as a family and an address.
std::optional<IpAddress>
readGateway(Attributes const& attributes) {
   auto const via = attributes.bytes(L3TUNNEL_ATTRIBUTE(RTA_VIA));
   if (!via) {
      return attributes.address(L3TUNNEL_ATTRIBUTE(RTA_GATEWAY));
   }
   std::size_t const familySize = sizeof(__kernel_sa_family_t);
   auto const address = IpAddress::fromBytes(via->size() < familySize ? *via : via->subspan(familySize));
   if (!address) {
      attributes.fail("RTA_VIA", std::to_string(via->size()) + " bytes hold no family and address");
   }
   return address;
}

NextHop
readHop(unsigned flags, int device, Attributes const& attributes) {
   return {.device = device,
           .gateway = readGateway(attributes),
           .weight = 1,
           .dead = (flags & RTNH_F_DEAD) != 0,
           .linkdown = (flags & RTNH_F_LINKDOWN) != 0,
           .encapsulated = attributes.has(RTA_ENCAP)};
}

std::vector<NextHop>
readMultipath(Attributes const& route, std::string const& context, std::span<std::byte const> rest) {
   std::vector<NextHop> hops;
   while (!rest.empty()) {
      if (rest.size() < sizeof(rtnexthop)) {
         route.fail(multipath.text, std::to_string(rest.size()) + " bytes hold no next hop");
      }
      auto const fixed = read<rtnexthop>(rest);
      if (fixed.rtnh_len < sizeof(rtnexthop) || fixed.rtnh_len > rest.size()) {
         route.fail(multipath.text, "a next hop has length " + std::to_string(fixed.rtnh_len) + " of " +
                                          std::to_string(rest.size()) + " bytes left");
      }
      Attributes const attributes(context,
                                  rest.subspan(sizeof(rtnexthop), fixed.rtnh_len - sizeof(rtnexthop)));
      NextHop hop = readHop(fixed.rtnh_flags, fixed.rtnh_ifindex, attributes);
      hop.weight = fixed.rtnh_hops + 1U;
      hops.push_back(hop);
      rest = rest.subspan(std::min<std::size_t>(RTNH_ALIGN(fixed.rtnh_len), rest.size()));
   }
   return hops;
}

/// Next hops that a route repeats beside its object's number are a courtesy and not always there.
std::vector<NextHop>
readHops(rtmsg const& fixed, Attributes const& attributes, std::string const& message) {
   if (attributes.has(RTA_NH_ID)) {
      return {};
   }
   if (auto const hops = attributes.bytes(multipath)) {
      return readMultipath(attributes, message + ": " + std::string(multipath.text), *hops);
   }
   auto const device = attributes.index(L3TUNNEL_ATTRIBUTE(RTA_OIF));
   if (!device) {
      return {};
   }
   return {readHop(fixed.rtm_flags, *device, attributes)};
}

Prefix
readPrefix(rtmsg const& fixed, Attributes const& attributes) {
   IpAddress any;
   any.family = fixed.rtm_family == AF_INET ? IpAddress::Family::v4 : IpAddress::Family::v6;
   std::string const name = fixed.rtm_family == AF_INET ? "IPv4" : "IPv6";
   if (fixed.rtm_dst_len > any.bits()) {
      attributes.fail("rtm_dst_len", "an " + name + " prefix of length " + std::to_string(fixed.rtm_dst_len));
   }
   auto const address = attributes.address(L3TUNNEL_ATTRIBUTE(RTA_DST));
   if (address && address->family != any.family) {
      attributes.fail("RTA_DST", "an address of the other family in an " + name + " route");
   }
   if (!address && fixed.rtm_dst_len != 0) {
      attributes.fail("RTA_DST", "is missing");
   }
   return Prefix::of(address.value_or(any), fixed.rtm_dst_len);
}

/// An IPv4 route that was added goes before its equals unless the message says otherwise, an IPv6 one behind
/// them whatever it says; a reply to a request for all routes names them in their order.
RoutePlace
placeOf(nlmsghdr const* header, IpAddress::Family family) {
   if (header->nlmsg_flags & NLM_F_MULTI) {
      return RoutePlace::behind;
   }
   if (header->nlmsg_flags & NLM_F_REPLACE) {
      return RoutePlace::instead;
   }
   bool const isFirst = family == IpAddress::Family::v4 && !(header->nlmsg_flags & NLM_F_APPEND);
   return isFirst ? RoutePlace::before : RoutePlace::behind;
}

std::vector<NextHopObject::Member>
readGroup(Attributes const& attributes) {
   auto const bytes = attributes.bytes(L3TUNNEL_ATTRIBUTE(NHA_GROUP)).value_or(std::span<std::byte const>());
   if (bytes.size() % sizeof(nexthop_grp) != 0) {
      attributes.fail("NHA_GROUP", std::to_string(bytes.size()) + " bytes are no whole members");
   }
   std::vector<NextHopObject::Member> group;
   for (std::size_t i = 0; i < bytes.size(); i += sizeof(nexthop_grp)) {
      auto const member = bytes.subspan(i, sizeof(nexthop_grp));
      // Behind the number: the weight less 1, its low byte first; kernels of old have a zero for the high
      // one.
      auto const low = std::to_integer<unsigned>(member[4]);
      auto const high = std::to_integer<unsigned>(member[5]);
      group.push_back({.id = read<std::uint32_t>(member), .weight = (high << 8 | low) + 1});
   }
   return group;
}

} // namespace

void
applyNextHop(KernelState& state, nlmsghdr const* header) {
   std::string const message = messageName(header->nlmsg_type);
   auto const fixed = fixedPart<nhmsg>(message, header);
   Attributes const attributes(message, header, sizeof fixed);
   std::uint32_t const id = attributes.requiredU32(L3TUNNEL_ATTRIBUTE(NHA_ID));
   if (header->nlmsg_type == RTM_DELNEXTHOP) {
      state.nextHopDel(id);
      return;
   }
   NextHopObject object;
   object.group = readGroup(attributes);
   object.hop = {.device = attributes.index(L3TUNNEL_ATTRIBUTE(NHA_OIF)).value_or(0),
                 .gateway = attributes.address(L3TUNNEL_ATTRIBUTE(NHA_GATEWAY)),
                 .weight = 1,
                 .dead = (fixed.nh_flags & RTNH_F_DEAD) != 0,
                 .linkdown = (fixed.nh_flags & RTNH_F_LINKDOWN) != 0,
                 .encapsulated = attributes.has(NHA_ENCAP)};
   object.blackhole = attributes.has(NHA_BLACKHOLE);
   object.fdb = attributes.has(NHA_FDB);
   state.nextHopIs(id, std::move(object));
}

void
applyRoute(KernelState& state, nlmsghdr const* header) {
   std::string const message = messageName(header->nlmsg_type);
   auto const fixed = fixedPart<rtmsg>(message, header);
   bool const isIp = fixed.rtm_family == AF_INET || fixed.rtm_family == AF_INET6;
   if (!isIp || (fixed.rtm_flags & RTM_F_CLONED)) {
      return;
   }
   Attributes const attributes(message, header, sizeof fixed);
   RouteKey const key{.table = attributes.u32(L3TUNNEL_ATTRIBUTE(RTA_TABLE)).value_or(fixed.rtm_table),
                      .prefix = readPrefix(fixed, attributes)};
   Route route{.type = fixed.rtm_type,
               .tos = fixed.rtm_tos,
               .scope = fixed.rtm_scope,
               .metric = attributes.u32(L3TUNNEL_ATTRIBUTE(RTA_PRIORITY)).value_or(0),
               .nextHopId = attributes.u32(L3TUNNEL_ATTRIBUTE(RTA_NH_ID)),
               .hops = readHops(fixed, attributes, message),
               .preferredSource = attributes.address(L3TUNNEL_ATTRIBUTE(RTA_PREFSRC)),
               .protocol = fixed.rtm_protocol};
   if (header->nlmsg_type == RTM_DELROUTE) {
      state.routeDel(key, route);
   } else {
      state.routeIs(key, std::move(route), placeOf(header, key.prefix.address.family));
   }
}

} // namespace L3TunnelAgent
