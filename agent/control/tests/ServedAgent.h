#pragma once

#include "agent/Agent.h"
#include "agent/commands/Respond.h"
#include "agent/control/ControlService.h"
#include "agent/control/Metrics.h"
#include "agent/control/tests/TemporaryFolder.h"
#include "agent/tests/Expected.h"

#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <future>
#include <set>
#include <thread>
#include <type_traits>

namespace L3TunnelAgent {

/// An agent that is told a recorded fabric's announcements snapshot by snapshot, and served over a control
/// socket by a loop in a thread of its own.
class ServedAgent {
 public:
   explicit ServedAgent(std::string const& fabric = "mixed", ControlService::Settings settings = {})
       : recording_(recordedEvents(fabric)) {
      play(agent_, recording_, firstSnapshot);
      settings.path = folder_ / "control";
      service_ = std::make_unique<ControlService>(
            loop_, agent_, std::move(settings),
            [this](Request const& request) { return respond(running_, request); });
      thread_ = std::thread([this] { loop_.run(); });
   }

   ServedAgent(ServedAgent const&) = delete;
   ServedAgent& operator=(ServedAgent const&) = delete;
   ~ServedAgent() {
      inLoop([this] { service_.reset(); });
      work_.reset();
      thread_.join();
   }

   /// What the function returns, called from the loop.
   template <class Function>
   std::invoke_result_t<Function const&> inLoop(Function const& function) {
      std::packaged_task<std::invoke_result_t<Function const&>()> task(function);
      auto result = task.get_future();
      asio::post(loop_, [&task] { task(); });
      return result.get();
   }

   /// Plays on up to that snapshot, and tells of what may have changed after each round.
   void playTo(std::string const& snapshot) {
      inLoop([&] { play(agent_, recording_, snapshot, {}, [this] { service_->changedAre(addresses()); }); });
   }

   ControlService::Counters counters() {
      return inLoop([this] { return service_->counters(); });
   }

   std::string path() const { return folder_ / "control"; }
   Agent& agent() { return agent_; }
   ControlService& service() { return *service_; }

 private:
   /// All destinations that there are or were.
   std::vector<IpAddress> addresses() {
      for (auto const& [address, destination] : agent_.fabric().destinations()) {
         known_.insert(address);
      }
      return {known_.begin(), known_.end()};
   }

   TemporaryFolder folder_;
   asio::io_context loop_;
   asio::executor_work_guard<asio::io_context::executor_type> work_ = asio::make_work_guard(loop_);
   Agent agent_;
   Recording recording_;
   std::set<IpAddress> known_;
   Marks marks_{agent_};
   std::unique_ptr<ControlService> service_;
   RunningAgent running_{agent_, marks_, [this] {
                            return metricsText(
                                  {.agent = &agent_, .live = nullptr, .control = &service_->counters()});
                         }};
   std::thread thread_;
};

} // namespace L3TunnelAgent
