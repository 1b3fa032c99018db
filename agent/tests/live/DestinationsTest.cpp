#include "agent/tests/live/KernelTruth.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent::Live {

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

json const document = json::parse(R"({
   "destinations": [
      {"vtep": "10.0.0.1", "state": "success", "vias": [
         {"kind": "unicast", "mac": "02:00:00:00:00:01", "dev": "swp1", "port_dev": "swp1", "vlan": null,
          "tagged": false, "reason": null, "programmed": true},
         {"kind": "cpu", "mac": null, "dev": "swp2", "port_dev": "swp2", "vlan": null, "tagged": false,
          "reason": "neighbour-unresolved", "programmed": false}]},
      {"vtep": "10.0.0.2", "state": "noRoute", "vias": []}],
   "interfaces": [{"dev": "swp1", "src_mac": "02:00:00:00:00:11"}]})");

TrueVia const overSwp1{.kind = "unicast",
                       .device = "swp1",
                       .mac = "02:00:00:00:00:01",
                       .port = "swp1",
                       .tagged = false,
                       .source = "02:00:00:00:00:11"};
TrueVia const toCpu{.kind = "cpu", .device = "swp2"};
Destinations const right{{"10.0.0.1", {overSwp1, toCpu}}, {"10.0.0.2", {}}};

TEST(Differences, ThereAreNoneFromAnAgentThatIsRight) {
   EXPECT_THAT(differences(right, document), IsEmpty());
}

TEST(Differences, EachWrongWordAboutAViaIsFound) {
   for (auto const& [key, value] : {std::pair<char const*, json>{"mac", "02:00:00:00:00:02"},
                                    {"dev", "swp3"},
                                    {"port_dev", "swp3"},
                                    {"vlan", 7},
                                    {"tagged", true},
                                    {"kind", "cpu"},
                                    {"programmed", false}}) {
      auto wrong = document;
      wrong["destinations"][0]["vias"][0][key] = value;
      EXPECT_THAT(differences(right, wrong), testing::Not(IsEmpty())) << key;
   }
   auto wrong = document;
   wrong["interfaces"][0]["src_mac"] = "02:00:00:00:00:12";
   EXPECT_THAT(differences(right, wrong), SizeIs(1));
}

TEST(Differences, AViaTooManyAndOneTooFewAreFound) {
   auto wrong = document;
   wrong["destinations"][0]["vias"].erase(1);
   EXPECT_THAT(differences(right, wrong), ElementsAre(HasSubstr("10.0.0.1: kernel")));
   auto more = right;
   more["10.0.0.1"].erase(toCpu);
   EXPECT_THAT(differences(more, document), ElementsAre(HasSubstr("10.0.0.1: kernel")));
}

TEST(Differences, ADestinationTooManyAndOneTooFewAreFound) {
   auto other = right;
   other["10.0.0.3"];
   EXPECT_THAT(differences(other, document), ElementsAre("10.0.0.3: the agent has no such destination"));
   other = right;
   other.erase("10.0.0.2");
   EXPECT_THAT(differences(other, document), ElementsAre("10.0.0.2: no destination of the kernel's"));
}

TEST(Differences, ADestinationThatIsNotProgrammedIsFound) {
   for (char const* state : {"inProgress", "failed", "noRoute"}) {
      auto wrong = document;
      wrong["destinations"][0]["state"] = state;
      EXPECT_THAT(differences(right, wrong), ElementsAre(HasSubstr(state)));
   }
}

TEST(Differences, AViaToTheCpuThatIsProgrammedBesideOneThatForwardsIsFound) {
   auto wrong = document;
   wrong["destinations"][0]["vias"][1]["programmed"] = true;
   EXPECT_THAT(differences(right, wrong), ElementsAre(HasSubstr("programmed is wrong")));
}

/// A machine with a tunnel device, a plain port, a VLAN sub-interface, a bridge with VLANs and one without.
KernelFacts
machine() {
   return {.links = json::parse(R"([
              {"ifname": "vx", "linkinfo": {"info_kind": "vxlan"}},
              {"ifname": "swp1", "address": "02:00:00:00:00:11"},
              {"ifname": "swp2", "address": "02:00:00:00:00:12"},
              {"ifname": "swp2.5", "address": "02:00:00:00:00:25", "link": "swp2",
               "linkinfo": {"info_kind": "vlan", "info_data": {"id": 5}}},
              {"ifname": "br0", "linkinfo": {"info_kind": "bridge"}},
              {"ifname": "br0.30", "address": "02:00:00:00:00:30", "link": "br0",
               "linkinfo": {"info_kind": "vlan", "info_data": {"id": 30}}},
              {"ifname": "br1", "address": "02:00:00:00:00:b1", "linkinfo": {"info_kind": "bridge"}},
              {"ifname": "swp7"}, {"ifname": "swp8"}, {"ifname": "swp9"}])"),
           .neighbours = json::parse(R"([
              {"dst": "10.1.1.2", "dev": "swp1", "lladdr": "02:00:00:00:00:01", "state": ["STALE"]},
              {"dst": "10.1.1.3", "dev": "swp1", "state": ["FAILED"]},
              {"dst": "10.1.2.2", "dev": "swp2.5", "lladdr": "02:00:00:00:00:02", "state": ["PERMANENT"]},
              {"dst": "10.1.3.2", "dev": "br0.30", "lladdr": "02:00:00:00:00:03", "state": ["REACHABLE"]},
              {"dst": "fe80::1", "dev": "br1", "lladdr": "02:00:00:00:00:04", "state": ["REACHABLE"]}])"),
           .forwarding = json::parse(R"([
              {"ifname": "vx", "mac": "00:00:00:00:00:00", "dst": "10.0.0.1"},
              {"ifname": "vx", "mac": "02:00:00:00:99:99", "nhid": 9},
              {"ifname": "swp7", "master": "br0", "vlan": 30, "mac": "02:00:00:00:00:03"},
              {"ifname": "swp8", "master": "br0", "vlan": 31, "mac": "02:00:00:00:00:03"},
              {"ifname": "swp9", "master": "br1", "mac": "02:00:00:00:00:04"}])"),
           .portVlans = json::parse(R"([{"ifname": "swp7", "vlans": [{"vlan": 30, "flags": ["PVID"]}]}])"),
           .nextHops = json::parse(R"([
              {"id": 7, "gateway": "10.0.0.2"}, {"id": 8, "gateway": "10.0.0.3"},
              {"id": 9, "group": [{"id": 7}, {"id": 8}]}])"),
           .routes = {{"10.0.0.1", json::parse(R"({"nexthops": [
                          {"gateway": "10.1.1.2", "dev": "swp1", "flags": []},
                          {"gateway": "10.1.1.3", "dev": "swp1", "flags": []},
                          {"gateway": "10.1.2.2", "dev": "swp2.5", "flags": []},
                          {"gateway": "10.1.3.2", "dev": "br0.30", "flags": []},
                          {"gateway": "10.1.1.2", "dev": "swp1", "flags": ["linkdown"]}]})")},
                      {"10.0.0.2",
                       json::parse(R"({"via": {"family": "inet6", "host": "fe80::1"}, "dev": "br1"})")}},
           .refusals = {{"10.0.0.3", "Network is unreachable"}}};
}

TEST(KernelTruth, SaysHowPacketsLeaveByEachKindOfDevice) {
   auto const truth = kernelTruth(machine());
   ASSERT_THAT(truth, SizeIs(3));
   EXPECT_THAT(truth.at("10.0.0.1"), testing::UnorderedElementsAre(TrueVia{.kind = "unicast",
                                                                           .device = "swp1",
                                                                           .mac = "02:00:00:00:00:01",
                                                                           .port = "swp1",
                                                                           .tagged = false,
                                                                           .source = "02:00:00:00:00:11"},
                                                                   TrueVia{.kind = "cpu", .device = "swp1"},
                                                                   TrueVia{.kind = "unicast",
                                                                           .device = "swp2.5",
                                                                           .mac = "02:00:00:00:00:02",
                                                                           .port = "swp2",
                                                                           .vlan = 5,
                                                                           .tagged = true,
                                                                           .source = "02:00:00:00:00:25"},
                                                                   TrueVia{.kind = "unicast",
                                                                           .device = "br0.30",
                                                                           .mac = "02:00:00:00:00:03",
                                                                           .port = "swp7",
                                                                           .vlan = 30,
                                                                           .tagged = true,
                                                                           .source = "02:00:00:00:00:30"}));
   EXPECT_THAT(truth.at("10.0.0.2"), ElementsAre(TrueVia{.kind = "unicast",
                                                         .device = "br1",
                                                         .mac = "02:00:00:00:00:04",
                                                         .port = "swp9",
                                                         .tagged = false,
                                                         .source = "02:00:00:00:00:b1"}));
   EXPECT_THAT(truth.at("10.0.0.3"), IsEmpty());
}

TEST(KernelTruth, WhatTheKernelRefusesIsDroppedAndWhatItKeepsGoesToTheCpu) {
   auto facts = machine();
   facts.refusals = {{"10.0.0.3", "Invalid argument"}, {"10.0.0.2", "No route to host"}};
   facts.routes["10.0.0.1"] = json::parse(R"({"type": "local", "dev": "lo"})");
   auto const truth = kernelTruth(facts);
   EXPECT_THAT(truth.at("10.0.0.1"), ElementsAre(TrueVia{.kind = "cpu"}));
   EXPECT_THAT(truth.at("10.0.0.2"), ElementsAre(TrueVia{.kind = "drop"}));
   EXPECT_THAT(truth.at("10.0.0.3"), ElementsAre(TrueVia{.kind = "drop"}));
}

TEST(KernelTruth, EgressUntaggedPortsOfABridgeStripTheTag) {
   auto facts = machine();
   facts.portVlans[0]["vlans"][0]["flags"] = {"PVID", "Egress Untagged"};
   auto const truth = kernelTruth(facts);
   bool const found =
         std::any_of(truth.at("10.0.0.1").begin(), truth.at("10.0.0.1").end(), [](auto const& via) {
            return via.device == "br0.30" && via.tagged == false && via.vlan == 30;
         });
   EXPECT_TRUE(found);
}

TEST(KernelTruth, AnAnswerOfTheKernelThatItDoesNotKnowIsAnError) {
   auto facts = machine();
   facts.refusals = {{"10.0.0.3", "Out of memory"}};
   EXPECT_THROW(kernelTruth(facts), std::runtime_error);
}

} // namespace

} // namespace L3TunnelAgent::Live
