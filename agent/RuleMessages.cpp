#include "agent/Attributes.h"
#include "agent/Messages.h"

#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

/// Whatever is not known to leave the choice of packets alone counts as a selector, so that a rule of a newer
/// kernel is not taken for one that applies to everything.
bool
selects(std::uint16_t type) {
   switch (type) {
   case FRA_DST: // kept with the rule
   case FRA_PRIORITY:
   case FRA_TABLE:
   case FRA_GOTO:
   case FRA_FLOW:
   case FRA_SUPPRESS_PREFIXLEN:
   case FRA_PAD:
   case FRA_PROTOCOL:
      return false;
   default:
      return true;
   }
}

std::optional<Prefix>
readDestination(fib_rule_hdr const& fixed, IpAddress::Family family, Attributes const& attributes) {
   auto const address = attributes.address(L3TUNNEL_ATTRIBUTE(FRA_DST));
   if (!address) {
      return std::nullopt;
   }
   if (address->family != family || fixed.dst_len > address->bits()) {
      attributes.fail("FRA_DST", family == IpAddress::Family::v4 ? "is no IPv4 prefix" : "is no IPv6 prefix");
   }
   return Prefix::of(*address, fixed.dst_len);
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
             .destination = readDestination(fixed, family, attributes),
             .suppressedLength = attributes.u32(L3TUNNEL_ATTRIBUTE(FRA_SUPPRESS_PREFIXLEN)),
             .selective = fixed.tos != 0 || (fixed.flags & FIB_RULE_INVERT) != 0,
             .target = attributes.u32(L3TUNNEL_ATTRIBUTE(FRA_GOTO))};
   if (rule.suppressedLength == ~std::uint32_t{0}) {
      rule.suppressedLength.reset();
   }
   attributes.each([&](std::uint16_t type, std::span<std::byte const>) { rule.selective |= selects(type); });
   if (header->nlmsg_type == RTM_DELRULE) {
      state.ruleDel(family, rule);
   } else {
      state.ruleIs(family, rule, (header->nlmsg_flags & NLM_F_MULTI) != 0);
   }
}

} // namespace L3TunnelAgent
