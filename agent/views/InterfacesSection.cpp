#include "agent/views/Sections.h"
#include "agent/views/TextTable.h"
#include "chip/model/Layouts.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

using ZandorL3Tunnel::EgrL3Oif2;

namespace {

using Handles = std::vector<Nuv::Ptr<EgrL3Oif2::EntryHandle>>;

Handles
interfacesByIndex(Fabric const& fabric) {
   Handles all;
   fabric.interfaces().table().handles().forEach([&](auto& handle) { all.emplace_back(&handle); });
   std::sort(all.begin(), all.end(), [](auto const& a, auto const& b) { return a->key() < b->key(); });
   return all;
}

std::string
devicesText(View const& view, Asic::Index index) {
   std::string text;
   for (auto const& [device, vlan] : view.users.devicesOf(index)) {
      text += (text.empty() ? "" : " ") + deviceText(view.agent.kernel(), device);
   }
   return text.empty() ? "-" : text;
}

std::string
interfacesText(View const& view, Paint const& paint) {
   TextTable table("INTERFACES: what the Ethernet header of a tunnel packet carries",
                   {"interface", "state", "source MAC", "VLAN tag", "devices", "destinations"});
   for (auto const& handle : interfacesByIndex(view.agent.fabric())) {
      auto const entry = view.agent.fabric().interfaces().table().entry(handle->key());
      table.rowIs({indexText(handle->key()),
                   {Nuv::text(handle->entryState()), styleOf(handle->entryState())},
                   entry ? Nuv::text(entry->srcMacAddress) : "-",
                   !entry                         ? "-"
                   : entry->isUnderlayL2HdrTagged ? std::to_string(entry->tnlVlanTag)
                                                  : "untagged",
                   devicesText(view, handle->key()),
                   std::to_string(view.users.ofInterface(handle->key()).size())});
   }
   return table.text(paint);
}

// One for each device that uses the entry, since that is what has a VLAN whether it is sent or not.
Json
interfacesJson(View const& view) {
   Json all = Json::array();
   for (auto const& handle : interfacesByIndex(view.agent.fabric())) {
      auto const entry = view.agent.fabric().interfaces().table().entry(handle->key());
      auto const interface = [&](Json device, Json vlan) {
         all.push_back({{"dev", std::move(device)},
                        {"src_mac", entry ? Json(Nuv::text(entry->srcMacAddress)) : Json()},
                        {"tagged", entry ? Json(entry->isUnderlayL2HdrTagged) : Json()},
                        {"vlan", std::move(vlan)},
                        {"index", handle->key()}});
      };
      auto const& devices = view.users.devicesOf(handle->key());
      for (auto const& [device, vlan] : devices) {
         interface(view.agent.kernel().linkName(device), vlan ? Json(*vlan) : Json());
      }
      if (devices.empty()) {
         interface(nullptr, entry && entry->isUnderlayL2HdrTagged ? Json(entry->tnlVlanTag) : Json());
      }
   }
   return all;
}

} // namespace

Section
interfacesSection() {
   return {"interfaces", "interfaces", interfacesText, interfacesJson, {&ModelChip::EgrL3Oif2::layout}};
}

} // namespace L3TunnelAgent
