#pragma once

#include "agent/tests/live/Namespace.h"
#include "agent/tests/live/Process.h"

#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace L3TunnelAgent::Live {

/// A namespace with an FRR router in it. What its daemons write lies in the folder, what they listen at in
/// /run/frr.
class Router {
 public:
   Router(std::string name, std::filesystem::path const& folder);

   Namespace const& space() const { return space_; }
   std::string const& name() const { return space_.name(); }

   /// Starts a daemon ("zebra", "bgpd"), for the first time with this configuration.
   void configurationIs(std::string const& daemon, std::string const& text);
   void start(std::string const& daemon);

   /// Kills a daemon, so that it takes leave of nobody.
   void kill(std::string const& daemon);

   /// @return what a command of the router's shell prints, "show bgp summary", or why it cannot be run.
   std::string show(std::string const& command) const;

   /// @return the daemons that should run and do not.
   std::string endedDaemons();

 private:
   Namespace space_;
   std::filesystem::path folder_;
   std::map<std::string, std::unique_ptr<Process>> daemons_;
};

/// @return whether FRR is installed.
bool hasRouters();

} // namespace L3TunnelAgent::Live
