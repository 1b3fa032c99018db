#pragma once

#include <CLI/CLI.hpp>

namespace L3TunnelAgent {

/// Lays out what --help says: an option and what it takes, then what it does, in two columns of a page.
class HelpFormatter final : public CLI::Formatter {
 public:
   std::string make_option(CLI::Option const* option, bool isPositional) const override;
   std::string make_option_usage(CLI::Option const* option) const override;
};

} // namespace L3TunnelAgent
