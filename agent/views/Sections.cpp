#include "agent/views/Sections.h"

#include <algorithm>

namespace L3TunnelAgent {

std::vector<Section> const&
sections() {
   static std::vector<Section> const all{destinationsSection(), groupsSection(),     blocksSection(),
                                         nextHopsSection(),     interfacesSection(), tablesSection(),
                                         allocatorsSection(),   handlesSection()};
   return all;
}

Section const*
section(std::string_view name) {
   auto const found = std::find_if(sections().begin(), sections().end(),
                                   [&](auto const& each) { return each.name == name; });
   return found == sections().end() ? nullptr : &*found;
}

} // namespace L3TunnelAgent
