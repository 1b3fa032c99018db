#include "agent/views/Names.h"

#include "agent/Cause.h"
#include "types/SwFieldTypes.h"

#include <algorithm>
#include <fmt/format.h>

namespace L3TunnelAgent {

using ZandorL3Tunnel::DestinationType;

std::string
deviceText(KernelState const& kernel, int device) {
   return printable(kernel.linkName(device));
}

std::string
portText(Agent const& agent, std::uint16_t number) {
   int const device = agent.fabric().ports().device(number);
   return device ? fmt::format("{} ({})", number, deviceText(agent.kernel(), device))
                 : std::to_string(number);
}

std::string
viaText(KernelState const& kernel, ProgrammedVia const& programmed) {
   auto const& via = programmed.via;
   std::string shown = via.kind == ViaKind::drop ? "drop"
                       : via.device              ? deviceText(kernel, *via.device)
                                                 : "cpu";
   if (via.device && programmed.isToCpu()) {
      shown += " to cpu";
   }
   if (via.port && via.port != via.device) {
      shown += fmt::format("@{}", deviceText(kernel, *via.port));
   }
   if (via.weight > 1) {
      shown += fmt::format(" weight {}", via.weight);
   }
   for (auto const* reason : {&via.reason, &programmed.shortOf}) {
      if (!reason->empty()) {
         shown += fmt::format(" ({})", printable(*reason));
      }
   }
   return programmed.isProgrammed ? shown : "[" + shown + "]";
}

namespace {

std::string
viasText(KernelState const& kernel, ViaSet const& set) {
   std::string text;
   for (auto const& via : set.vias()) {
      text += (text.empty() ? "" : ", ") + viaText(kernel, via);
   }
   return text;
}

} // namespace

std::string
viasText(KernelState const& kernel, ProgrammedDestination const& destination) {
   std::string text;
   if (keepsOldSet(destination)) {
      text = fmt::format("keeps {}; wants {}", viasText(kernel, *destination.current),
                         viasText(kernel, *destination.wanted));
   } else if (auto const* set = destination.set()) {
      text = viasText(kernel, *set);
   }
   if (auto const reason = reasonText(destination); !reason.empty()) {
      text += (text.empty() ? "" : ": ") + printable(reason);
   }
   return text;
}

bool
keepsOldSet(ProgrammedDestination const& destination) {
   return destination.current && destination.wanted && !destination.wanted->block;
}

std::string
reasonText(ProgrammedDestination const& destination) {
   if (!destination.reason.empty() || !destination.group || !hasFailed(destination.state())) {
      return destination.reason;
   }
   return causeOfGroup(*destination.group);
}

std::string
reasonWord(ProgrammedVia const& via) {
   std::string reason = via.via.reason.empty() ? via.shortOf : via.via.reason;
   reason.resize(std::min(reason.find(':'), reason.size()));
   std::replace(reason.begin(), reason.end(), ' ', '-');
   return reason;
}

bool
isInTheChip(ViaSet const& set, ProgrammedVia const& via) {
   return via.isProgrammed && set.block && !set.block->isFailed();
}

std::string
sendsTo(unsigned destinationType) {
   switch (DestinationType(destinationType)) {
   case DestinationType::unicast:
      return "port";
   case DestinationType::system:
      return "cpu";
   case DestinationType::invalidDestination:
      return "nowhere";
   default:
      return std::to_string(destinationType);
   }
}

std::string
indexText(Asic::Index index) {
   return index == Asic::invalidIndex ? "-" : std::to_string(index);
}

bool
hasFailed(DestinationState state) {
   return state == DestinationState::failed || state == DestinationState::failedNeededEntry;
}

Style
styleOf(DestinationState state) {
   return state == DestinationState::success ? Style::good : hasFailed(state) ? Style::bad : Style::waiting;
}

Style
styleOf(Asic::SwTableBase::EntryState state) {
   using State = Asic::SwTableBase::EntryState;
   return state == State::success                                       ? Style::good
          : state == State::failed || state == State::failedNeededEntry ? Style::bad
                                                                        : Style::waiting;
}

std::string
addressesText(std::vector<IpAddress> const& addresses, std::size_t most) {
   std::string text;
   for (std::size_t at = 0; at < addresses.size() && at < most; ++at) {
      text += (text.empty() ? "" : ", ") + addresses[at].text();
   }
   return addresses.size() > most ? fmt::format("{} and {} more", text, addresses.size() - most) : text;
}

} // namespace L3TunnelAgent
