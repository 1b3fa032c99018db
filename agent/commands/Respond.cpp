#include "agent/commands/Respond.h"

#include "agent/commands/Commands.h"

#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

Answer
commandAnswer(Commands const& commands, Command const& command, RunningAgent& running,
              Request const& request) {
   if (!command.asked) {
      throw UsageError("that command is not for the running agent");
   }
   if (auto const option = commands.globalOption(); !option.empty()) {
      throw UsageError(fmt::format("{}: is for an agent that starts, and this one runs", option));
   }
   Context context;
   context.paint = Paint(request.isColoured);
   context.running = &running;
   return command.run(context);
}

} // namespace

Answer
respond(RunningAgent& running, Request const& request) {
   return guarded([&] {
      Commands commands;
      try {
         auto const& command = commands.read(request.words);
         return commandAnswer(commands, command, running, request);
      } catch (CLI::ParseError const& end) {
         return commands.end(end);
      }
   });
}

} // namespace L3TunnelAgent
