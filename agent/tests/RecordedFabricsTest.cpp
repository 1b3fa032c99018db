#include "agent/Derivation.h"
#include "agent/MessageReader.h"
#include "agent/RoundReader.h"
#include "agent/tests/Expected.h"
#include "agent/tests/StateBuilder.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace L3TunnelAgent {

namespace {

char const* const kindNames[] = {"unicast", "cpu", "drop"};

std::optional<std::string>
name(KernelState const& state, std::optional<int> index) {
   return index ? std::optional(state.linkName(*index)) : std::nullopt;
}

/// "neighbour unresolved: FAILED" is "neighbour-unresolved".
std::string
inOneWord(std::string reason) {
   reason.resize(std::min(reason.find(':'), reason.size()));
   std::replace(reason.begin(), reason.end(), ' ', '-');
   return reason;
}

ExpectedVia
named(KernelState const& state, DerivedVia const& via) {
   return {.kind = kindNames[static_cast<int>(via.kind)],
           .mac = via.mac ? std::optional(via.mac->text()) : std::nullopt,
           .device = name(state, via.device),
           .port = name(state, via.port),
           .vlan = via.vlan,
           .tagged = via.tagged,
           .weight = via.weight,
           .reason = inOneWord(via.reason)};
}

ExpectedVias
named(KernelState const& state, std::vector<Destination> const& all) {
   ExpectedVias result;
   for (auto const& destination : all) {
      auto& vias = result[destination.address.text()];
      for (auto const& via : destination.vias) {
         vias.insert(named(state, via));
      }
   }
   return result;
}

std::vector<Destination>
listed(std::map<IpAddress, Destination> const& destinations) {
   std::vector<Destination> result;
   for (auto const& [address, destination] : destinations) {
      result.push_back(destination);
   }
   return result;
}

/// What is derived from a snapshot must be what the fabric's configuration says of that moment.
void
expectConfigured(std::string const& fabric, std::string const& snapshot, KernelState const& state,
                 std::vector<Destination> const& all) {
   SCOPED_TRACE(snapshot);
   auto const expected = expectedVias(fabric, snapshot);
   auto const derived = named(state, all);
   std::size_t vias = 0;
   for (auto const& [destination, expectedSet] : expected) {
      auto const found = derived.find(destination);
      ASSERT_NE(found, derived.end()) << destination << " is missing";
      EXPECT_THAT(found->second, testing::ContainerEq(expectedSet)) << destination;
      vias += expectedSet.size();
   }
   for (auto const& [destination, set] : derived) {
      EXPECT_TRUE(expected.count(destination)) << destination << " is no destination";
   }
   EXPECT_GT(vias, 0U);
}

class RecordedFabric : public testing::TestWithParam<char const*> {
 protected:
   KernelState const state = recordedState(recordedFile(GetParam(), "dump.rnl.gz"));
};

} // namespace

TEST_P(RecordedFabric, EverySnapshotsOwnDumpHasTheViasOfTheConfiguration) {
   for (auto const& snapshot : testedSnapshots(GetParam())) {
      auto const dumped = recordedState(recordedFile(GetParam(), "dump.rnl.gz", snapshot));
      expectConfigured(GetParam(), snapshot, dumped, destinations(dumped));
   }
}

TEST_P(RecordedFabric, AnnouncementsUpToEverySnapshotLeadToTheViasOfTheConfiguration) {
   auto const tested = testedSnapshots(GetParam());
   Recording recording(recordedEvents(GetParam()));
   RoundReader reader(recording);
   KernelState announced;
   Derivation derivation(announced);
   std::size_t compared = 0;
   while (auto const round = reader.next(announced)) {
      derivation.update(announced.takeChanges());
      if (!round->snapshot || std::find(tested.begin(), tested.end(), *round->snapshot) == tested.end()) {
         continue;
      }
      expectConfigured(GetParam(), *round->snapshot, announced, listed(derivation.destinations()));
      EXPECT_EQ(derivation.destinations(), fromScratch(announced)) << *round->snapshot;
      ++compared;
   }
   EXPECT_EQ(compared, tested.size());
   RecordProperty("derived", static_cast<int>(derivation.derived()));
}

TEST_P(RecordedFabric, DestinationsAreOrderedAndAppearOnce) {
   auto const all = destinations(state);
   auto const disordered = std::adjacent_find(
         all.begin(), all.end(), [](auto const& a, auto const& b) { return a.address >= b.address; });
   EXPECT_EQ(disordered, all.end());
   for (auto const& destination : all) {
      EXPECT_NE(destination.vias.empty(), destination.reason.empty()) << destination.address.text();
   }
}

TEST_P(RecordedFabric, EveryWayOutHasItsSourceMacAndIsTakenByAVia) {
   auto const all = destinations(state);
   auto const egress = expectedEgress(GetParam());
   EXPECT_FALSE(egress.empty());
   for (auto const& way : egress) {
      bool taken = false;
      for (auto const& destination : all) {
         for (auto const& via : destination.vias) {
            if (via.kind == ViaKind::unicast && name(state, via.device) == way.device &&
                name(state, via.port) == way.port) {
               taken = true;
               EXPECT_EQ(via.sourceMac, MacAddress::parse(way.sourceMac));
               EXPECT_EQ(via.vlan, way.vlan);
               EXPECT_EQ(via.tagged, way.tagged);
            }
         }
      }
      EXPECT_TRUE(taken) << way.device << " by " << way.port;
   }
}

INSTANTIATE_TEST_SUITE_P(Leaf, RecordedFabric, testing::ValuesIn(fabrics), [](auto const& parameter) {
   std::string text = parameter.param;
   std::replace(text.begin(), text.end(), '-', '_');
   return text;
});

} // namespace L3TunnelAgent
