#pragma once

#include "agent/KernelState.h"

#include <libmnl/libmnl.h>
#include <string>

// One function per object of the kernel: each applies one message, an addition or change (RTM_NEW...) or a
// removal (RTM_DEL...), to the state. Each throws MessageError as applyDatagram says.
namespace L3TunnelAgent {

/// @return the message's name, "RTM_NEWROUTE", for those that are applied; "message N" for others.
std::string messageName(std::uint16_t type);

void applyLink(KernelState& state, nlmsghdr const* header);
void applyAddress(KernelState& state, nlmsghdr const* header);
void applyNeighbour(KernelState& state, nlmsghdr const* header);
void applyNextHop(KernelState& state, nlmsghdr const* header);
void applyRoute(KernelState& state, nlmsghdr const* header);
void applyRule(KernelState& state, nlmsghdr const* header);
void applySettings(KernelState& state, nlmsghdr const* header);

} // namespace L3TunnelAgent
