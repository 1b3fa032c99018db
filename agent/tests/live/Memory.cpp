#include "agent/tests/live/Memory.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <stdexcept>
#include <string>

namespace L3TunnelAgent::Live {

std::size_t
residentBytes(pid_t process) {
   std::ifstream status(fmt::format("/proc/{}/status", process));
   for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmRSS:")) {
         return std::stoul(line.substr(6)) * 1024;
      }
   }
   throw std::runtime_error(fmt::format("process {} has no memory", process));
}

double
growth(std::vector<std::size_t> const& samples) {
   if (samples.size() < 9) {
      throw std::invalid_argument("too few samples of memory");
   }
   auto const third = static_cast<std::ptrdiff_t>(samples.size() / 3);
   auto const middle = [](auto first, auto last) {
      std::vector<std::size_t> part(first, last);
      std::nth_element(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(part.size() / 2), part.end());
      return static_cast<double>(part[part.size() / 2]);
   };
   return middle(samples.end() - third, samples.end()) /
          middle(samples.begin() + third, samples.end() - third);
}

} // namespace L3TunnelAgent::Live
