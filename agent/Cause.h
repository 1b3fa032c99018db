#pragma once

#include "agent/Waiting.h"
#include "platform/asic/SwTableBase.h"

#include <string>

namespace L3TunnelAgent {

/// Why the block of ECMP members failed, down to the row, the index or the interface that it lacks; empty
/// when it has not failed.
std::string causeOfBlock(Asic::SwTableBase::EntryHandle const& block);

/// The same of a next hop, and of an ECMP group.
std::string causeOfNextHop(Asic::SwTableBase::EntryHandle const& nextHop);
std::string causeOfGroup(Asic::SwTableBase::EntryHandle const& group);

/// What a block or a group that has failed lacks: a try, where the chip has refused something.
Need::Kind lackOfBlock(Asic::SwTableBase::EntryHandle const& block);
Need::Kind lackOfGroup(Asic::SwTableBase::EntryHandle const& group);

} // namespace L3TunnelAgent
