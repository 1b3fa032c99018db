#pragma once

#include "agent/control/Answer.h"
#include "agent/control/Request.h"

#include <functional>
#include <string>

namespace L3TunnelAgent {

/// Where an answer goes as it comes.
struct AnswerSink {
   std::function<void(std::string const&)> output;
   std::function<void(std::string const&)> complaint;
};

/// Asks the running agent and waits for the end of its answer.
/// @param control path of its control socket; empty: the default one.
/// @return the exit code that the agent says.
/// @throws std::runtime_error when no agent answers, or it goes away before the end.
ExitCode ask(std::string const& control, Request const& request, AnswerSink const& sink);

} // namespace L3TunnelAgent
