#include "agent/commands/Subject.h"
#include "agent/views/Audit.h"

#include <CLI/CLI.hpp>

namespace L3TunnelAgent {

namespace {

Answer
run(Source source, Context& context) {
   positionalsAre(context, source);
   Subject const subject(context, source);
   auto const result = audit(subject.agent().fabric());
   return {.text = text(result, context.paint), .exitCode = result.findings.empty() ? exitFine : exitNo};
}

} // namespace

Command
auditCommand(CLI::App& app) {
   auto source = std::make_shared<Source>();
   auto* const command =
         app.add_subcommand("audit", "compare every row of the chip with the software tables");
   recordingIs(*command, *source);
   untilIs(*command, *source);
   runningIs(*command, *source);
   return {[source](Context& context) { return run(*source, context); }, source};
}

} // namespace L3TunnelAgent
