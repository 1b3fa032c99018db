#include "agent/commands/Command.h"

#include <CLI/CLI.hpp>

namespace L3TunnelAgent {

Command
metricsCommand(CLI::App& app) {
   auto asked = std::make_shared<Asked>();
   auto* const command =
         app.add_subcommand("metrics", "print the running agent's metrics in Prometheus' text format");
   runningOnly(*command, *asked);
   return {[](Context& context) { return Answer{.text = context.running->metrics()}; }, asked};
}

} // namespace L3TunnelAgent
