#pragma once

#include "agent/commands/Command.h"
#include "agent/control/Answer.h"
#include "agent/control/Request.h"

#include <functional>
#include <string>

namespace L3TunnelAgent {

/// Where an answer goes.
struct AnswerSink {
   std::function<void(std::string const&)> output;
   std::function<void(std::string const&)> complaint;
};

/// Asks the running agent and waits for the end of its answer. All of it is read before any goes on, however
/// slow that is, since the agent does not wait for long; but if it has no end, each part at once.
/// @param asked the control socket, the default one where its path is empty.
/// @return the exit code that the agent says.
/// @throws std::runtime_error when no agent answers, or it goes away before the end.
ExitCode ask(Asked const& asked, Request const& request, AnswerSink const& sink);

} // namespace L3TunnelAgent
