#pragma once

#include "agent/views/Difference.h"

#include <chrono>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// Moments of a running agent by name, for what happened between two of them to be shown. While there are
/// marks, the agent's log keeps the rows written since the first of them, as far as its bound allows.
class Marks {
 public:
   static constexpr std::size_t most = 8;
   static constexpr std::size_t mostRows = 100000; ///< that the log keeps
   static constexpr std::size_t longestName = 64;

   struct Mark {
      std::string name;
      std::chrono::system_clock::time_point time;
      Picture picture;
   };

   /// The agent must outlive this, and its log be left to it.
   explicit Marks(Agent& agent) : agent_(agent) {}

   /// Marks this moment; a mark of that name moves here.
   /// @throws std::invalid_argument when there are as many marks as can be, or that is no name: of 1 to 64
   /// printable characters.
   void markIs(std::string const& name);

   /// Returns whether there was such a mark.
   bool markDel(std::string const& name);

   /// The mark of that name; null without one.
   Mark const* mark(std::string const& name) const;

   /// All, the oldest first.
   std::vector<Mark> const& marks() const { return marks_; }

 private:
   void logIs();

   Agent& agent_;
   std::vector<Mark> marks_;
};

} // namespace L3TunnelAgent
