#include "agent/commands/Operator.h"
#include "agent/live/LiveAgent.h"
#include "agent/views/Names.h"
#include "agent/views/Sections.h"
#include "agent/views/Summary.h"
#include "platform/nuv/Exception.h"

#include <CLI/CLI.hpp>
#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <csignal>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

// With --oneshot, of a state that changes all the while.
constexpr int mostReadings = 3;

struct RunOptions {
   LiveAgent::Settings settings;
   OperatorOptions operatorOptions;
   bool oneshot{};
   bool json{};
};

Json
runJson(std::optional<std::string> const& netns, Agent const& agent) {
   Users const users(agent.fabric());
   View const view{agent, users};
   return {{"netns", netns ? Json(*netns) : Json(nullptr)},
           {"chip", "model"},
           {"summary", json(summaryOf(agent))},
           {"destinations", destinationsSection().json(view)},
           {"interfaces", interfacesSection().json(view)}};
}

/// Does what a signal asks for until one asks for the end.
class Signals {
 public:
   /// @param served null when nobody looks after the agent.
   Signals(asio::io_context& loop, LiveAgent& live, Operator* served)
       : signals_(loop, SIGINT, SIGTERM, SIGHUP), live_(live), operator_(served) {
      await();
   }

   void stop() { signals_.cancel(); }

 private:
   void await() {
      signals_.async_wait([this](asio::error_code const& error, int signal) {
         if (error) {
            return;
         }
         if (signal != SIGHUP) {
            return end();
         }
         if (operator_) {
            operator_->reload();
         } else {
            live_.reread();
         }
         await();
      });
   }

   void end() {
      if (operator_) {
         operator_->stop();
      }
      live_.stop();
   }

   asio::signal_set signals_;
   LiveAgent& live_;
   Operator* operator_;
};

std::unique_ptr<LiveAgent>
newLiveAgent(asio::io_context& loop, LiveAgent::Settings const& settings) {
   try {
      return std::make_unique<LiveAgent>(loop, settings);
   } catch (Nuv::RangeException const& error) {
      throw UsageError(fmt::format("--chip-size: {}", error.what()));
   }
}

Answer
run(RunOptions options, Context& context) {
   options.settings.fabric = context.settings;
   if (!options.oneshot) {
      // The switch goes on when nobody reads the log any more.
      std::signal(SIGPIPE, SIG_IGN);
   }
   asio::io_context loop(1);
   auto const live = newLiveAgent(loop, options.settings);
   auto const served = options.oneshot ? nullptr
                                       : std::make_unique<Operator>(loop, *live, options.operatorOptions,
                                                                    standardErrorLog());
   Signals signals(loop, *live, served.get());
   bool isCaughtUp = false;
   int readings = 0;
   if (options.oneshot) {
      live->hooks().log = [&](LogLevel /*level*/, std::string const& text) {
         if (context.warn) {
            context.warn(text);
         }
      };
      live->hooks().caughtUp = [&] {
         isCaughtUp = live->isCaughtUp();
         if (!isCaughtUp && ++readings < mostReadings) {
            return live->reread();
         }
         live->stop();
         signals.stop();
      };
   }
   live->start();
   loop.run();
   if (!options.oneshot) {
      return {};
   }
   if (readings == mostReadings) {
      throw std::runtime_error("the kernel's state never was still while it was read");
   }
   if (!isCaughtUp) {
      throw std::runtime_error("interrupted before the kernel's state was programmed");
   }
   return {.text = options.json ? text(runJson(options.settings.kernel.netns, live->agent()))
                                : text(summaryOf(live->agent()), context.paint)};
}

} // namespace

Command
runCommand(CLI::App& app) {
   auto options = std::make_shared<RunOptions>();
   auto* const command =
         app.add_subcommand("run", "program the chip from this machine's kernel, and follow it");
   command
         ->add_option("--netns", options->settings.kernel.netns,
                      "follow the kernel's state in the network namespace of that name")
         ->type_name("NAME");
   auto* const oneshot =
         command->add_flag("--oneshot", options->oneshot, "program what the kernel has now, sum up, and end");
   command->add_flag("--json", options->json, "print JSON, with all destinations and interfaces")
         ->needs(oneshot);
   command
         ->add_option("--receive-buffer", options->settings.kernel.receiveBuffer,
                      fmt::format("room for announcements not read yet (default: {})",
                                  options->settings.kernel.receiveBuffer))
         ->type_name("BYTES");
   operatorOptionsAre(*command, options->operatorOptions);
   return {[options](Context& context) { return run(*options, context); }};
}

} // namespace L3TunnelAgent
