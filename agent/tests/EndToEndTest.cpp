#include "agent/Fabric.h"
#include "agent/MessageReader.h"
#include "agent/tests/Expected.h"
#include "chip/model/Forwarding.h"
#include "types/SwFieldTypes.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

using testing::ContainerEq;
using testing::IsEmpty;

/// Where a packet ends up, and what its Ethernet header says. Only the first field is set when it goes to the
/// CPU or nowhere.
struct Reached {
   std::string kind;
   std::string neighbour;
   std::string source;
   std::string port;
   std::optional<std::uint16_t> tag;

   auto operator<=>(Reached const&) const = default;
};

std::ostream&
operator<<(std::ostream& out, Reached const& reached) {
   return out << reached.kind << " " << reached.neighbour << " from " << reached.source << " by "
              << reached.port << " tag " << (reached.tag ? std::to_string(*reached.tag) : "-");
}

class EndToEnd : public testing::TestWithParam<char const*> {
 protected:
   EndToEnd() {
      fabric.chip().rowObserverIs([this](ModelChip::Table const&, Asic::Index) { ++rowsApplied; });
      fabric.program(state, destinations(state));
   }

   std::string sourceOf(std::string const& device, std::string const& port) const {
      for (auto const& way : egress) {
         if (way.device == device && way.port == port) {
            return way.sourceMac;
         }
      }
      return "no source MAC is known for " + device + " by " + port;
   }

   /// What the configuration says a destination must reach. Vias that only the CPU could serve count where no
   /// other forwards.
   std::set<Reached> wanted(std::multiset<ExpectedVia> const& vias) const {
      std::set<Reached> forwarding;
      std::set<Reached> others;
      for (auto const& via : vias) {
         if (via.kind == "unicast" && via.port) {
            forwarding.insert({"unicast", *via.mac, sourceOf(*via.device, *via.port), *via.port,
                               *via.tagged ? via.vlan : std::nullopt});
         } else {
            others.insert({via.kind == "drop" ? "drop" : "cpu", "", "", "", {}});
         }
      }
      return forwarding.empty() ? others : forwarding;
   }

   std::set<Reached> reached(ModelChip::GroupRows const& rows) const {
      using ZandorL3Tunnel::DestinationType;
      std::set<Reached> all;
      for (auto const& hop : rows.hops) {
         if (hop.destinationType == unsigned(DestinationType::unicast) && hop.interface) {
            auto tag = hop.interface->tagged ? std::optional(hop.interface->vlanTag) : std::nullopt;
            all.insert({"unicast", Nuv::text(hop.dstMac), Nuv::text(hop.interface->srcMac),
                        state.linkName(fabric.portDevice(hop.destinationId)), tag});
         } else {
            bool isCpu = hop.destinationType == unsigned(DestinationType::system);
            all.insert({isCpu ? "cpu" : "drop", "", "", "", {}});
         }
      }
      return all;
   }

   KernelState const state = recordedState(recordedFile(GetParam(), "dump.rnl.gz"));
   ExpectedVias const expected = expectedVias(GetParam());
   std::vector<ExpectedEgress> const egress = expectedEgress(GetParam());
   Fabric fabric;
   std::size_t rowsApplied{};
};

TEST_P(EndToEnd, ChipForwardsEveryDestinationOverExactlyItsVias) {
   fabric.settle();
   EXPECT_EQ(fabric.destinations().size(), expected.size());
   for (auto const& destination : fabric.destinations()) {
      auto const& vias = expected.at(destination.address.text());
      if (vias.empty()) {
         EXPECT_FALSE(destination.group) << destination.address.text();
         EXPECT_FALSE(destination.reason.empty()) << destination.address.text();
         continue;
      }
      ASSERT_TRUE(destination.group) << destination.address.text();
      EXPECT_EQ(destination.group->entryState(), Asic::SwTableBase::success());
      auto rows = ModelChip::followGroup(fabric.chip(), destination.group->hwEntryIndex());
      EXPECT_EQ(rows.problem, "") << destination.address.text();
      auto found = reached(rows);
      EXPECT_THAT(found, ContainerEq(wanted(vias))) << destination.address.text();
      if (found.begin()->kind == "unicast") {
         EXPECT_EQ(rows.hops.size(), found.size()) << "a member twice: " << destination.address.text();
      }
   }
   EXPECT_THAT(ModelChip::danglingRows(fabric.chip()), IsEmpty());
}

TEST_P(EndToEnd, EachRowIsWrittenOnceAndEqualSetsShareTheirs) {
   fabric.settle();
   std::size_t rows = 0;
   for (auto const& table : fabric.chip().tables()) {
      rows += table->rowsPresent();
   }
   EXPECT_EQ(rowsApplied, rows);

   std::set<std::set<Reached>> forwardingSets;
   std::set<Asic::Index> forwardingBlocks;
   for (auto const& destination : fabric.destinations()) {
      auto set = wanted(expected.at(destination.address.text()));
      if (!set.empty() && set.begin()->kind == "unicast") {
         forwardingSets.insert(set);
         forwardingBlocks.insert(destination.block->hwEntryIndex());
      }
   }
   EXPECT_EQ(forwardingBlocks.size(), forwardingSets.size());
}

TEST_P(EndToEnd, NoRowPointsAtOneThatIsNotThereFromTheFirstToTheLast) {
   // The whole chip is looked through, so on the large fabric not after each of its thousands of rows.
   std::size_t stride = 1 + fabric.destinations().size() / 100;
   fabric.chip().rowObserverIs([&](ModelChip::Table const&, Asic::Index) {
      if (++rowsApplied % stride == 0) {
         ASSERT_THAT(ModelChip::danglingRows(fabric.chip()), IsEmpty());
      }
   });
   fabric.settle();
   EXPECT_GT(rowsApplied, 0u);
   fabric.clear();
   for (auto const& table : fabric.chip().tables()) {
      EXPECT_EQ(table->rowsPresent(), 0u) << table->shape().name;
      EXPECT_EQ(table->unanswered(), 0u) << table->shape().name;
   }
   auto const& programmer = fabric.programmer();
   EXPECT_EQ(fabric.interfaces().handles().size(), 0u);
   EXPECT_EQ(fabric.groups().handles().size(), 0u);
   EXPECT_EQ(fabric.groups().indexAllocator()->holders(), 0u);
   EXPECT_EQ(programmer.l3EcmpMemberTable()->handles().size(), 0u);
   EXPECT_EQ(programmer.l3EcmpMemberTable()->indexAllocator()->holders(), 0u);
   EXPECT_EQ(programmer.l3EcmpNextHopTable()->handles().size(), 0u);
   EXPECT_EQ(programmer.l3EcmpNextHopTable()->indexAllocator()->holders(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Leaf, EndToEnd, testing::Values("small", "mixed", "mixed-inline", "big"),
                         [](auto const& parameter) {
                            std::string text = parameter.param;
                            std::replace(text.begin(), text.end(), '-', '_');
                            return text;
                         });

} // namespace
} // namespace L3TunnelAgent
