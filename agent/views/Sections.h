#pragma once

#include "agent/views/Json.h"
#include "agent/views/Names.h"
#include "agent/views/Users.h"
#include "chip/model/RowLayout.h"

#include <string>
#include <string_view>
#include <vector>

namespace L3TunnelAgent {

/// What a section is made from.
struct View {
   Agent const& agent;
   Users const& users; ///< of the agent's fabric
};

/// One of the things that can be shown of an agent: as text for a person and as JSON.
struct Section {
   std::string_view name;     ///< by which a person asks for it
   std::string_view jsonName; ///< of its member in a JSON document
   std::string (*text)(View const&, Paint const&);
   Json (*json)(View const&);
   std::vector<ModelChip::RowLayout const*> tables; ///< the hardware tables that its entries have rows in
   bool isShownByDefault{true};
};

Section destinationsSection();
/// One destination as that section has it.
Json destinationJson(Agent const& agent, ProgrammedDestination const& destination);

Section groupsSection();
Section blocksSection();
Section nextHopsSection();
Section interfacesSection();
Section tablesSection();
Section allocatorsSection();
Section handlesSection();

/// All of them, from a destination down to its interfaces, then what is beneath.
std::vector<Section> const& sections();

/// The section of that name; null when there is none.
Section const* section(std::string_view name);

} // namespace L3TunnelAgent
