#include "agent/commands/Operator.h"

#include "agent/commands/Respond.h"
#include "agent/control/Metrics.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

mode_t
modeOf(std::string const& text) {
   constexpr unsigned all = 0777;
   unsigned mode = 0;
   auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), mode, 8);
   if (error != std::errc() || end != text.data() + text.size() || mode > all) {
      throw UsageError(fmt::format("--control-mode {}: is no octal number from 0 to 0777", printable(text)));
   }
   return mode;
}

/// The default socket's folder goes with a reboot, so whoever starts an agent by hand finds none.
void
folderOfDefaultIs(std::string const& path) {
   std::error_code ignored;
   std::filesystem::create_directory(std::filesystem::path(path).parent_path(), ignored);
}

std::unique_ptr<ControlService>
newControl(asio::io_context& loop, RunningAgent& running, OperatorOptions const& options) {
   ControlService::Settings settings;
   settings.mode = modeOf(options.controlMode);
   if (options.control == "none") {
      return nullptr;
   }
   settings.path = options.control;
   if (settings.path.empty()) {
      settings.path = defaultControlPath();
      folderOfDefaultIs(settings.path);
   }
   return std::make_unique<ControlService>(
         loop, running.agent, std::move(settings),
         [&running](Request const& request) { return respond(running, request); });
}

std::unique_ptr<MetricsServer>
newMetrics(asio::io_context& loop, OperatorOptions const& options, std::function<std::string()> content) {
   if (!options.metricsPort) {
      return nullptr;
   }
   MetricsServer::Settings settings;
   settings.port = *options.metricsPort;
   return std::make_unique<MetricsServer>(loop, settings, std::move(content));
}

} // namespace

void
operatorOptionsAre(CLI::App& command, OperatorOptions& options) {
   command
         .add_option(
               "--control", options.control,
               "path of the control socket, at which show, monitor and others ask this agent; none makes "
               "none (default: control in the folder $RUNTIME_DIRECTORY, or "
               "/run/l3tunnel-agent/control)")
         ->type_name("PATH");
   command
         .add_option(
               "--control-mode", options.controlMode,
               "permissions of the control socket, as chmod takes them in octal (default: 0600, for the "
               "owner alone)")
         ->type_name("MODE");
   command
         .add_option("--metrics-port", options.metricsPort,
                     "also serve metrics at http://127.0.0.1:PORT/metrics, to all users of this machine "
                     "(default: no)")
         ->check(CLI::Range(1, 65535).description(""))
         ->type_name("PORT");
}

Operator::Operator(asio::io_context& loop, LiveAgent& live, OperatorOptions const& options, Log log)
    : live_(live)
    , log_(std::move(log))
    , marks_(live.agent())
    , running_{live.agent(), marks_, [this] { return metrics(); }}
    , control_(newControl(loop, running_, options))
    , metrics_(newMetrics(loop, options, [this] { return metrics(); }))
    , manager_(loop) {
   live.hooks() = {.changed =
                         [this](std::vector<IpAddress> const& addresses) {
                            if (control_) {
                               control_->changedAre(addresses);
                            }
                         },
                   .caughtUp = [this] { caughtUp(); },
                   .log = [this](LogLevel level, std::string const& text) { log_(level, text); }};
}

Operator::~Operator() {
   live_.hooks() = {};
}

std::string
Operator::metrics() const {
   return metricsText({.agent = &live_.agent(),
                       .live = &live_.counters(),
                       .control = control_ ? &control_->counters() : nullptr});
}

void
Operator::caughtUp() {
   if (!std::exchange(isAwaited_, false)) {
      return;
   }
   auto const status =
         counted(live_.agent().fabric().destinations().size(), "tunnel destination", "tunnel destinations") +
         " programmed from the kernel's state";
   log_(LogLevel::notice, status);
   manager_.readyIs(status);
}

void
Operator::reload() {
   log_(LogLevel::notice, "reading the kernel's state anew");
   isAwaited_ = true;
   manager_.reloadingIs();
   live_.reread();
}

void
Operator::stop() {
   manager_.stoppingIs();
   if (control_) {
      control_->stop();
   }
   if (metrics_) {
      metrics_->stop();
   }
}

} // namespace L3TunnelAgent
