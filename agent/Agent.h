#pragma once

#include "agent/Derivation.h"
#include "agent/Fabric.h"
#include "agent/RoundReader.h"
#include "agent/RowLog.h"

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// A fabric's state as the kernel tells it, and a chip that is kept programmed as that state changes.
class Agent {
 public:
   explicit Agent(Fabric::Settings settings = {});

   /// Takes in what the kernel told in the next round, programs what it changes, and waits for the chip.
   /// @return the round; nothing at the end of the recording.
   /// @throws RecordingError as `RoundReader::next` does; what came before it in the round is taken in and
   /// programmed with the next round.
   std::optional<Round> roundFrom(RoundReader& reader);

   /// Takes in one message, or a datagram of several, of which nothing is derived before step().
   /// @throws MessageError as applyDatagram() does.
   void messageIs(std::span<std::byte const> datagram);

   /// Takes a state, read anew, for what is known, of which nothing is derived before step().
   /// @return whether they differ.
   bool stateIs(KernelState state);

   /// Does a part of what is to be done about what was taken in: derives, hands a bounded number of
   /// destinations to the fabric, or steps the chip.
   /// @return whether anything is left to do.
   bool step();

   /// @return the addresses of destinations whose programmed state may have changed since this was last
   /// called, ascending.
   std::vector<IpAddress> takeChanged() { return fabric_.takeTouched(); }

   KernelState const& kernel() const { return kernel_; }
   Derivation const& derivation() const { return derivation_; }
   Fabric const& fabric() const { return fabric_; }
   Fabric& fabric() { return fabric_; }
   RowLog& rows() { return rows_; }
   RowLog const& rows() const { return rows_; }

   /// What was done so far, and how long it took.
   struct Work {
      using Time = std::chrono::nanoseconds;

      std::size_t rounds{};
      std::size_t frames{};
      std::size_t changedDestinations{}; ///< counted once per round
      Time reading{};                    ///< of messages
      Time deriving{};
      Time programming{}; ///< until the chip has answered
   };
   Work const& work() const { return work_; }

 private:
   void frameIs(std::uint8_t tag, std::span<std::byte const> datagram);
   void derive();
   void handOver(std::size_t most);

   KernelState kernel_;
   Derivation derivation_{kernel_};
   Fabric fabric_;
   RowLog rows_{fabric_.chip()};
   std::set<IpAddress> pending_; // derived anew, and not yet handed to the fabric
   IpAddress lastHanded_{};
   Work work_;
};

/// What a recording is played to.
struct Playback {
   std::vector<std::string> snapshots; ///< the markers met, in order
   bool overrun{};                     ///< the recorder lost messages, or a dump was interrupted
   bool found{};                       ///< the snapshot asked for was met
};

/// Plays a recording into the agent, up to the snapshot marker of that name, or to its end without one.
/// @param atSnapshot called with each marker's name as it is met, before what follows it is read.
/// @param afterRound called when a round is programmed.
/// @throws RecordingError when the recording or a message in it cannot be read.
Playback play(Agent& agent, Recording& recording, std::optional<std::string> const& until,
              std::function<void(std::string const&)> const& atSnapshot = {},
              std::function<void()> const& afterRound = {});

} // namespace L3TunnelAgent
