#include "agent/commands/Command.h"
#include "agent/commands/Player.h"
#include "agent/views/Sections.h"
#include "agent/views/Summary.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

struct ProgramOptions {
   Source source;
   bool json{};
};

Json
programJson(std::string const& recording, Agent const& agent) {
   Users const users(agent.fabric());
   View const view{agent, users};
   auto document = objectOf(5);
   document["recording"] = recording;
   document["chip"] = "model";
   document["summary"] = json(summaryOf(agent));
   document["destinations"] = destinationsSection().json(view);
   document["interfaces"] = interfacesSection().json(view);
   return document;
}

Answer
run(ProgramOptions const& options, Context& context) {
   if (!options.source.recording) {
      throw UsageError("RECORDING is required");
   }
   auto const player = played(context, options.source);
   auto const& agent = player->agent();
   return {.text = options.json ? text(programJson(*options.source.recording, agent))
                                : text(summaryOf(agent), context.paint)};
}

} // namespace

Command
programCommand(CLI::App& app) {
   auto options = std::make_shared<ProgramOptions>();
   auto* const command = app.add_subcommand("program", "program the chip from a recording and sum up");
   recordingIs(*command, options->source);
   untilIs(*command, options->source);
   command->add_flag("--json", options->json, "print JSON, with all destinations and interfaces");
   return {[options](Context& context) { return run(*options, context); }};
}

} // namespace L3TunnelAgent
