#pragma once

#include "agent/commands/Command.h"
#include "agent/control/Request.h"

namespace L3TunnelAgent {

/// What the running agent says to a request: the same that the command says of a recording. Words that would
/// read a file, or change the process, are refused.
Answer respond(RunningAgent& running, Request const& request);

} // namespace L3TunnelAgent
