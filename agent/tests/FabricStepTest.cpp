#include "agent/tests/FabricDriver.h"
#include "agent/tests/PlayedAgent.h"
#include "agent/views/Audit.h"

#include <gmock/gmock.h>
#include <random>

namespace L3TunnelAgent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Fabric::Settings
smallChip() {
   Fabric::Settings settings;
   settings.sizes = {{"L3EcmpGroup0Table", 6}, {"L3UnderlayEcmpMember1Table", 8}, {"EgrL3Oif2", 4}};
   return settings;
}

std::vector<DerivedVia>
someVias(std::mt19937& random) {
   std::vector<DerivedVia> vias;
   for (auto count = 1 + random() % 3; count > 0; --count) {
      auto const neighbour = static_cast<std::uint8_t>(1 + random() % 4);
      vias.push_back(unicastVia(neighbour, 1 + static_cast<int>(random() % 3),
                                static_cast<std::uint8_t>(1 + random() % 4)));
   }
   return vias;
}

TEST(FabricStepTest, ComesInSmallStepsToWhatSettlingComesTo) {
   Fabric settled;
   Fabric stepped;
   for (auto* fabric : {&settled, &stepped}) {
      for (std::uint32_t at = 1; at <= 20; ++at) {
         fabric->destinationIs(destination(at, {unicastVia(static_cast<std::uint8_t>(at % 3 + 1), 1)}));
      }
   }
   settled.settle();
   EXPECT_FALSE(stepped.isSettled());
   std::size_t turns = 0;
   for (; stepped.step(1); ++turns) {
   }
   EXPECT_GT(turns, 20U);
   EXPECT_TRUE(stepped.isSettled());
   EXPECT_FALSE(stepped.step(1));
   for (std::uint32_t at = 1; at <= 20; ++at) {
      EXPECT_EQ(stepped.destinations().at(address(at)).state(), DestinationState::success);
      EXPECT_EQ(reached(stepped, at), reached(settled, at));
   }
   EXPECT_THAT(audit(stepped).findings, IsEmpty());
}

TEST(FabricStepTest, DoesNoMoreThanItIsAskedTo) {
   Fabric fabric;
   fabric.destinationIs(destination(1, {unicastVia(1, 1)}));
   EXPECT_TRUE(fabric.step(1));
   EXPECT_NE(fabric.destinations().at(address(1)).state(), DestinationState::success);
   EXPECT_GT(fabric.settle(), 1U);
   EXPECT_EQ(fabric.settle(), 0U);
}

TEST(FabricStepTest, TriesThoseThatFailedAgainThoughMoreIsAskedForMeanwhile) {
   std::mt19937 random(20261121);
   Fabric fabric(smallChip());
   std::map<std::uint32_t, std::vector<DerivedVia>> asked;
   for (int turn = 0; turn < 3000; ++turn) {
      auto const number = static_cast<std::uint32_t>(1 + random() % 12);
      if (random() % 3 == 0) {
         fabric.destinationDel(address(number));
         asked.erase(number);
      } else {
         asked[number] = someVias(random);
         fabric.destinationIs(destination(number, asked[number]));
      }
      for (auto count = random() % 12; count > 0; --count) {
         fabric.step(1 + random() % 4);
      }
   }
   fabric.settle();
   EXPECT_THAT(audit(fabric).findings, IsEmpty());
   EXPECT_EQ(fabric.destinations().size(), asked.size());
   // With room for all, all come.
   while (asked.size() > 2) {
      fabric.destinationDel(address(asked.begin()->first));
      asked.erase(asked.begin());
   }
   fabric.settle();
   for (auto const& [number, vias] : asked) {
      EXPECT_EQ(fabric.destinations().at(address(number)).state(), DestinationState::success);
      EXPECT_EQ(reached(fabric, number), wanted(fabric, vias));
   }
   fabric.clear();
   expectEmpty(fabric);
}

TEST(FabricStepTest, NamesWhatMayHaveChangedOnce) {
   Fabric fabric;
   fabric.destinationIs(destination(2, {unicastVia(1, 1)}));
   fabric.destinationIs(destination(1, {unicastVia(1, 1)}));
   EXPECT_THAT(fabric.takeTouched(), ElementsAre(address(1), address(2)));
   EXPECT_THAT(fabric.takeTouched(), IsEmpty());
   fabric.settle();
   EXPECT_THAT(fabric.takeTouched(), ElementsAre(address(1), address(2))) << "they have come";
   fabric.settle();
   EXPECT_THAT(fabric.takeTouched(), IsEmpty());
   fabric.destinationDel(address(1));
   EXPECT_THAT(fabric.takeTouched(), ElementsAre(address(1)));
}

TEST(FabricStepTest, AnAgentComesInStepsToWhatARoundComesTo) {
   auto const played = playedAgent("mixed");
   Agent stepped;
   Recording recording(recordedFile("mixed", "dump.rnl.gz"));
   while (auto const frame = recording.next()) {
      if (frame->kind == FrameKind::dumpReply) {
         stepped.messageIs(frame->payload);
         stepped.step(); // between any two, so that it goes through states that never were
      }
   }
   while (stepped.step()) {
   }
   EXPECT_EQ(stepped.derivation().destinations(), played->derivation().destinations());
   for (auto const& [address, destination] : played->fabric().destinations()) {
      EXPECT_EQ(stepped.fabric().destinations().at(address).state(), destination.state()) << address.text();
   }
   EXPECT_THAT(audit(stepped.fabric()).findings, IsEmpty());
}

} // namespace
} // namespace L3TunnelAgent
