#pragma once

#include "agent/tests/TemporaryFile.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>

namespace L3TunnelAgent {

/// What a run of the agent came to.
struct Outcome {
   int exitCode{}; // -1 when a signal ended it
   std::string out;
   std::string error;
};

inline std::string
contentOf(std::filesystem::path const& file) {
   std::ostringstream text;
   text << std::ifstream(file, std::ios::binary).rdbuf();
   return text.str();
}

/// Runs the shell's command line with both streams caught.
inline Outcome
runShell(std::string const& line) {
   TemporaryFile const out;
   TemporaryFile const error;
   auto const whole = "{ " + line + " ; } >" + out.path().string() + " 2>" + error.path().string();
   int const status = std::system(whole.c_str());
   return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(out.path()), contentOf(error.path())};
}

/// Runs the real agent; the arguments are words of the shell.
inline Outcome
runAgent(std::string const& arguments) {
   return runShell(std::string(AGENT_BINARY) + " " + arguments);
}

} // namespace L3TunnelAgent
