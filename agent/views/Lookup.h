#pragma once

#include "agent/Agent.h"
#include "agent/views/Paint.h"
#include "chip/model/Forwarding.h"

#include <optional>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// The flow of a tunnel's packets to a destination: UDP to port 4789 from port 49152 of no address in
/// particular.
ModelChip::Flow tunnelFlow(IpAddress const& destination);

/// Changes what `text` says of the flow: "src=ADDRESS,dst=ADDRESS,proto=NUMBER,sport=NUMBER,dport=NUMBER",
/// any of these in any order, protocols "tcp" and "udp" also by name.
/// @throws std::invalid_argument which names the part that cannot be read.
void flowIs(ModelChip::Flow& flow, std::string const& text);

/// "udp 0.0.0.0:49152 to 10.255.1.2:4789".
std::string text(ModelChip::Flow const& flow);

/// How the chip forwards a packet to a destination.
struct Lookup {
   IpAddress destination;
   ModelChip::Flow flow;
   std::optional<ModelChip::FlowRows> rows; ///< nothing when the destination has no group in the chip
   std::string problem;                     ///< why the packet is not forwarded; empty when it is
   std::vector<std::uint8_t> header;        ///< Ethernet, that the chip writes; empty when it writes none

   bool isForwarded() const { return problem.empty(); }
};

Lookup lookup(Agent const& agent, IpAddress const& destination, ModelChip::Flow const& flow);

/// For a person, row by row.
std::string text(Lookup const& lookup, Agent const& agent, Paint const& paint);

/// Over which members `flows` flows to the destination spread, that differ from `flow` by successive source
/// ports and, beyond those, source addresses.
std::string spreadText(Agent const& agent, IpAddress const& destination, ModelChip::Flow flow,
                       std::size_t flows, Paint const& paint);

} // namespace L3TunnelAgent
