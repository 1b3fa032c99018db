#pragma once

#include "agent/Agent.h"
#include "agent/commands/Command.h"

namespace L3TunnelAgent {

/// An agent, and the recording that is played to it.
class Player {
 public:
   /// Opens the recording. Both arguments must outlive the player.
   /// @throws RecordingError when it cannot be read, UsageError when the chip cannot have the sizes.
   Player(Context& context, std::string recording);

   /// Plays on, up to the snapshot of that name or to the end.
   /// @throws UsageError, which names the snapshots that there are, when that name does not come; `option` is
   /// what asked for it.
   void playTo(std::optional<std::string> const& snapshot, std::string const& option = "--until");

   Agent& agent() { return *agent_; }

 private:
   std::unique_ptr<Agent> newAgent() const;
   UsageError noSuchSnapshot(std::string const& name, std::string const& option) const;

   Context& context_;
   std::string recording_;
   std::unique_ptr<Agent> agent_;
   Recording input_;
   std::vector<std::string> snapshots_; // met so far
   bool hasWarned_{};
};

/// An agent that was told what the source says.
std::unique_ptr<Player> played(Context& context, Source const& source);

} // namespace L3TunnelAgent
