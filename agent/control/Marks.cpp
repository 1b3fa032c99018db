#include "agent/control/Marks.h"

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>

namespace L3TunnelAgent {

void
Marks::markIs(std::string const& name) {
   if (name.empty() || name.size() > longestName || printable(name) != name) {
      throw std::invalid_argument(
            fmt::format("mark {}: a name has 1 to {} printable characters", printable(name), longestName));
   }
   markDel(name);
   if (marks_.size() == most) {
      throw std::invalid_argument(fmt::format("mark {}: there are {} marks already", name, most));
   }
   marks_.push_back({.name = name, .time = std::chrono::system_clock::now(), .picture = pictureOf(agent_)});
   logIs();
}

bool
Marks::markDel(std::string const& name) {
   bool const wasThere = std::erase_if(marks_, [&](Mark const& each) { return each.name == name; }) != 0;
   if (wasThere) {
      logIs();
   }
   return wasThere;
}

Marks::Mark const*
Marks::mark(std::string const& name) const {
   auto const found =
         std::find_if(marks_.begin(), marks_.end(), [&](Mark const& each) { return each.name == name; });
   return found == marks_.end() ? nullptr : &*found;
}

void
Marks::logIs() {
   agent_.rows().isKept(!marks_.empty(), mostRows);
   if (!marks_.empty()) {
      agent_.rows().writesDel(marks_.front().picture.rowsWritten);
   }
}

} // namespace L3TunnelAgent
