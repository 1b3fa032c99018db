#pragma once

#include "agent/Agent.h"
#include "agent/tests/Expected.h"

#include <memory>

namespace L3TunnelAgent {

/// An agent that was told a recorded fabric's state.
inline std::unique_ptr<Agent>
playedAgent(std::string const& fabric, Fabric::Settings settings = {}) {
   auto agent = std::make_unique<Agent>(std::move(settings));
   Recording recording(recordedFile(fabric, "dump.rnl.gz"));
   play(*agent, recording, std::nullopt);
   return agent;
}

} // namespace L3TunnelAgent
