#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace L3TunnelAgent {

/// What the process ends with.
enum ExitCode : std::uint8_t {
   exitFine = 0,
   exitNo = 1,       ///< the answer is no: an audit found differences, there is no such destination, ...
   exitUsage = 2,    ///< the command line is wrong
   exitBadInput = 3, ///< a recording cannot be read
   exitFault = 4,    ///< anything else
};

/// How a monitor tells of changes.
enum class ChangeForm : std::uint8_t { text, colouredText, json };

/// What a command prints, and what the process ends with.
struct Answer {
   std::string text{};
   ExitCode exitCode{exitFine};
   std::string complaint{};               ///< goes to standard error
   std::optional<ChangeForm> following{}; ///< the running agent's changes follow the text, without end
};

} // namespace L3TunnelAgent
