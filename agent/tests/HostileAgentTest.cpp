#include "agent/tests/AgentProcess.h"
#include "agent/tests/Expected.h"
#include "agent/tests/FabricDriver.h"
#include "agent/tests/KernelMessages.h"
#include "agent/tests/PlayedAgent.h"
#include "agent/tests/RecordingBuilder.h"
#include "agent/views/Audit.h"
#include "platform/nuv/testing/Soak.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

/// The vias as the chip is to serve them: for those that there is no room for, the CPU does.
std::vector<DerivedVia>
servedVias(ViaSet const& set) {
   std::vector<DerivedVia> vias;
   for (auto const& via : set.vias()) {
      vias.push_back(via.shortOf.empty() ? via.via : otherVia(ViaKind::cpu));
   }
   return vias;
}

void
expectServed(Fabric const& fabric, ProgrammedDestination const& destination) {
   auto const state = destination.state();
   bool const isServed = state == DestinationState::success;
   EXPECT_TRUE(isServed || state == DestinationState::noRoute || state == DestinationState::failed ||
               state == DestinationState::failedNeededEntry)
         << text(state);
   EXPECT_EQ(isServed, destination.reason.empty()) << destination.reason;
   if (!destination.group) {
      EXPECT_FALSE(isServed);
      return;
   }
   auto const rows = ModelChip::followGroup(fabric.chip(), destination.group->hwEntryIndex());
   ASSERT_EQ(rows.problem, "");
   ASSERT_TRUE(destination.current) << "what the group points at";
   EXPECT_EQ(reached(rows), wanted(fabric, servedVias(*destination.current)));
}

/// Expects that every destination is served, or said not to be, and that the chip has just what the tables
/// say; then that nothing is left when all is taken out.
void
expectSound(Agent& agent) {
   auto& fabric = agent.fabric();
   for (auto const& [address, destination] : fabric.destinations()) {
      SCOPED_TRACE(address.text());
      expectServed(fabric, destination);
   }
   auto const result = audit(fabric);
   EXPECT_THAT(result.findings, IsEmpty()) << text(result, Paint());
   EXPECT_EQ(result.passedOver, 0U);
   EXPECT_THAT(ModelChip::danglingRows(fabric.chip()), IsEmpty());
   fabric.clear();
   expectEmpty(fabric);
}

/// Plays a file to the agent as far as it can be read.
/// @return whether all of it could be.
bool
isPlayed(Agent& agent, std::filesystem::path const& file) {
   std::optional<Recording> recording;
   try {
      recording.emplace(file);
      play(agent, *recording, std::nullopt);
   } catch (RecordingError const& error) {
      EXPECT_THAT(error.what(), HasSubstr(file.string()));
      if (recording) {
         EXPECT_THAT(error.what(), HasSubstr(": frame "));
      }
      return false;
   }
   return true;
}

using Random = std::mt19937;

std::size_t
below(Random& random, std::size_t end) {
   return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
}

/// The bytes cut short, with a few of them changed, or both.
std::string
damaged(Random& random, std::string bytes) {
   auto const how = below(random, 4);
   if (how != 0) {
      bytes.resize(1 + below(random, bytes.size()));
   }
   if (how != 1) {
      for (std::size_t count = 1 + below(random, 12); count > 0; --count) {
         char& byte = bytes[below(random, bytes.size())];
         byte = static_cast<char>(below(random, 2) ? byte ^ (1 << below(random, 8)) : random());
      }
   }
   return bytes;
}

/// A chip with little room in some of its tables.
ModelChip::Chip::Sizes
someSizes(Random& random) {
   ModelChip::Chip::Sizes sizes;
   Fabric const fabric;
   for (auto const& table : fabric.chip().tables()) {
      if (below(random, 3) == 0) {
         sizes[table->shape().name] = Asic::Index(below(random, 40));
      }
   }
   return sizes;
}

TEST(HostileAgentRandom, DamagedRecordingIsAnErrorOrAStateAndTheChipIsSoundAfterIt) {
   auto const packed = contentOf(recordedEvents("mixed"));
   auto const plain = rebuilt(recordedEvents("mixed")).bytes();
   Nuv::soak(24, [&](std::uint32_t seed, int steps) {
      Random random(seed);
      int refused = 0;
      for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
         SCOPED_TRACE("step " + std::to_string(step));
         TemporaryFile const file;
         file.write(damaged(random, step % 4 == 0 ? packed : plain));
         Agent agent({.sizes = step % 3 == 0 ? someSizes(random) : ModelChip::Chip::Sizes(),
                      .includeUnresolved = below(random, 2) != 0,
                      .dropToCpu = below(random, 4) == 0});
         refused += isPlayed(agent, file.path()) ? 0 : 1;
         expectSound(agent);
      }
      if (steps >= 20) { // few may all be read
         EXPECT_GT(refused, 0);
      }
   });
}

TEST(FullTables, LeaveEachDestinationServedOrFailedWithItsReason) {
   Fabric const fabric;
   for (auto const& table : fabric.chip().tables()) {
      auto const& name = table->shape().name;
      bool anyIsShort = false;
      for (Asic::Index const rows : {0U, 1U, 3U, 20U}) {
         SCOPED_TRACE(Nuv::text(name, " of ", rows, " rows"));
         auto const agent = playedAgent("big", {.sizes = {{name, rows}}});
         EXPECT_LE(rowsIn(agent->fabric(), name.c_str()), rows);
         for (auto const& [address, destination] : agent->fabric().destinations()) {
            auto const* set = destination.set();
            anyIsShort |= set && (destination.state() != DestinationState::success ||
                                  std::any_of(set->vias().begin(), set->vias().end(),
                                              [](auto const& via) { return !via.shortOf.empty(); }));
         }
         expectSound(*agent);
      }
      EXPECT_EQ(anyIsShort, name != "L3EcmpMember0Table") << name << ": all but this one are used";
   }
}

/// A machine with four uplinks and a vxlan device, told in a recording.
class ManyDestinations : public testing::Test {
 protected:
   static constexpr std::uint32_t count = 100'000;
   static constexpr std::uint32_t groups = 16'384; // of the chip, by default
   static constexpr int vxlan = 9;
   static constexpr std::uint32_t first = 0x0b000000;

   static std::string destinationText(std::uint32_t number) {
      return IpAddress::fromV4(first + number).text();
   }
   static std::string gatewayText(int port) { return "10.0.0." + std::to_string(port); }

   ManyDestinations() {
      tell(linkMessage(vxlan, "vx10", "vxlan"));
      for (int port = 1; port <= 4; ++port) {
         tell(linkMessage(port, ("swp" + std::to_string(port)).c_str(), "veth"));
         tell(neighbourMessage(port, gatewayText(port), "02:00:00:00:00:0" + std::to_string(port)));
      }
      routeIs("11.0.0.0", 9, 1);
      routeIs("11.1.0.0", 16, 3); // the last third
      for (std::uint32_t number = 0; number < count; ++number) {
         tell(tunnelMessage(RTM_NEWNEIGH, vxlan, destinationText(number)));
      }
      nextRound();
   }

   void routeIs(char const* to, std::uint8_t length, int port) {
      tell(routeMessage(RTM_NEWROUTE, to, length)
                 .u32(RTA_OIF, static_cast<std::uint32_t>(port))
                 .ip(RTA_GATEWAY, gatewayText(port)));
   }

   /// Adds a message to the datagram, which is sent when it is as long as the kernel makes them.
   void tell(MessageBuilder const& message) {
      auto const bytes = message.datagram();
      datagram_.insert(datagram_.end(), bytes.begin(), bytes.end());
      if (datagram_.size() > 30'000) {
         send();
      }
   }

   void nextRound() {
      send();
      nanoseconds_ += 10'000'000;
   }

   void played(Agent& agent) {
      TemporaryFile const file;
      file.write(std::exchange(recording_, {}).bytes());
      EXPECT_TRUE(isPlayed(agent, file.path()));
   }

   static std::size_t served(Fabric const& fabric) {
      std::size_t result = 0;
      for (auto const& [address, destination] : fabric.destinations()) {
         bool const isServed = destination.state() == DestinationState::success;
         result += isServed ? 1 : 0;
         EXPECT_EQ(destination.reason, isServed ? "" : "no group index is free");
      }
      return result;
   }

 private:
   void send() {
      if (!datagram_.empty()) {
         recording_.frame(FrameKind::datagram, nanoseconds_, datagram_);
         datagram_.clear();
      }
   }

   RecordingBuilder recording_;
   std::vector<std::byte> datagram_;
   std::uint64_t nanoseconds_{};
};

TEST_F(ManyDestinations, GoThroughTheWholeAgentAndAsManyAreServedAsThereAreGroups) {
   Agent agent;
   auto& fabric = agent.fabric();
   played(agent);
   EXPECT_EQ(agent.work().rounds, 1U);
   EXPECT_EQ(fabric.destinations().size(), count);
   EXPECT_EQ(served(fabric), groups);
   EXPECT_EQ(rowsIn(fabric, "L3EcmpGroup0Table"), groups);

   // What goes makes room for others, and a neighbour that moves takes all that are served with it.
   constexpr std::uint32_t gone = 1000;
   for (std::uint32_t number = 0; number < gone; ++number) {
      tell(tunnelMessage(RTM_DELNEIGH, vxlan, destinationText(number)));
   }
   nextRound();
   tell(neighbourMessage(1, gatewayText(1), "02:00:00:00:00:77"));
   nextRound();
   played(agent);
   EXPECT_EQ(fabric.destinations().size(), count - gone);
   EXPECT_EQ(served(fabric), groups);
   EXPECT_EQ(rowsIn(fabric, "EgrL3NextHop2"), 1U);

   auto const result = audit(fabric);
   EXPECT_THAT(result.findings, IsEmpty());
   EXPECT_EQ(result.passedOver, 0U);
   EXPECT_THAT(ModelChip::danglingRows(fabric.chip()), IsEmpty());
   EXPECT_EQ(agent.rows().needless(), 0U);
   for (auto const& [address, destination] : fabric.destinations()) {
      expectServed(fabric, destination);
   }

   tell(MessageBuilder(RTM_DELLINK, ifinfomsg{.ifi_index = vxlan}));
   nextRound();
   played(agent);
   EXPECT_TRUE(fabric.destinations().empty());
   expectEmpty(fabric);
}

} // namespace
} // namespace L3TunnelAgent
