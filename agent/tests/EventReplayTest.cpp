#include "agent/MessageReader.h"
#include "agent/Recording.h"
#include "agent/tests/Expected.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

/// What is compared of a state: one line per thing, so that a difference reads as what it is.
using Lines = std::set<std::string>;

std::string
text(std::optional<std::uint32_t> number) {
   return number ? std::to_string(*number) : "-";
}

std::string
text(KernelState const& state, NextHop const& hop, IpAddress::Family family = IpAddress::Family::v4) {
   auto const [dead, linkdown] = state.hopState(hop, family);
   return (hop.gateway ? hop.gateway->text() : "-") + " dev " + state.linkName(hop.device) + " weight " +
          std::to_string(hop.weight) + (dead ? " dead" : "") + (linkdown ? " linkdown" : "") + ", ";
}

void
addLinks(KernelState const& state, Lines& lines) {
   for (auto const& [index, link] : state.links()) {
      lines.insert("link " + std::to_string(index) + " " + link.name + " kind " +
                   std::to_string(static_cast<int>(link.kind)) + (link.isUp() ? " up" : "") +
                   (link.hasCarrier() ? " carrier " : " ") + (link.mac ? link.mac->text() : "-") + " lower " +
                   std::to_string(link.lower.value_or(0)) + " master " +
                   std::to_string(link.master.value_or(0)) + " ignores linkdown " +
                   std::to_string(link.ignoreLinkdown));
   }
   for (auto const& [device, vlans] : state.portVlans()) {
      std::string line = "VLANs of " + state.linkName(device);
      for (auto const& range : vlans.ranges()) {
         line += " " + std::to_string(range.first) + "-" + std::to_string(range.last) + "/" +
                 std::to_string(range.flags);
      }
      lines.insert(line);
   }
}

void
addEntries(KernelState const& state, Lines& lines) {
   unsigned const usable = NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT | NUD_NOARP;
   for (auto const& [key, neighbour] : state.neighbours()) {
      bool const isGroup = key.address.family == IpAddress::Family::v6 && key.address.bytes[0] == 0xff;
      if ((neighbour.state & usable) && !isGroup) {
         lines.insert("neighbour " + key.address.text() + " dev " + state.linkName(key.device) + " " +
                      (neighbour.mac ? neighbour.mac->text() : "-"));
      }
   }
   for (auto const& [key, port] : state.bridgeEntries()) {
      lines.insert("entry of bridge " + state.linkName(key.bridge) + " VLAN " + std::to_string(key.vlan) +
                   " " + key.mac.text() + " by " + state.linkName(port));
   }
   for (auto const& [key, entry] : state.vxlanEntries()) {
      lines.insert("entry of " + state.linkName(key.device) + " " + key.mac.text() + " to " +
                   (entry.destination ? entry.destination->text() : "-") + " object " +
                   text(entry.nextHopId));
   }
}

void
addObjects(KernelState const& state, Lines& lines) {
   for (auto const& [id, object] : state.nextHops()) {
      std::string line = "next hop " + std::to_string(id) + (object.blackhole ? " blackhole " : " ") +
                         (object.fdb ? "fdb " : "") + text(state, object.hop);
      for (auto const& member : object.group) {
         line += " " + std::to_string(member.id) + "*" + std::to_string(member.weight);
      }
      lines.insert(line);
   }
}

void
addRoutes(KernelState const& state, IpAddress::Family family, Lines& lines) {
   for (std::uint32_t id = 0; id <= RT_TABLE_LOCAL; ++id) {
      if (auto const* const table = state.table(family, id)) {
         table->each([&](Prefix const& prefix, RouteTable::Routes const& routes) {
            for (Route const& route : routes) {
               std::string line = "route " + prefix.text() + " table " + std::to_string(id) + " type " +
                                  std::to_string(route.type) + " metric " + std::to_string(route.metric) +
                                  " object " + text(route.nextHopId) + " ";
               // What is for the machine itself needs no carrier: the kernel marks no such hop, and none of
               // them is ever asked about.
               bool const isOwn = route.type == RTN_LOCAL || route.type == RTN_ANYCAST;
               for (NextHop const& hop : route.hops) {
                  line += isOwn ? "dev " + state.linkName(hop.device) : text(state, hop, family);
               }
               lines.insert(line);
            }
         });
      }
   }
}

Lines
linesOf(KernelState const& state) {
   Lines lines;
   addLinks(state, lines);
   addEntries(state, lines);
   addObjects(state, lines);
   addRoutes(state, IpAddress::Family::v4, lines);
   addRoutes(state, IpAddress::Family::v6, lines);
   return lines;
}

/// @return the lines that only one of both has, "- " in front of those of the first, "+ " of the second.
Lines
difference(Lines const& events, Lines const& dump) {
   Lines result;
   for (auto const& line : events) {
      if (!dump.count(line)) {
         result.insert("- " + line);
      }
   }
   for (auto const& line : dump) {
      if (!events.count(line)) {
         result.insert("+ " + line);
      }
   }
   return result;
}

/// What the kernel came to without announcing it, though nothing that was announced leads there.
Lines
unannounced(std::string const& fabric, std::string const& snapshot) {
   // Something was sent to 0.0.0.0 over the loopback, which needs no neighbour: the kernel made an entry
   // (NOARP) that no announcement in the recording names, but every dump from then on.
   if (fabric == "small" && snapshot >= "10") {
      return {"+ neighbour 0.0.0.0 dev lo 00:00:00:00:00:00"};
   }
   return {};
}

class EventReplay : public testing::TestWithParam<char const*> {};

} // namespace

TEST_P(EventReplay, LeadsToTheStateOfEachSnapshotsOwnDump) {
   auto const tested = testedSnapshots(GetParam());
   KernelState state;
   Recording recording(recordedEvents(GetParam()));
   std::size_t compared = 0;
   while (auto const frame = recording.next()) {
      if (frame->kind != FrameKind::marker) {
         applyDatagram(state, frame->payload);
         continue;
      }
      auto const* const begin = reinterpret_cast<char const*>(frame->payload.data());
      auto const marker = nlohmann::json::parse(begin, begin + frame->payload.size());
      if (marker.at("marker") != "snapshot") {
         continue;
      }
      auto const name = marker.at("dir").get<std::string>();
      if (std::find(tested.begin(), tested.end(), name) == tested.end()) {
         continue;
      }
      auto const dump = recordedState(recordedFile(GetParam(), "dump.rnl.gz", name));
      EXPECT_THAT(difference(linesOf(state), linesOf(dump)),
                  testing::ContainerEq(unannounced(GetParam(), name)))
            << name;
      ++compared;
   }
   EXPECT_EQ(compared, tested.size());
}

INSTANTIATE_TEST_SUITE_P(Leaf, EventReplay, testing::ValuesIn(fabrics), [](auto const& parameter) {
   std::string text = parameter.param;
   std::replace(text.begin(), text.end(), '-', '_');
   return text;
});

} // namespace L3TunnelAgent
