#include "agent/commands/Player.h"

#include "platform/nuv/Exception.h"

#include <algorithm>
#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

/// Takes the line away also from before an error.
class ProgressEnd {
 public:
   explicit ProgressEnd(Progress& progress) : progress_(progress) {}
   ProgressEnd(ProgressEnd const&) = delete;
   ProgressEnd& operator=(ProgressEnd const&) = delete;
   ~ProgressEnd() { progress_.done(); }

 private:
   Progress& progress_;
};

} // namespace

Player::Player(Context& context, std::string recording)
    : context_(context), recording_(std::move(recording)), agent_(newAgent()), input_(recording_) {}

std::unique_ptr<Agent>
Player::newAgent() const {
   try {
      return std::make_unique<Agent>(context_.settings);
   } catch (Nuv::RangeException const& error) {
      throw UsageError(fmt::format("--chip-size: {}", error.what()));
   }
}

void
Player::playTo(std::optional<std::string> const& snapshot, std::string const& option) {
   auto const afterRound = [&] {
      context_.progress.at([&] {
         return fmt::format("{}: {} messages in {} rounds, {} destinations", printable(recording_),
                            agent_->work().frames, agent_->work().rounds,
                            agent_->fabric().destinations().size());
      });
   };
   auto const playback = [&] {
      ProgressEnd const end(context_.progress);
      return play(*agent_, input_, snapshot, {}, afterRound);
   }();
   if (playback.overrun && !std::exchange(hasWarned_, true) && context_.warn) {
      context_.warn(recording_ + ": the recorder lost messages, or the kernel's state changed while it was "
                                 "dumped: what follows may not be the kernel's state");
   }
   if (snapshot && !playback.found) {
      snapshots_.insert(snapshots_.end(), playback.snapshots.begin(), playback.snapshots.end());
      throw noSuchSnapshot(*snapshot, option);
   }
   snapshots_.insert(snapshots_.end(), playback.snapshots.begin(), playback.snapshots.end());
}

UsageError
Player::noSuchSnapshot(std::string const& name, std::string const& option) const {
   auto const what = fmt::format("{} {}: ", option, printable(name));
   if (snapshots_.empty()) {
      return UsageError(what + recording_ + " has no snapshots");
   }
   auto const comes = std::find(snapshots_.begin(), snapshots_.end(), name);
   auto text = what + recording_ +
               (comes == snapshots_.end() ? " has no such snapshot" : " has that snapshot earlier") +
               "; it has";
   for (auto const& each : snapshots_) {
      text += "\n  " + printable(each);
   }
   return UsageError(text);
}

std::unique_ptr<Player>
played(Context& context, Source const& source) {
   auto player = std::make_unique<Player>(context, *source.recording);
   player->playTo(source.until);
   return player;
}

} // namespace L3TunnelAgent
