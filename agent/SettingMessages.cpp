#include "agent/Attributes.h"
#include "agent/Messages.h"

#include <linux/netconf.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

/// One setting of many matters. That of devices made later is not kept, since each of these tells its own.
void
applySettings(KernelState& state, nlmsghdr const* header) {
   std::string const message = messageName(header->nlmsg_type);
   auto const fixed = fixedPart<netconfmsg>(message, header);
   if (fixed.ncm_family != AF_INET && fixed.ncm_family != AF_INET6) {
      return;
   }
   Attributes const attributes(message, header, sizeof fixed);
   auto const device = attributes.index(L3TUNNEL_ATTRIBUTE(NETCONFA_IFINDEX));
   auto const ignore = attributes.u32(L3TUNNEL_ATTRIBUTE(NETCONFA_IGNORE_ROUTES_WITH_LINKDOWN));
   if (!device || !ignore) {
      return;
   }
   auto const family = fixed.ncm_family == AF_INET ? IpAddress::Family::v4 : IpAddress::Family::v6;
   if (*device > 0) {
      state.ignoreLinkdownIs(*device, family, *ignore != 0);
   } else if (*device == NETCONFA_IFINDEX_ALL && family == IpAddress::Family::v4) {
      state.ignoreLinkdownIs(*ignore != 0);
   }
}

} // namespace L3TunnelAgent
