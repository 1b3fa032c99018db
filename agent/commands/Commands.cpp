#include "agent/commands/Commands.h"

#include "agent/Recording.h"
#include "agent/commands/HelpFormatter.h"

#include <fmt/format.h>
#include <sstream>

namespace L3TunnelAgent {

namespace {

constexpr char const* footer =
      R"(A recording is what the kernel told over rtnetlink: dumps of its state and the messages that followed,
with the names of snapshots between them.

Exit codes:
  0  all is well
  1  the answer is no: audit found differences, lookup or explain have no such destination,
     lookup found no way
  2  the command line is wrong
  3  the recording cannot be read
  4  any other fault, as that no agent runs

Environment:
  NO_COLOR           when it is set and not empty, there is no colour at a terminal either
  RUNTIME_DIRECTORY  the folder of the control socket, unless --control names that)";

/// The parser's words for an option without its value say how many are required.
std::string
missingValueNamed(std::string text) {
   constexpr std::string_view before = ": 1 required ";
   constexpr std::string_view behind = " missing";
   auto const at = text.find(before);
   if (at != std::string::npos && text.ends_with(behind)) {
      text.resize(text.size() - behind.size());
      text.replace(at, before.size(), ": needs a value: ");
   }
   return text;
}

} // namespace

Commands::Commands()
    : app_("Programs a Linux leaf's tunnel underlay into a switch chip, and shows what it did.",
           programName) {
   optionsAre(app_, options_);
   app_.formatter(std::make_shared<HelpFormatter>());
   app_.require_subcommand(1);
   app_.set_help_flag();
   app_.set_help_all_flag("-h,--help", "say all that there is to say, and end");
   app_.set_version_flag("--version", std::string(programName) + " " L3TUNNEL_VERSION,
                         "say which version this is, and end");
   app_.footer(footer);
   commands_ = {
         {"program", programCommand(app_)}, {"show", showCommand(app_)},    {"lookup", lookupCommand(app_)},
         {"explain", explainCommand(app_)}, {"audit", auditCommand(app_)},  {"diff", diffCommand(app_)},
         {"monitor", monitorCommand(app_)}, {"mark", markCommand(app_)},    {"metrics", metricsCommand(app_)},
         {"run", runCommand(app_)},         {"record", recordCommand(app_)}};
   for (auto* command : app_.get_subcommands({})) {
      command->set_help_all_flag();
      command->set_help_flag("-h,--help", "say what there is to say of the command, and end");
      command->fallthrough();
      command->footer(fmt::format("The options of {} itself may stand here, too: {} --help names them.",
                                  programName, programName));
   }
}

Command const&
Commands::read(std::vector<std::string> const& words) {
   std::vector<char const*> arguments{programName};
   for (auto const& word : words) {
      arguments.push_back(word.c_str());
   }
   app_.parse(static_cast<int>(arguments.size()), arguments.data());
   return commands_.at(app_.get_subcommands().front()->get_name());
}

Answer
Commands::end(CLI::ParseError const& error) const {
   if (error.get_exit_code() == 0) {
      std::ostringstream out;
      app_.exit(error, out, out);
      return {.text = out.str()};
   }
   bool const isAboutCount = dynamic_cast<CLI::ArgumentMismatch const*>(&error) != nullptr;
   auto what = printable(isAboutCount ? missingValueNamed(error.what()) : error.what());
   if (app_.get_subcommands().empty() && app_.remaining_size() != 0) {
      what = fmt::format("{}: is no command", printable(app_.remaining().front()));
   }
   return {.text = {},
           .exitCode = exitUsage,
           .complaint = fmt::format("{}\n{} --help says what there is.", what, programName)};
}

std::string
Commands::globalOption() const {
   for (auto const* option : app_.get_options()) {
      if (option->count() != 0) {
         return option->get_name();
      }
   }
   return "";
}

Answer
guarded(std::function<Answer()> const& answer) {
   try {
      return answer();
   } catch (UsageError const& error) {
      return {.text = {}, .exitCode = exitUsage, .complaint = error.what()};
   } catch (RecordingError const& error) {
      return {.text = {}, .exitCode = exitBadInput, .complaint = error.what()};
   } catch (std::exception const& error) {
      return {.text = {}, .exitCode = exitFault, .complaint = error.what()};
   }
}

} // namespace L3TunnelAgent
