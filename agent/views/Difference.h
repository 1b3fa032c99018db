#pragma once

#include "agent/Agent.h"
#include "agent/views/Paint.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// What can be told apart of an agent's destinations later on, when they have changed.
struct Picture {
   struct Destination {
      std::string state;
      Asic::Index group{Asic::invalidIndex}; ///< index of its row
      Asic::Index block{Asic::invalidIndex}; ///< the first of its member rows
      std::size_t paths{};                   ///< how many these are
      std::vector<std::string> vias;         ///< as text, sorted
      std::string reason;

      bool operator==(Destination const&) const = default;
   };

   std::map<IpAddress, Destination> destinations;
   std::size_t rounds{};
   std::size_t rowsWritten{}; ///< by the chip so far
};

Picture pictureOf(Agent const& agent);

/// The destination as it is now; nothing when it is none.
std::optional<Picture::Destination> pictureOf(Agent const& agent, IpAddress const& destination);

/// Vias by what became of them.
struct ViaChanges {
   std::vector<std::string> gone;
   std::vector<std::string> come;
};

ViaChanges viaChanges(Picture::Destination const& from, Picture::Destination const& to);

/// The block of a picture, "16 of 7" (the first row, and how many), or "-".
std::string blockText(Picture::Destination const& destination);

/// What happened from one picture to a later one, for a person: which destinations came, went and moved, each
/// with the vias that are gone and those that have come; then the rows written between them as far as the log
/// keeps these, in the order in which the chip wrote them, decoded before and after.
std::string differenceText(Picture const& before, Picture const& after, RowLog const& log,
                           Paint const& paint);

/// The same up to now.
std::string differenceText(Agent const& agent, Picture const& before, Paint const& paint);

} // namespace L3TunnelAgent
