#include "agent/commands/Command.h"

#include "agent/control/ControlSocket.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <utility>

namespace L3TunnelAgent {

namespace {

void
controlIs(CLI::App& command, Asked& asked) {
   command
         .add_option("--control", asked.control,
                     "ask the running agent whose control socket that is (default: control in the folder "
                     "$RUNTIME_DIRECTORY, or /run/l3tunnel-agent/control)")
         ->type_name("PATH")
         ->each([&asked](std::string const&) { asked.isAsked = true; });
}

} // namespace

CLI::Option*
wordIs(CLI::App& command, std::string const& name, std::optional<std::string>& word,
       std::string const& description) {
   // For an optional value, the parser takes an empty word for none.
   return command.add_option_function<std::string>(
         name, [&word](std::string const& text) { word = text; }, description);
}

void
recordingIs(CLI::App& command, Source& source) {
   wordIs(command, "RECORDING", source.recording,
          "recorded rtnetlink messages, plain or gzip; - reads standard input");
}

void
untilIs(CLI::App& command, Source& source) {
   wordIs(command, "--until", source.until, "stop at the snapshot of that name (default: at the end)")
         ->type_name("NAME");
}

void
runningIs(CLI::App& command, Asked& asked) {
   command.add_flag("--running", asked.isAsked, "ask the agent that runs, instead of reading a RECORDING");
   controlIs(command, asked);
}

void
runningOnly(CLI::App& command, Asked& asked) {
   asked.isAsked = true;
   command.add_flag("--running", asked.isAsked, "ask the agent that runs, as this command always does");
   controlIs(command, asked);
}

void
positionalsAre(Context const& context, Source& source, std::optional<std::string>* behind) {
   if (context.running && behind && !*behind) {
      *behind = std::exchange(source.recording, std::nullopt);
   }
   if (context.running && (source.recording || source.until)) {
      throw UsageError(source.until ? "--until: the running agent has no snapshots"
                                    : fmt::format("{}: the running agent is asked, which reads no RECORDING",
                                                  printable(*source.recording)));
   }
   if (!context.running && !source.recording) {
      throw UsageError("RECORDING is required, or --running");
   }
   if (behind && !*behind) {
      throw UsageError("DESTINATION is required");
   }
}

IpAddress
destinationOf(std::string const& text) {
   auto const address = IpAddress::parse(text);
   if (!address) {
      throw UsageError(fmt::format("DESTINATION {}: is no IP address", printable(text)));
   }
   return *address;
}

} // namespace L3TunnelAgent
