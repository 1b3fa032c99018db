#include "agent/commands/Subject.h"
#include "agent/views/Lookup.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

constexpr std::size_t mostFlows = 1000000;
constexpr std::size_t mostFlowsRunning = 10000; // of a running agent, which does nothing else meanwhile

struct LookupOptions {
   Source source;
   std::optional<std::string> destination;
   std::string flow;
   std::size_t spread{};
};

ModelChip::Flow
flowOf(LookupOptions const& options, IpAddress const& destination) {
   auto flow = tunnelFlow(destination);
   try {
      if (!options.flow.empty()) {
         flowIs(flow, options.flow);
      }
   } catch (std::invalid_argument const& error) {
      throw UsageError(fmt::format("--flow {}: {}", printable(options.flow), error.what()));
   }
   return flow;
}

Answer
run(LookupOptions options, Context& context) {
   positionalsAre(context, options.source, &options.destination);
   if (context.running && options.spread > mostFlowsRunning) {
      throw UsageError(
            fmt::format("--spread {}: is 1 to {} of the running agent", options.spread, mostFlowsRunning));
   }
   auto const destination = destinationOf(*options.destination);
   auto const flow = flowOf(options, destination);
   Subject const subject(context, options.source);
   auto const& agent = subject.agent();
   auto const result = lookup(agent, destination, flow);
   Answer answer{.text = text(result, agent, context.paint),
                 .exitCode = result.isForwarded() ? exitFine : exitNo};
   if (options.spread && result.isForwarded()) {
      answer.text += "\n" + spreadText(agent, destination, flow, options.spread, context.paint);
   }
   return answer;
}

} // namespace

Command
lookupCommand(CLI::App& app) {
   auto options = std::make_shared<LookupOptions>();
   auto* const command = app.add_subcommand("lookup", "forward a packet as the chip would, row by row");
   recordingIs(*command, options->source);
   wordIs(*command, "DESTINATION", options->destination, "address of the tunnel's far end");
   untilIs(*command, options->source);
   runningIs(*command, options->source);
   command
         ->add_option(
               "--flow", options->flow,
               "the packet's flow, src=ADDRESS,dst=ADDRESS,proto=NUMBER,sport=NUMBER,dport=NUMBER, or some "
               "of these (default: udp from port 49152 to port 4789 of DESTINATION)")
         ->type_name("FLOW");
   command
         ->add_option("--spread", options->spread,
                      fmt::format("also count over which members that many flows spread, 1 to {}", mostFlows))
         ->check(CLI::Range(std::size_t(1), mostFlows).description(""))
         ->type_name("FLOWS");
   return {[options](Context& context) { return run(*options, context); },
           std::shared_ptr<Asked>(options, &options->source)};
}

} // namespace L3TunnelAgent
