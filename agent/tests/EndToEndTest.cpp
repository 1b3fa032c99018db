#include "agent/Agent.h"
#include "agent/MessageReader.h"
#include "agent/tests/Expected.h"
#include "agent/tests/FabricDriver.h"

namespace L3TunnelAgent {
namespace {

using testing::ContainerEq;
using testing::IsEmpty;

// What sanitizers and the smaller machine take too long for.
#ifdef L3TUNNEL_LONG_TESTS
constexpr unsigned flowsPerSet = 1000;
#else
constexpr unsigned flowsPerSet = 64;
#endif

/// Where a packet ends up, and what its Ethernet header says, by names. Only the first field is set when it
/// goes to the CPU or nowhere.
struct NamedReach {
   std::string kind;
   std::string neighbour;
   std::string source;
   std::string port;
   std::optional<std::uint16_t> tag;

   auto operator<=>(NamedReach const&) const = default;
};

std::ostream&
operator<<(std::ostream& out, NamedReach const& reach) {
   return out << reach.kind << " " << reach.neighbour << " from " << reach.source << " by " << reach.port
              << " tag " << (reach.tag ? std::to_string(*reach.tag) : "-");
}

using NamedReaches = std::set<NamedReach>;

/// A programmed chip against what a snapshot's configuration says.
class Truth {
 public:
   Truth(Agent const& agent, std::string const& fabric, std::string const& snapshot)
       : agent_(agent)
       , expected_(expectedVias(fabric, snapshot))
       , egress_(expectedEgress(fabric, snapshot)) {}

   /// Expects that the chip forwards every destination over exactly its vias.
   void check() {
      EXPECT_EQ(agent_.fabric().destinations().size(), expected_.size());
      for (auto const& [address, destination] : agent_.fabric().destinations()) {
         SCOPED_TRACE(address.text());
         auto const expected = expected_.find(address.text());
         ASSERT_NE(expected, expected_.end()) << "is no destination";
         checkDestination(destination, expected->second);
      }
      EXPECT_THAT(ModelChip::danglingRows(chip()), IsEmpty());
      EXPECT_EQ(agent_.rows().needless(), 0U) << "rows written with the words that they had";
   }

   std::size_t flows() const { return flows_; }

 private:
   ModelChip::Chip const& chip() const { return agent_.fabric().chip(); }

   void checkDestination(ProgrammedDestination const& destination, std::multiset<ExpectedVia> const& vias) {
      if (vias.empty()) {
         EXPECT_EQ(destination.state(), DestinationState::noRoute);
         EXPECT_FALSE(destination.group);
         EXPECT_FALSE(destination.reason.empty());
         return;
      }
      ASSERT_EQ(destination.state(), DestinationState::success) << destination.reason;
      auto const rows = ModelChip::followGroup(chip(), destination.group->hwEntryIndex());
      EXPECT_EQ(rows.problem, "");
      NamedReaches found;
      for (auto const& hop : rows.hops) {
         found.insert(named(hop));
      }
      EXPECT_THAT(found, ContainerEq(wanted(vias)));
      EXPECT_EQ(rows.hops.size(), found.size()) << "a member twice";
      if (sets_.insert(rows.base).second) {
         checkFlows(rows, found);
      }
   }

   // Flows enough, and more until every path was taken.
   void checkFlows(ModelChip::GroupRows const& rows, NamedReaches const& wanted) {
      NamedReaches met;
      std::set<std::uint32_t> paths;
      for (unsigned number = 0; number < flowsPerSet || paths.size() < rows.hops.size(); ++number, ++flows_) {
         ASSERT_LT(number, 100'000U) << "flows leave paths out";
         ModelChip::Flow flow;
         flow.source.bytes = {10, 0, std::uint8_t(number >> 8), std::uint8_t(number)};
         flow.destination.bytes = {10, 1, 2, 3};
         flow.protocol = 17;
         flow.sourcePort = std::uint16_t(49152 + number * 13 % 16384);
         flow.destinationPort = 4789;
         auto const way = ModelChip::followFlow(chip(), rows.group, flow);
         ASSERT_EQ(way.problem, "");
         paths.insert(way.path);
         met.insert(named(way.hop));
      }
      EXPECT_THAT(met, ContainerEq(wanted));
   }

   NamedReach named(ModelChip::HopRows const& hop) const {
      using ZandorL3Tunnel::DestinationType;
      if (hop.destinationType == unsigned(DestinationType::unicast) && hop.interface) {
         auto const tag = hop.interface->tagged ? std::optional(hop.interface->vlanTag) : std::nullopt;
         int const device = agent_.fabric().ports().device(hop.destinationId);
         return {"unicast", Nuv::text(hop.dstMac), Nuv::text(hop.interface->srcMac),
                 agent_.kernel().linkName(device), tag};
      }
      return {hop.destinationType == unsigned(DestinationType::system) ? "cpu" : "drop", "", "", "", {}};
   }

   std::string sourceOf(std::string const& device, std::string const& port) const {
      for (auto const& way : egress_) {
         if (way.device == device && way.port == port) {
            return way.sourceMac;
         }
      }
      // A device is its own source by whatever port.
      for (auto const& way : egress_) {
         if (way.device == device) {
            return way.sourceMac;
         }
      }
      return "no source MAC is known for " + device + " by " + port;
   }

   /// What the configuration says a destination must reach. Vias that only the CPU could serve count where no
   /// other forwards.
   NamedReaches wanted(std::multiset<ExpectedVia> const& vias) const {
      NamedReaches forwarding;
      NamedReaches others;
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

   Agent const& agent_;
   ExpectedVias expected_;
   std::vector<ExpectedEgress> egress_;
   std::set<Asic::Index> sets_;
   std::size_t flows_{};
};

class EndToEnd : public testing::TestWithParam<char const*> {
 protected:
   static void dump(Agent& agent, std::string const& fabric, std::string const& snapshot) {
      Recording recording(recordedFile(fabric, "dump.rnl.gz", snapshot));
      play(agent, recording, std::nullopt);
   }
};

} // namespace

TEST_P(EndToEnd, EverySnapshotsDumpBringsTheChipToTheTruth) {
   std::size_t flows = 0;
   for (auto const& snapshot : testedSnapshots(GetParam())) {
      SCOPED_TRACE(snapshot);
      Agent agent;
      dump(agent, GetParam(), snapshot);
      Truth truth(agent, GetParam(), snapshot);
      truth.check();
      flows += truth.flows();
      std::size_t rows = 0;
      for (auto const& table : agent.fabric().chip().tables()) {
         rows += table->rowsPresent();
      }
      EXPECT_EQ(agent.rows().count(), rows) << "each row is written once";
      agent.fabric().clear();
      expectEmpty(agent.fabric());
   }
   EXPECT_GT(flows, 0U);
   RecordProperty("flows", int(flows));
}

TEST_P(EndToEnd, EventsBringTheChipToTheTruthOfEverySnapshot) {
   Agent agent;
   Recording recording(recordedEvents(GetParam()));
   auto const tested = testedSnapshots(GetParam());
   std::size_t met = 0;
   play(agent, recording, std::nullopt, [&](std::string const& snapshot) {
      if (std::find(tested.begin(), tested.end(), snapshot) != tested.end()) {
         SCOPED_TRACE(snapshot);
         ++met;
         Truth(agent, GetParam(), snapshot).check();
      }
   });
   EXPECT_EQ(met, tested.size());
   agent.fabric().clear();
   expectEmpty(agent.fabric());
   EXPECT_EQ(agent.rows().needless(), 0U);
}

TEST_P(EndToEnd, NoRowPointsAtOneThatIsNotThereFromTheFirstToTheLast) {
   KernelState const state = recordedState(recordedFile(GetParam(), "dump.rnl.gz"));
   Fabric fabric;
   auto const all = destinations(state);
   for (auto const& destination : all) {
      fabric.destinationIs(destination);
   }
   // The whole chip is looked through, so on the large fabric not after each of its thousands of rows.
   std::size_t const stride = 1 + all.size() / 100;
   std::size_t rowsApplied = 0;
   fabric.chip().rowObserverIs([&](ModelChip::Table const&, Asic::Index) {
      if (++rowsApplied % stride == 0) {
         ASSERT_THAT(ModelChip::danglingRows(fabric.chip()), IsEmpty());
      }
   });
   fabric.settle();
   EXPECT_GT(rowsApplied, 0U);
   fabric.clear();
   expectEmpty(fabric);
}

INSTANTIATE_TEST_SUITE_P(Leaf, EndToEnd, testing::ValuesIn(fabrics), [](auto const& parameter) {
   std::string text = parameter.param;
   std::replace(text.begin(), text.end(), '-', '_');
   return text;
});

} // namespace L3TunnelAgent
