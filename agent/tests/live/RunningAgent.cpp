#include "agent/tests/live/RunningAgent.h"

#include <csignal>
#include <sstream>
#include <stdexcept>

namespace L3TunnelAgent::Live {

RunningAgent::RunningAgent(Namespace const& space, std::filesystem::path folder, Words options)
    : space_(space), folder_(std::move(folder)), options_(std::move(options)) {}

void
RunningAgent::start() {
   Words command{AGENT_BINARY, "run", "--netns", space_.name(), "--control", (folder_ / "control").string()};
   command.insert(command.end(), options_.begin(), options_.end());
   process_ = std::make_unique<Process>(
         command, Process::Settings{.out = folder_ / "agent.out", .error = folder_ / "agent.log"});
}

int
RunningAgent::stop() {
   process_->signal(SIGTERM);
   auto const exitCode = process_->ended(Seconds(20));
   return exitCode ? *exitCode : throw std::runtime_error("the agent did not end");
}

Words
RunningAgent::asking(Words command) const {
   command.insert(command.begin(), AGENT_BINARY);
   command.insert(command.end(), {"--running", "--control", (folder_ / "control").string()});
   return command;
}

nlohmann::json
RunningAgent::destinations() const {
   return nlohmann::json::parse(outputOf(asking({"show", "--json", "destinations", "interfaces"})));
}

Outcome
RunningAgent::audit() const {
   return finished(asking({"audit"}));
}

double
RunningAgent::metric(std::string const& name) const {
   std::istringstream text(outputOf(asking({"metrics"})));
   std::optional<double> sum;
   for (std::string line; std::getline(text, line);) {
      if (line.starts_with(name + " ") || line.starts_with(name + "{")) {
         sum = sum.value_or(0) + std::stod(line.substr(line.rfind(' ')));
      }
   }
   return sum ? *sum : throw std::runtime_error("no metric " + name);
}

std::string
RunningAgent::log() const {
   return contentOf(folder_ / "agent.log");
}

std::vector<std::string>
faults(Namespace const& space, RunningAgent const& agent, Seconds limit) {
   std::vector<std::string> result;
   isWithin(limit, [&] {
      try {
         auto const kernel = kernelTruth(space);
         result = differences(kernel, agent.destinations());
         auto const audit = agent.audit();
         if (audit.exitCode != 0) {
            result.push_back("audit: " + audit.out + audit.error);
         }
      } catch (std::exception const& problem) {
         result = {problem.what()};
      }
      return result.empty();
   });
   return result;
}

} // namespace L3TunnelAgent::Live
