#include "agent/Derivation.h"
#include "agent/Explain.h"
#include "agent/MessageReader.h"
#include "agent/RoundReader.h"
#include "agent/tests/Expected.h"
#include "agent/tests/MessageBuilder.h"
#include "agent/tests/RecordingBuilder.h"
#include "agent/tests/StateBuilder.h"
#include "agent/tests/TemporaryFile.h"
#include "platform/nuv/testing/Soak.h"

#include <gmock/gmock.h>
#include <linux/nexthop.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

/// Reads a recording as far as it can be read, deriving after each round.
/// @return whether all of it could be.
bool
readsTo(std::filesystem::path const& file, KernelState& state) {
   Derivation derivation(state);
   bool whole = true;
   try {
      Recording recording(file);
      RoundReader reader(recording);
      while (reader.next(state)) {
         derivation.update(state.takeChanges());
      }
   } catch (RecordingError const& error) {
      EXPECT_THAT(error.what(), testing::HasSubstr(file.string()));
      whole = false;
   }
   derivation.update(state.takeChanges());
   EXPECT_EQ(derivation.destinations(), fromScratch(state)) << "also after what could not be read";
   return whole;
}

} // namespace

TEST(HostileRecordingRandom, DamagedBytesAreReadOrRefusedAndWhatWasReadIsDerivedRight) {
   std::string const whole = rebuilt(recordedEvents("small")).bytes();
   Nuv::soak(60, [&](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      auto const below = [&](std::size_t end) {
         return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
      };
      int refused = 0;
      for (int step = 0; step < steps; ++step) {
         std::string bytes = whole;
         for (std::size_t count = 1 + below(20); count > 0; --count) {
            std::size_t const at = 8 + below(bytes.size() - 8);
            bytes[at] =
                  static_cast<char>(below(2) ? bytes[at] ^ (1 << below(8)) : static_cast<int>(below(256)));
         }
         TemporaryFile file;
         file.write(bytes);
         KernelState state;
         refused += readsTo(file.path(), state) ? 0 : 1;
      }
      if (steps >= 20) { // few may all be read
         EXPECT_GT(refused, 0);
      }
   });
}

TEST(HostileRecordingRandom, CutAnywhereItIsReadUpToThere) {
   std::string const whole = rebuilt(recordedEvents("small")).bytes();
   Nuv::soak(60, [&](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      for (int step = 0; step < steps; ++step) {
         TemporaryFile file;
         file.write(whole.substr(0, std::uniform_int_distribution<std::size_t>(8, whole.size())(random)));
         KernelState state;
         readsTo(file.path(), state);
      }
   });
}

TEST(HostileRecordingRandom, NoiseInFramesIsReadOrRefused) {
   Nuv::soak(300, [&](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      for (int step = 0; step < steps; ++step) {
         std::string noise(std::uniform_int_distribution<std::size_t>(0, 200)(random), '\0');
         for (char& c : noise) {
            c = static_cast<char>(random());
         }
         if (noise.size() >= 16 && step % 2 != 0) { // up to the message's length and type, at least
            auto const length = static_cast<std::uint32_t>(noise.size() / 4 * 4);
            std::uint16_t const types[] = {RTM_NEWLINK, RTM_NEWNEIGH, RTM_NEWROUTE, RTM_NEWRULE,
                                           RTM_NEWNEXTHOP};
            std::memcpy(noise.data(), &length, sizeof length);
            std::memcpy(noise.data() + 4, &types[random() % 5], 2);
         }
         TemporaryFile file;
         file.write(RecordingBuilder().frame(static_cast<FrameKind>(random() % 4), random(), noise).bytes());
         KernelState state;
         readsTo(file.path(), state);
      }
   });
}

TEST(HostileInput, EventsOfAnotherMachineAreAppliedToThisOne) {
   for (auto const* const fabric : {"small", "mixed", "mixed-inline"}) {
      auto state = recordedState(recordedFile("mixed", "dump.rnl.gz"));
      EXPECT_TRUE(readsTo(recordedEvents(fabric), state)) << fabric;
   }
}

TEST(HostileInput, ErrorLeavesWhatWasAppliedInOrder) {
   auto builder = rebuilt(recordedFile("small", "dump.rnl.gz"));
   builder.frame(FrameKind::datagram, 9, "too short to be a message");
   TemporaryFile file;
   file.write(builder.bytes());
   KernelState state;
   EXPECT_FALSE(readsTo(file.path(), state));
   EXPECT_EQ(fromScratch(state), fromScratch(recordedState(recordedFile("small", "dump.rnl.gz"))));
}

TEST(HostileInput, LoopsOfGroupsAreDerivedAndExplained) {
   StateBuilder builder;
   builder.link(1, "swp1");
   builder.state.nextHopIs(1, {.group = {{.id = 1}, {.id = 2}}});
   builder.state.nextHopIs(2, {.group = {{.id = 1}}});
   builder.routeByObject("10.255.1.1/32", 1);
   builder.state.vxlanEntryIs({.device = StateBuilder::vxlan}, {.nextHopId = 1});
   builder.tunnelTo("10.255.1.1");
   Derivation derivation(builder.state);
   EXPECT_EQ(derivation.destinations().at(builder.ip("10.255.1.1")).reason, "no route: next hops down");
   EXPECT_GT(explainRoute(builder.state, builder.ip("10.255.1.1")).size(), 4U);
   builder.state.nextHopDel(1);
   EXPECT_EQ(derivation.update(builder.state.takeChanges()).size(), 1U);
   EXPECT_TRUE(builder.state.nextHops().empty());
}

TEST(HostileInput, GroupOfTheMostMembersIsReadAndDerived) {
   StateBuilder builder;
   builder.link(1, "swp1");
   builder.state.nextHopIs(1, {.hop = builder.hop(1, "10.0.0.1")});
   std::vector<nexthop_grp> members(65528 / sizeof(nexthop_grp), nexthop_grp{.id = 1});
   // Longer than a MessageBuilder takes.
   nlattr const id{.nla_len = 8, .nla_type = NHA_ID};
   std::uint32_t const number = 7;
   nlattr const group{.nla_len = static_cast<std::uint16_t>(4 + members.size() * sizeof(nexthop_grp)),
                      .nla_type = NHA_GROUP};
   nlmsghdr const head{.nlmsg_len = static_cast<std::uint32_t>(16 + sizeof(nhmsg) + 8 + group.nla_len),
                       .nlmsg_type = RTM_NEWNEXTHOP};
   nhmsg const fixed{};
   std::string bytes;
   auto const add = [&](void const* data, std::size_t size) {
      bytes.append(static_cast<char const*>(data), size);
   };
   add(&head, sizeof head);
   add(&fixed, sizeof fixed);
   add(&id, sizeof id);
   add(&number, sizeof number);
   add(&group, sizeof group);
   add(members.data(), members.size() * sizeof(nexthop_grp));
   applyDatagram(builder.state, std::as_bytes(std::span(bytes)));
   builder.routeByObject("10.255.1.1/32", 7);
   EXPECT_EQ(builder.derive("10.255.1.1").vias.size(), members.size());
   builder.linkFlags(1, 0);
   EXPECT_TRUE(builder.state.nextHops().empty());
}

TEST(HostileInput, HundredThousandDestinationsAreDerivedOnceAndOnlyWhatChangesAgain) {
   constexpr std::uint32_t count = 100'000;
   StateBuilder builder;
   for (int device = 1; device <= 8; ++device) {
      builder.link(device, "swp" + std::to_string(device));
      auto const gateway = "10.0.0." + std::to_string(device);
      builder.state.nextHopIs(static_cast<std::uint32_t>(device), {.hop = builder.hop(device, gateway)});
      builder.neighbour(device, gateway, "02:00:00:00:00:01");
   }
   builder.state.nextHopIs(20, {.group = {{.id = 1}, {.id = 2}, {.id = 3}, {.id = 4}}});
   builder.state.nextHopIs(21, {.group = {{.id = 5}, {.id = 6}, {.id = 7}}});
   Derivation derivation(builder.state);
   for (std::uint32_t i = 0; i < count; ++i) {
      auto const address = IpAddress::fromV4(0x0b000000 + i);
      builder.state.vxlanEntryIs({.device = StateBuilder::vxlan, .groupDestination = address},
                                 {.destination = address});
      builder.state.routeIs({StateBuilder::main, Prefix::of(address, 32)},
                            {.type = RTN_UNICAST, .nextHopId = i == 0 ? 8 : 20 + i % 2});
   }
   EXPECT_EQ(derivation.update(builder.state.takeChanges()).size(), count);
   EXPECT_EQ(derivation.derived(), count);
   builder.state.neighbourDel({8, builder.ip("10.0.0.8")});
   EXPECT_EQ(derivation.update(builder.state.takeChanges()).size(), 1U);
   EXPECT_EQ(derivation.derived(), count + 1);
   builder.linkFlags(5, IFF_UP);
   EXPECT_EQ(derivation.update(builder.state.takeChanges()).size(), count / 2);
   EXPECT_EQ(derivation.derived(), count + 1 + count / 2);
   builder.state.linkDel(StateBuilder::vxlan);
   EXPECT_EQ(derivation.update(builder.state.takeChanges()).size(), count);
   EXPECT_TRUE(derivation.destinations().empty());
}

} // namespace L3TunnelAgent
