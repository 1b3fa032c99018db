#pragma once

#include <compare>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// A via as the configuration of a recorded fabric has it, devices by name.
struct ExpectedVia {
   std::string kind; // "unicast", "cpu" or "drop"
   std::optional<std::string> mac;
   std::optional<std::string> device;
   std::optional<std::string> port;
   std::optional<std::uint16_t> vlan;
   std::optional<bool> tagged;
   unsigned weight{1};
   std::string reason; // in one word, "neighbour-unresolved"; empty for a usable via

   auto operator<=>(ExpectedVia const&) const = default;
};

std::ostream& operator<<(std::ostream& out, ExpectedVia const& via);

/// The way out of the recorded machine to one of its neighbours.
struct ExpectedEgress {
   std::string device;
   std::string port;
   std::string sourceMac;
   std::optional<std::uint16_t> vlan;
   bool tagged{};
};

using ExpectedVias = std::map<std::string /* destination */, std::multiset<ExpectedVia>>;

/// The fabrics that were recorded.
inline constexpr char const* fabrics[] = {"small", "mixed", "mixed-inline", "big"};

/// The snapshot that was taken of each fabric before anything was done to it.
inline constexpr auto firstSnapshot = "00-initial";

/// @return a file of a recorded fabric's snapshot: recordedFile("small", "dump.rnl.gz").
std::filesystem::path recordedFile(std::string const& fabric, std::string const& name,
                                   std::string const& snapshot = firstSnapshot);

/// @return the recording of what was announced in a fabric.
std::filesystem::path recordedEvents(std::string const& fabric);

/// @return the names of a fabric's snapshots in the order in which they were taken.
std::vector<std::string> snapshots(std::string const& fabric);

/// @return those of them that a test goes through: all where that is fast, otherwise the first, a middle and
/// the last one of the large fabric and all of the others.
std::vector<std::string> testedSnapshots(std::string const& fabric);

/// @return the vias of every destination of a fabric. A file that cannot be read is a std::runtime_error.
ExpectedVias expectedVias(std::string const& fabric, std::string const& snapshot = firstSnapshot);

/// As above, from a plain or gzip file of that form anywhere.
ExpectedVias expectedViasOf(std::filesystem::path const& file);

/// @return the ways out of a fabric's recorded machine.
std::vector<ExpectedEgress> expectedEgress(std::string const& fabric,
                                           std::string const& snapshot = firstSnapshot);

} // namespace L3TunnelAgent
