#include "agent/MessageReader.h"
#include "agent/Report.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fmt/format.h>

namespace {

using namespace L3TunnelAgent;

struct Options {
   std::string recording;
   std::optional<std::uint32_t> hashSeed;
};

int
program(Options const& options) {
   if (options.hashSeed) {
      Nuv::hashSeedIs(*options.hashSeed);
   }
   auto state = recordedState(options.recording);
   Fabric fabric;
   fabric.program(state, destinations(state));
   fabric.settle();
   Report report(fabric, state);
   fmt::print("{}\n\n{}\n{}", options.recording, report.summary(), report.tables());
   return 0;
}

} // namespace

int
// NOLINTNEXTLINE(bugprone-exception-escape): setting up the command line throws only at faults of ours.
main(int argc, char** argv) {
   CLI::App app("Programs a Linux leaf's tunnel underlay into a switch chip.", "l3tunnel-agent");
   app.require_subcommand(1);
   Options options;
   auto* command =
         app.add_subcommand("program", "program a recording's state and print what stands in the tables");
   command->add_option("RECORDING", options.recording, "recorded rtnetlink state, plain or gzip")->required();
   command->add_option("--hash-seed", options.hashSeed,
                       "seed of the hash collections, which fixes the order of members (default: random)");
   CLI11_PARSE(app, argc, argv);
   try {
      return program(options);
   } catch (std::exception const& error) {
      fmt::print(stderr, "l3tunnel-agent: {}\n", error.what());
      return 1;
   }
}
