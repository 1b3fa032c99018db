#include "agent/Attributes.h"
#include "agent/Messages.h"

#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

/// Only IPv4 addresses matter: with those of IPv6 the kernel tells of every route that goes.
void
applyAddress(KernelState& state, nlmsghdr const* header) {
   std::string const message = messageName(header->nlmsg_type);
   auto const fixed = fixedPart<ifaddrmsg>(message, header);
   if (fixed.ifa_family != AF_INET) {
      return;
   }
   Attributes const attributes(message, header, sizeof fixed);
   auto const peer = attributes.address(L3TUNNEL_ATTRIBUTE(IFA_ADDRESS));
   auto const own = attributes.address(L3TUNNEL_ATTRIBUTE(IFA_LOCAL));
   auto const address = own ? own : peer;
   if (!address) {
      attributes.fail("IFA_LOCAL", "is missing");
   }
   auto const device = static_cast<int>(fixed.ifa_index);
   InterfaceAddress const key{
         .address = *address, .length = fixed.ifa_prefixlen, .peer = peer.value_or(*address)};
   if (header->nlmsg_type == RTM_DELADDR) {
      state.addressDel(device, key);
   } else {
      state.addressIs(device, key, (header->nlmsg_flags & NLM_F_MULTI) != 0);
   }
}

} // namespace L3TunnelAgent
