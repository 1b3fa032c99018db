#pragma once

#include "agent/commands/Command.h"
#include "agent/commands/GlobalOptions.h"

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// The program's name, as it says it of itself.
inline constexpr char const* programName = "l3tunnel-agent";

/// The command line: what can stand there, and what does.
class Commands {
 public:
   Commands();

   /// Reads the words behind the program's name; once.
   /// @return the command that they name.
   /// @throws CLI::ParseError when they name none, or ask for help.
   Command const& read(std::vector<std::string> const& words);

   /// What is said to one whose words were read no further.
   Answer end(CLI::ParseError const& error) const;

   GlobalOptions const& options() const { return options_; }

   /// An option of the program itself that stands there, "--trace"; empty without one.
   std::string globalOption() const;

 private:
   CLI::App app_;
   GlobalOptions options_;
   std::map<std::string, Command> commands_;
};

/// Does what `answer` does; what is thrown there becomes the answer.
Answer guarded(std::function<Answer()> const& answer);

} // namespace L3TunnelAgent
