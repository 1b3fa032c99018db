#pragma once

#include "agent/KernelState.h"
#include "agent/Recording.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// What is taken together: applied to the state as a whole before anything is derived from it.
struct Round {
   std::vector<Frame> frames{};           // datagrams or dump replies
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

   /// @return the next round; nothing at the end of the recording.
   /// @throws RecordingError as Recording::next() does, or when a marker is none. The rounds before it were
   /// given out already.
   std::optional<Round> next();

   /// Applies a round's frames to a state.
   /// @throws RecordingError naming the file and the frame, when a message cannot be read. The messages
   /// before it are applied then.
   void apply(KernelState& state, Round const& round) const;

 private:
   bool belongs(Frame const& frame) const;
   std::optional<Round> reported(Frame const& frame) const;
   std::optional<std::string> snapshotName(Frame const& marker) const;

   Recording& recording_;
   Round pending_;
   std::optional<Frame> ahead_; // read, and part of no round yet
};

} // namespace L3TunnelAgent
