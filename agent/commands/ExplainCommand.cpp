#include "agent/commands/Subject.h"
#include "agent/views/Explanation.h"

#include <CLI/CLI.hpp>

namespace L3TunnelAgent {

namespace {

struct ExplainOptions {
   Source source;
   std::optional<std::string> destination;
};

Answer
run(ExplainOptions options, Context& context) {
   positionalsAre(context, options.source, &options.destination);
   auto const destination = destinationOf(*options.destination);
   Subject const subject(context, options.source);
   Users const users(subject.agent().fabric());
   auto const text = explanation({subject.agent(), users}, destination, context.paint);
   return text ? Answer{.text = *text}
               : Answer{.text = destination.text() + " is no tunnel destination.\n", .exitCode = exitNo};
}

} // namespace

Command
explainCommand(CLI::App& app) {
   auto options = std::make_shared<ExplainOptions>();
   auto* const command = app.add_subcommand("explain", "say why a destination is as it is");
   recordingIs(*command, options->source);
   wordIs(*command, "DESTINATION", options->destination, "address of the tunnel's far end");
   untilIs(*command, options->source);
   runningIs(*command, options->source);
   return {[options](Context& context) { return run(*options, context); },
           std::shared_ptr<Asked>(options, &options->source)};
}

} // namespace L3TunnelAgent
