#pragma once

#include "agent/Agent.h"
#include "agent/views/Paint.h"

#include <string>

namespace L3TunnelAgent {

/// The device's name, printable.
std::string deviceText(KernelState const& kernel, int device);

/// The chip's number of a port, and the device behind it: "3 (swp1)".
std::string portText(Agent const& agent, std::uint16_t number);

/// A via in a few words, "br0.300@swp4 weight 3": routed device, and port where that is another one. One that
/// is not programmed is in brackets.
std::string viaText(KernelState const& kernel, ProgrammedVia const& via);

/// All vias of the newest set, or why there is none; beside a set that failed also the one that is kept.
std::string viasText(KernelState const& kernel, ProgrammedDestination const& destination);

/// Why a via is as it is, in one word: "neighbour-unresolved". Empty when there is nothing to say.
std::string reasonWord(ProgrammedVia const& via);

/// Whether its newest set failed and its group points at the set before.
bool keepsOldSet(ProgrammedDestination const& destination);

/// Why there is no route, or why the destination failed: the newest set, or later what it had. Else empty.
std::string reasonText(ProgrammedDestination const& destination);

/// Whether the via is one of those that the destination's set has in the chip, or is to have there.
bool isInTheChip(ViaSet const& set, ProgrammedVia const& via);

/// What the kind of a next hop's destination makes of a packet: "port", "cpu", "nowhere", or the number.
std::string sendsTo(unsigned destinationType);

/// An index, or "-" for the invalid one.
std::string indexText(Asic::Index index);

bool hasFailed(DestinationState state);

Style styleOf(DestinationState state);
Style styleOf(Asic::SwTableBase::EntryState state);

/// The first few addresses, and how many more there are.
std::string addressesText(std::vector<IpAddress> const& addresses, std::size_t most = 3);

} // namespace L3TunnelAgent
