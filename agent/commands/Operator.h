#pragma once

#include "agent/commands/Command.h"
#include "agent/control/ControlService.h"
#include "agent/control/Log.h"
#include "agent/control/MetricsServer.h"
#include "agent/control/ServiceManager.h"
#include "agent/live/LiveAgent.h"

#include <optional>

namespace L3TunnelAgent {

/// What the command line says of those who look after a live agent.
struct OperatorOptions {
   std::string control; ///< path of the control socket; empty: the default one; "none": none
   std::string controlMode{"0600"};
   std::optional<std::uint16_t> metricsPort; ///< nothing: metrics over the control socket alone
};

/// Adds the options --control, --control-mode and --metrics-port.
void operatorOptionsAre(CLI::App& command, OperatorOptions& options);

/// The side of a live agent that those see who look after it: control socket, metrics, service manager, log.
/// It takes the agent's hooks.
class Operator {
 public:
   /// Listens from now on; `loop` and `live` must outlive this.
   /// @throws UsageError for options that cannot be, std::runtime_error when one of the sockets cannot be
   /// had.
   Operator(asio::io_context& loop, LiveAgent& live, OperatorOptions const& options, Log log);
   Operator(Operator const&) = delete;
   Operator& operator=(Operator const&) = delete;
   ~Operator();

   /// Has the agent read the kernel's state anew, and tells the service manager.
   void reload();

   /// Ends what runs in the loop.
   void stop();

 private:
   void caughtUp();
   std::string metrics() const;

   LiveAgent& live_;
   Log log_;
   Marks marks_;
   RunningAgent running_;
   std::unique_ptr<ControlService> control_;
   std::unique_ptr<MetricsServer> metrics_;
   ServiceManager manager_;
   bool isAwaited_{true}; // by the service manager: that all is programmed
};

} // namespace L3TunnelAgent
