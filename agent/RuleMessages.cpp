#include "agent/Attributes.h"
#include "agent/Messages.h"

#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

// Newer than some headers: the bits of a port that count, which are told with every single port.
constexpr AttributeName portMask{29, "FRA_DPORT_MASK"};
constexpr std::uint16_t wholePort = 0xffff;

/// What an attribute has to do with the choice of packets. Whatever is not known to leave it alone may ask
/// for something, so that a rule of a newer kernel is not taken for one that applies to everything.
enum class Part : std::uint8_t { none, selector, unknownSelector };

Part
partOf(std::uint16_t type) {
   switch (type) {
   case FRA_PRIORITY:
   case FRA_TABLE:
   case FRA_GOTO:
   case FRA_FLOW:
   case FRA_SUPPRESS_PREFIXLEN:
   case FRA_PAD:
   case FRA_PROTOCOL:
      return Part::none;
   case FRA_DST:
   case FRA_SRC:
   case FRA_IIFNAME:
   case FRA_OIFNAME:
   case FRA_L3MDEV:
   case FRA_FWMARK:
   case FRA_FWMASK:
   case FRA_TUN_ID:
   case FRA_UID_RANGE:
   case FRA_IP_PROTO:
   case FRA_DPORT_RANGE:
   case portMask.type:
      return Part::selector;
   default:
      return Part::unknownSelector;
   }
}

std::optional<Prefix>
readPrefix(AttributeName name, std::uint8_t length, IpAddress::Family family, Attributes const& attributes) {
   auto const address = attributes.address(name);
   if (!address) {
      return std::nullopt;
   }
   if (address->family != family || length > address->bits()) {
      attributes.fail(name.text, family == IpAddress::Family::v4 ? "is no IPv4 prefix" : "is no IPv6 prefix");
   }
   return Prefix::of(*address, length);
}

template <typename Range>
std::optional<Range>
readRange(AttributeName name, Attributes const& attributes) {
   auto const bytes = attributes.bytes(name);
   if (!bytes) {
      return std::nullopt;
   }
   if (bytes->size() != sizeof(Range)) {
      attributes.fail(name.text,
                      std::to_string(bytes->size()) + " bytes instead of " + std::to_string(sizeof(Range)));
   }
   return read<Range>(*bytes);
}

/// Whether a rule asks for what no packet of a tunnel is: those have no mark, no owner and no device but the
/// machine's own.
bool
isForeign(Attributes const& attributes) {
   auto const mark = attributes.u32(L3TUNNEL_ATTRIBUTE(FRA_FWMARK)).value_or(0);
   auto const mask = attributes.u32(L3TUNNEL_ATTRIBUTE(FRA_FWMASK)).value_or(~std::uint32_t{0});
   auto const owners = readRange<fib_rule_uid_range>(L3TUNNEL_ATTRIBUTE(FRA_UID_RANGE), attributes);
   return (mark & mask) != 0 || (owners && owners->start != 0) ||
          attributes.text(L3TUNNEL_ATTRIBUTE(FRA_IIFNAME)).value_or("lo") != "lo" ||
          attributes.has(FRA_OIFNAME) || attributes.has(FRA_TUN_ID) ||
          attributes.u8(L3TUNNEL_ATTRIBUTE(FRA_L3MDEV)).value_or(0) != 0 ||
          attributes.u8(L3TUNNEL_ATTRIBUTE(FRA_IP_PROTO)).value_or(IPPROTO_UDP) != IPPROTO_UDP;
}

void
readSelectors(fib_rule_hdr const& fixed, Attributes const& attributes, Rule& rule) {
   if (auto const ports = readRange<fib_rule_port_range>(L3TUNNEL_ATTRIBUTE(FRA_DPORT_RANGE), attributes)) {
      rule.port = PortRange{.first = ports->start, .last = ports->end};
   }
   rule.foreign = isForeign(attributes);
   rule.inverted = (fixed.flags & FIB_RULE_INVERT) != 0;
   rule.selective = fixed.tos != 0 || attributes.u16(portMask).value_or(wholePort) != wholePort;
   if (fixed.tos != 0) {
      rule.selectors += std::to_string(fixed.tos) + " ";
   }
   attributes.each([&](std::uint16_t type, std::span<std::byte const> value) {
      auto const part = partOf(type);
      rule.selective |= part == Part::unknownSelector;
      if (part != Part::none) {
         rule.selectors += std::to_string(type) + ":" + std::to_string(value.size()) + ":";
         rule.selectors.append(reinterpret_cast<char const*>(value.data()), value.size());
      }
   });
}

} // namespace

void
applyRule(KernelState& state, nlmsghdr const* header) {
   std::string const message = messageName(header->nlmsg_type);
   auto const fixed = fixedPart<fib_rule_hdr>(message, header);
   if (fixed.family != AF_INET && fixed.family != AF_INET6) {
      return;
   }
   auto const family = fixed.family == AF_INET ? IpAddress::Family::v4 : IpAddress::Family::v6;
   Attributes const attributes(message, header, sizeof fixed);
   Rule rule{.priority = attributes.u32(L3TUNNEL_ATTRIBUTE(FRA_PRIORITY)).value_or(0),
             .action = fixed.action,
             .table = attributes.u32(L3TUNNEL_ATTRIBUTE(FRA_TABLE)).value_or(fixed.table),
             .destination = readPrefix(L3TUNNEL_ATTRIBUTE(FRA_DST), fixed.dst_len, family, attributes),
             .suppressedLength = attributes.u32(L3TUNNEL_ATTRIBUTE(FRA_SUPPRESS_PREFIXLEN)),
             .target = attributes.u32(L3TUNNEL_ATTRIBUTE(FRA_GOTO)),
             .source = readPrefix(L3TUNNEL_ATTRIBUTE(FRA_SRC), fixed.src_len, family, attributes)};
   if (rule.suppressedLength == ~std::uint32_t{0}) {
      rule.suppressedLength.reset();
   }
   readSelectors(fixed, attributes, rule);
   if (header->nlmsg_type == RTM_DELRULE) {
      state.ruleDel(family, rule);
   } else {
      state.ruleIs(family, rule, (header->nlmsg_flags & NLM_F_MULTI) != 0);
   }
}

} // namespace L3TunnelAgent
