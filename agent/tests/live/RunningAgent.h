#pragma once

#include "agent/tests/live/Destinations.h"
#include "agent/tests/live/KernelTruth.h"
#include "agent/tests/live/Process.h"

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace L3TunnelAgent::Live {

/// An `l3tunnel-agent run` that follows a namespace's kernel, and what it answers.
class RunningAgent {
 public:
   /// @param folder takes its control socket and its log.
   /// @param options further options of `run`.
   RunningAgent(Namespace const& space, std::filesystem::path folder, Words options = {});

   /// Starts it; before, it is not running.
   void start();
   /// Kills it, so that it cannot clean up.
   void kill() { process_->kill(); }
   /// Asks it to end. @return its exit code.
   int stop();

   pid_t pid() const { return process_->pid(); }
   bool isRunning() { return process_ && process_->isRunning(); }

   /// @return its destinations and interfaces, as it prints them. Throws std::runtime_error while it cannot
   /// be asked.
   nlohmann::json destinations() const;

   /// @return what its own audit found, with its exit code.
   Outcome audit() const;

   /// @return one of its metrics, that of all labels together. Throws std::runtime_error when there is none
   /// of that name.
   double metric(std::string const& name) const;

   std::string log() const;

 private:
   Words asking(Words command) const;

   Namespace const& space_;
   std::filesystem::path folder_;
   Words options_;
   std::unique_ptr<Process> process_;
};

/// @return what keeps the agent from being right: how its destinations differ from the kernel's, and what its
/// audit found. Asks again and again until there is nothing, or the time is over: both go on changing
/// meanwhile.
std::vector<std::string> faults(Namespace const& space, RunningAgent const& agent, Seconds limit);

} // namespace L3TunnelAgent::Live
