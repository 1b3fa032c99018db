#pragma once

#include "agent/commands/Player.h"

namespace L3TunnelAgent {

/// The agent that a command is about: the running one, or one that was told what a recording says.
class Subject {
 public:
   /// Plays the recording where no running agent is asked.
   /// @throws what Player throws.
   Subject(Context& context, Source const& source);

   Agent const& agent() const { return player_ ? player_->agent() : running_->agent; }

 private:
   RunningAgent const* running_;
   std::unique_ptr<Player> player_;
};

} // namespace L3TunnelAgent
