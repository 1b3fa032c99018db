#pragma once

#include <string>

namespace L3TunnelAgent {

/// Reads the command line, runs its command and prints the answer, all else to standard error. Returns what
/// the process ends with; throws nothing.
int runCommandLine(int argc, char const* const* argv) noexcept;

} // namespace L3TunnelAgent
