#pragma once

#include "agent/Agent.h"
#include "agent/control/ControlService.h"
#include "agent/live/Counters.h"

#include <string>

namespace L3TunnelAgent {

/// What metrics are made from; a null one has none.
struct MetricsSource {
   Agent const* agent{};
   Counters const* live{};
   ControlService::Counters const* control{};
};

/// The agent in numbers, in Prometheus' text format 0.0.4.
std::string metricsText(MetricsSource const& source);

} // namespace L3TunnelAgent
