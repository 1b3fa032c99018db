#pragma once

#include "agent/Fabric.h"
#include "agent/commands/Progress.h"
#include "agent/control/Answer.h"
#include "agent/control/Marks.h"
#include "agent/views/Paint.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace L3TunnelAgent {

/// A command line that is wrong: the text names the option and its value.
class UsageError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// The agent of this process, that others ask while it runs.
struct RunningAgent {
   Agent& agent;
   Marks& marks;
   std::function<std::string()> metrics;
};

/// What every command runs with.
struct Context {
   Fabric::Settings settings{};
   Paint paint{};                                  ///< of what is printed
   Progress progress{};                            ///< shown while a recording is read
   std::function<void(std::string const&)> warn{}; ///< says what the answer does not
   RunningAgent* running{};                        ///< that is asked; null: a recording is played
};

/// What a command does once the command line is read.
using Run = std::function<Answer(Context&)>;

/// Whether the command is for the running agent, and where that listens.
struct Asked {
   bool isAsked{};
   bool isFollowing{}; // its answer has no end
   std::string control;
};

/// A command that may be for the running agent, which then runs it.
struct Command {
   Run run;
   std::shared_ptr<Asked const> asked{}; ///< null when it never is
};

/// Each adds its command to the command line.
Command programCommand(CLI::App& app);
Command showCommand(CLI::App& app);
Command lookupCommand(CLI::App& app);
Command explainCommand(CLI::App& app);
Command auditCommand(CLI::App& app);
Command diffCommand(CLI::App& app);
Command monitorCommand(CLI::App& app);
Command markCommand(CLI::App& app);
Command metricsCommand(CLI::App& app);
Command runCommand(CLI::App& app);
Command recordCommand(CLI::App& app);

/// Which part of which recording a command is about; or it is about the running agent.
struct Source : Asked {
   std::optional<std::string> recording; ///< a file; "-" is standard input
   std::optional<std::string> until;
};

/// Adds an option that takes a word, be it an empty one.
CLI::Option* wordIs(CLI::App& command, std::string const& name, std::optional<std::string>& word,
                    std::string const& description);

/// Adds the positional RECORDING, and the option --until.
void recordingIs(CLI::App& command, Source& source);
void untilIs(CLI::App& command, Source& source);

/// Adds the options --running and --control.
void runningIs(CLI::App& command, Asked& asked);

/// For a command of the running agent alone: adds the option --control, and --running for those who say it.
void runningOnly(CLI::App& command, Asked& asked);

/// Moves the words behind RECORDING to where they belong when the running agent is asked, and there is no
/// RECORDING.
/// @param behind the one word behind RECORDING; null when the command has none.
/// @throws UsageError when a word is missing, or one is too many.
void positionalsAre(Context const& context, Source& source, std::optional<std::string>* behind = nullptr);

/// The address that the command line names; a `UsageError` when it is none.
IpAddress destinationOf(std::string const& text);

} // namespace L3TunnelAgent
