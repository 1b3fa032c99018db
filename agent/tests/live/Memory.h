#pragma once

#include <cstddef>
#include <sys/types.h>
#include <vector>

namespace L3TunnelAgent::Live {

/// @return bytes of memory that a process has now. Throws std::runtime_error when it is gone.
std::size_t residentBytes(pid_t process);

/// @return how much memory grew: the middle sample of the last third over the middle one of the second third,
/// so that the first third is warm-up and single peaks do not count. Throws std::invalid_argument with fewer
/// than 9 samples.
double growth(std::vector<std::size_t> const& samples);

} // namespace L3TunnelAgent::Live
