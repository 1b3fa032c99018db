#pragma once

#include "agent/control/Answer.h"
#include "agent/views/Change.h"

#include <optional>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// Remembers what was told of an agent's destinations, and finds out what has changed since.
class ChangeFeed {
 public:
   /// Nothing is remembered before start(). The agent must outlive this.
   explicit ChangeFeed(Agent const& agent) : agent_(agent) {}

   /// Takes all destinations as they are for told, unless they are remembered already.
   void start();

   /// Forgets all.
   void stop() { told_.reset(); }

   /// What has changed of these destinations, which is told from now on; nothing before start().
   std::vector<Change> changes(std::vector<IpAddress> const& addresses);

 private:
   Agent const& agent_;
   std::optional<Picture> told_;
};

} // namespace L3TunnelAgent
