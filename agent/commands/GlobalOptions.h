#pragma once

#include "agent/commands/Command.h"

namespace L3TunnelAgent {

/// What every command is told.
struct GlobalOptions {
   std::vector<std::string> chipSizes; ///< table=rows
   std::optional<std::uint32_t> hashSeed;
   std::vector<std::string> traces; ///< handle/levels
   std::string unresolved{"exclude"};
   std::string toCpu{"punt"};
};

/// Adds the options to the command line, which fills `options`.
void optionsAre(CLI::App& app, GlobalOptions& options);

/// What the options make of a fabric.
/// @throws UsageError which names the option and the value that cannot be.
Fabric::Settings settingsOf(GlobalOptions const& options);

/// Sets the hash seed and opens the trace that the options name, which must come before any table is made.
/// @throws UsageError as above.
void processIs(GlobalOptions const& options);

} // namespace L3TunnelAgent
