#include "agent/commands/Command.h"
#include "agent/views/Change.h"
#include "agent/views/TextTable.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

struct MarkOptions {
   Asked asked;
   std::optional<std::string> name;
   bool isDeleted{};
};

std::string
marksText(RunningAgent const& running, Paint const& paint) {
   TextTable table("MARKS", {"name", "time", "destinations", "rows written since"});
   for (auto const& mark : running.marks.marks()) {
      table.rowIs({mark.name, timeText(mark.time), std::to_string(mark.picture.destinations.size()),
                   std::to_string(running.agent.rows().count() - mark.picture.rowsWritten)});
   }
   return table.text(paint);
}

Answer
run(MarkOptions const& options, Context const& context) {
   auto& marks = context.running->marks;
   if (!options.name) {
      if (options.isDeleted) {
         throw UsageError("--delete: NAME is required");
      }
      return {.text = marksText(*context.running, context.paint)};
   }
   if (options.isDeleted) {
      return marks.markDel(*options.name)
                   ? Answer{}
                   : Answer{.text = fmt::format("There is no mark {}.\n", printable(*options.name)),
                            .exitCode = exitNo};
   }
   try {
      marks.markIs(*options.name);
   } catch (std::invalid_argument const& error) {
      throw UsageError(error.what());
   }
   return {};
}

} // namespace

Command
markCommand(CLI::App& app) {
   auto options = std::make_shared<MarkOptions>();
   auto* const command = app.add_subcommand(
         "mark", "mark this moment of the running agent for diff; without NAME, show the marks");
   wordIs(*command, "NAME", options->name,
          fmt::format("of the mark, up to {} characters; one of that name moves here", Marks::longestName));
   command->add_flag("--delete", options->isDeleted, "take the mark away");
   runningOnly(*command, options->asked);
   return {[options](Context& context) { return run(*options, context); },
           std::shared_ptr<Asked>(options, &options->asked)};
}

} // namespace L3TunnelAgent
