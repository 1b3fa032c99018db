#include "agent/Agent.h"

#include "agent/MessageReader.h"

namespace L3TunnelAgent {

namespace {

// Each takes about a millisecond at most, so that an event loop gets to others between two.
constexpr std::size_t destinationsPerStep = 64;
constexpr std::size_t reactionsPerStep = 1024;

/// Adds the time from its making to its end.
class Stopwatch {
 public:
   explicit Stopwatch(Agent::Work::Time& sum) : sum_(sum) {}
   Stopwatch(Stopwatch const&) = delete;
   Stopwatch& operator=(Stopwatch const&) = delete;
   ~Stopwatch() { sum_ += std::chrono::steady_clock::now() - start_; }

 private:
   Agent::Work::Time& sum_;
   std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace

Agent::Agent(Fabric::Settings settings) : fabric_(std::move(settings)) {}

std::optional<Round>
Agent::roundFrom(RoundReader& reader) {
   auto round = reader.next([this](Frame const& frame) { frameIs(frame.tag, frame.payload); });
   if (round) {
      derive();
      Stopwatch const watch(work_.programming);
      lastHanded_ = {};
      handOver(pending_.size());
      fabric_.settle();
   }
   return round;
}

void
Agent::messageIs(std::span<std::byte const> datagram) {
   constexpr std::uint8_t noReply = 0;
   frameIs(noReply, datagram);
}

/// @param tag of a reply to a request, otherwise 0.
void
Agent::frameIs(std::uint8_t tag, std::span<std::byte const> datagram) {
   Stopwatch const watch(work_.reading);
   ++work_.frames;
   applyReply(kernel_, tag, datagram);
}

bool
Agent::stateIs(KernelState state) {
   Stopwatch const watch(work_.reading);
   return kernel_.becomes(std::move(state));
}

bool
Agent::step() {
   if (kernel_.hasChanges()) {
      derive();
      return true;
   }
   Stopwatch const watch(work_.programming);
   if (!pending_.empty()) {
      handOver(destinationsPerStep);
      return true;
   }
   return fabric_.step(reactionsPerStep);
}

void
Agent::derive() {
   Stopwatch const watch(work_.deriving);
   ++work_.rounds;
   auto const changed = derivation_.update(kernel_.takeChanges());
   work_.changedDestinations += changed.size();
   pending_.insert(changed.begin(), changed.end());
}

/// In turn, so that none waits for ever behind others that keep changing.
void
Agent::handOver(std::size_t most) {
   for (; most != 0 && !pending_.empty(); --most) {
      auto const next = pending_.upper_bound(lastHanded_);
      auto const address = pending_.extract(next == pending_.end() ? pending_.begin() : next).value();
      lastHanded_ = address;
      auto const found = derivation_.destinations().find(address);
      if (found == derivation_.destinations().end()) {
         fabric_.destinationDel(address);
      } else {
         fabric_.destinationIs(found->second);
      }
   }
}

Playback
play(Agent& agent, Recording& recording, std::optional<std::string> const& until,
     std::function<void(std::string const&)> const& atSnapshot, std::function<void()> const& afterRound) {
   Playback playback;
   RoundReader reader(recording);
   while (auto const round = agent.roundFrom(reader)) {
      playback.overrun |= round->overrun;
      if (afterRound) {
         afterRound();
      }
      if (!round->snapshot) {
         continue;
      }
      playback.snapshots.push_back(*round->snapshot);
      if (atSnapshot) {
         atSnapshot(*round->snapshot);
      }
      if (until == round->snapshot) {
         playback.found = true;
         break;
      }
   }
   return playback;
}

} // namespace L3TunnelAgent
