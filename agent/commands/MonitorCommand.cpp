#include "agent/commands/Command.h"
#include "agent/views/Change.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

struct MonitorOptions {
   Asked asked;
   bool json{};
};

Answer
run(MonitorOptions const& options, Context const& context) {
   auto const count = context.running->agent.fabric().destinations().size();
   auto const time = timeText(std::chrono::system_clock::now());
   if (options.json) {
      return {.text = lineText(Json{{"time", time}, {"change", "start"}, {"destinations", count}}),
              .following = ChangeForm::json};
   }
   return {.text = time + " " + counted(count, "destination", "destinations") + ", changes follow\n",
           .following = context.paint.isColoured() ? ChangeForm::colouredText : ChangeForm::text};
}

} // namespace

Command
monitorCommand(CLI::App& app) {
   auto options = std::make_shared<MonitorOptions>();
   auto* const command = app.add_subcommand(
         "monitor", "tell of the running agent's changes as they happen, until interrupted");
   command->add_flag("--json", options->json, "print a JSON document on each line");
   runningOnly(*command, options->asked);
   options->asked.isFollowing = true;
   return {[options](Context& context) { return run(*options, context); },
           std::shared_ptr<Asked>(options, &options->asked)};
}

} // namespace L3TunnelAgent
