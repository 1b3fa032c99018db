#include "agent/commands/Player.h"
#include "agent/views/Difference.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

struct DiffOptions {
   Source source;
   std::string from;
   std::optional<std::string> to;
};

Marks::Mark const&
markOf(Marks const& marks, std::string const& option, std::string const& name) {
   if (auto const* mark = marks.mark(name)) {
      return *mark;
   }
   auto text = fmt::format("{} {}: the running agent has no such mark", option, printable(name));
   if (!marks.marks().empty()) {
      text += "; it has";
   }
   for (auto const& each : marks.marks()) {
      text += "\n  " + each.name;
   }
   throw UsageError(text);
}

Answer
runningDiff(DiffOptions const& options, RunningAgent const& running, Paint const& paint) {
   auto const& before = markOf(running.marks, "--from", options.from).picture;
   if (!options.to) {
      return {.text = differenceText(running.agent, before, paint)};
   }
   auto const& after = markOf(running.marks, "--to", *options.to).picture;
   if (after.rowsWritten < before.rowsWritten || after.rounds < before.rounds) {
      throw UsageError(fmt::format("--to {}: that mark was set before {}", printable(*options.to),
                                   printable(options.from)));
   }
   return {.text = differenceText(before, after, running.agent.rows(), paint)};
}

Answer
run(DiffOptions options, Context& context) {
   positionalsAre(context, options.source);
   if (context.running) {
      return runningDiff(options, *context.running, context.paint);
   }
   if (!options.to) {
      throw UsageError("--to is required");
   }
   Player player(context, *options.source.recording);
   player.playTo(options.from, "--from");
   auto const before = pictureOf(player.agent());
   player.agent().rows().isKept(true);
   if (options.to != options.from) {
      player.playTo(options.to, "--to");
   }
   return {.text = differenceText(player.agent(), before, context.paint)};
}

} // namespace

Command
diffCommand(CLI::App& app) {
   auto options = std::make_shared<DiffOptions>();
   auto* const command = app.add_subcommand(
         "diff", "show what a change did: destinations that moved, rows written, in order");
   recordingIs(*command, options->source);
   command->add_option("--from", options->from, "snapshot before the change; a mark of the running agent")
         ->required()
         ->type_name("NAME");
   wordIs(*command, "--to", options->to,
          "snapshot after it; a mark of the running agent (default there: now)")
         ->type_name("NAME");
   runningIs(*command, options->source);
   return {[options](Context& context) { return run(*options, context); },
           std::shared_ptr<Asked>(options, &options->source)};
}

} // namespace L3TunnelAgent
