#pragma once

#include "agent/KernelState.h"
#include "agent/Recording.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace L3TunnelAgent {

/// What is taken together: all of it is in the state before anything is derived from it.
struct Round {
   std::size_t frames{};                  // datagrams or dump replies, that many
   FrameKind kind{};                      // of all of these
   std::optional<std::string> snapshot{}; // the name of a snapshot taken here; such a round has no frames
   bool overrun{}; // announcements were lost here, and there are no frames; or replies may not fit together
   std::uint64_t nanoseconds{}; // of the first frame, or of what is reported
};

/// Reads a recording round by round: dump replies that follow each other are one, and so are announcements of
/// the same millisecond. A marker ends a round.
///
/// Dump replies add to the state whatever it holds, also behind announcements: no recording asks anew.
class RoundReader {
 public:
   /// @param recording must outlive this, and is read by nobody else.
   explicit RoundReader(Recording& recording) : recording_(recording) {}

   using Take = std::function<void(Frame const& frame)>;

   /// Reads the next round.
   /// @param take called with each of its frames as it is read, so that none is kept: may throw MessageError.
   /// @return nothing at the end of the recording.
   /// @throws RecordingError as Recording::next() does, naming the file and the frame when one cannot be
   /// taken, or when a marker is none. What came before it was given out already.
   std::optional<Round> next(Take const& take);

   /// The same: applies the frames to a state.
   std::optional<Round> next(KernelState& state);

 private:
   bool belongs(Frame const& frame) const;
   void take(Frame const& frame, Take const& take);
   std::optional<Round> reported(Frame const& frame) const;
   std::optional<std::string> snapshotName(Frame const& marker) const;

   Recording& recording_;
   Round pending_;
   std::optional<Frame> ahead_; // read, and part of no round yet
};

} // namespace L3TunnelAgent
