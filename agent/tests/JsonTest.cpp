#include "agent/tests/AgentProcess.h"
#include "agent/tests/Expected.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {
namespace {

using nlohmann::ordered_json;
using testing::ContainerEq;
using testing::ElementsAre;

ordered_json
jsonOf(std::string const& arguments) {
   auto const outcome = runAgent(arguments);
   EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
   return ordered_json::parse(outcome.out);
}

std::vector<std::string>
keysOf(ordered_json const& object) {
   std::vector<std::string> keys;
   for (auto const& [key, value] : object.items()) {
      keys.push_back(key);
   }
   return keys;
}

template <class T>
std::optional<T>
optional(ordered_json const& object, char const* key) {
   auto const& value = object.at(key);
   return value.is_null() ? std::nullopt : std::optional(value.get<T>());
}

ExpectedVia
viaOf(ordered_json const& via) {
   return {.kind = via.at("kind").get<std::string>(),
           .mac = optional<std::string>(via, "mac"),
           .device = optional<std::string>(via, "dev"),
           .port = optional<std::string>(via, "port_dev"),
           .vlan = optional<std::uint16_t>(via, "vlan"),
           .tagged = optional<bool>(via, "tagged"),
           .weight = 1,
           .reason = optional<std::string>(via, "reason").value_or("")};
}

/// The configuration's vias; a document has no weights.
ExpectedVias
withoutWeights(ExpectedVias const& expected) {
   ExpectedVias result;
   for (auto const& [destination, vias] : expected) {
      auto& without = result[destination];
      for (auto via : vias) {
         via.weight = 1;
         without.insert(via);
      }
   }
   return result;
}

class JsonTest : public testing::TestWithParam<char const*> {
 protected:
   std::string const recording = recordedFile(GetParam(), "dump.rnl.gz").string();
   ordered_json const document = jsonOf("program --json " + recording);
};

TEST_P(JsonTest, DestinationsAreThoseOfTheConfiguration) {
   ExpectedVias found;
   for (auto const& destination : document.at("destinations")) {
      auto& vias = found[destination.at("vtep").get<std::string>()];
      for (auto const& via : destination.at("vias")) {
         vias.insert(viaOf(via));
      }
   }
   EXPECT_THAT(found, ContainerEq(withoutWeights(expectedVias(GetParam()))));
   EXPECT_EQ(document.at("summary").at("destinations"), found.size());
}

TEST_P(JsonTest, KeysComeInOneOrder) {
   EXPECT_THAT(keysOf(document), ElementsAre("recording", "chip", "summary", "destinations", "interfaces"));
   EXPECT_EQ(document.at("recording"), recording);
   for (auto const& destination : document.at("destinations")) {
      EXPECT_THAT(keysOf(destination),
                  ElementsAre("vtep", "state", "reason", "group", "block", "vias", "keptOld"));
      EXPECT_THAT(keysOf(destination.at("group")), ElementsAre("index"));
      EXPECT_THAT(keysOf(destination.at("block")), ElementsAre("base", "size"));
      for (auto const& via : destination.at("vias")) {
         EXPECT_THAT(keysOf(via), ElementsAre("kind", "mac", "dev", "port_dev", "vlan", "tagged", "reason",
                                              "programmed", "nextHopIndex"));
      }
   }
   for (auto const& interface : document.at("interfaces")) {
      EXPECT_THAT(keysOf(interface), ElementsAre("dev", "src_mac", "tagged", "vlan", "index"));
   }
}

TEST_P(JsonTest, ProgrammedViasHaveNextHopsAndOthersNone) {
   for (auto const& destination : document.at("destinations")) {
      bool const isProgrammed = destination.at("state") == "success";
      EXPECT_EQ(destination.at("group").at("index").is_null(), !isProgrammed);
      EXPECT_EQ(destination.at("block").at("base").is_null(), !isProgrammed);
      EXPECT_EQ(destination.at("reason").is_null(), isProgrammed);
      std::set<unsigned> nextHops;
      for (auto const& via : destination.at("vias")) {
         EXPECT_EQ(via.at("nextHopIndex").is_null(), via.at("programmed") == false);
         if (via.at("programmed") == true) {
            nextHops.insert(via.at("nextHopIndex").get<unsigned>());
         }
      }
      EXPECT_EQ(destination.at("block").at("size"),
                isProgrammed ? ordered_json(nextHops.size()) : ordered_json());
   }
}

TEST_P(JsonTest, InterfacesAreTheWaysOut) {
   std::set<unsigned> indices;
   for (auto const& way : expectedEgress(GetParam())) {
      bool isThere = false;
      for (auto const& interface : document.at("interfaces")) {
         isThere =
               isThere || (interface.at("dev") == way.device && interface.at("src_mac") == way.sourceMac &&
                           interface.at("tagged") == way.tagged &&
                           optional<std::uint16_t>(interface, "vlan") == way.vlan);
         indices.insert(interface.at("index").get<unsigned>());
      }
      EXPECT_TRUE(isThere) << way.device << " by " << way.port;
   }
   // The lowest from 1 on.
   EXPECT_EQ(*indices.begin(), 1U);
   EXPECT_EQ(*indices.rbegin(), indices.size());
}

INSTANTIATE_TEST_SUITE_P(Leaf, JsonTest, testing::Values("small", "mixed", "mixed-inline", "big"),
                         [](auto const& parameter) {
                            std::string text = parameter.param;
                            std::replace(text.begin(), text.end(), '-', '_');
                            return text;
                         });

std::string
mixed() {
   return recordedFile("mixed", "dump.rnl.gz").string();
}

TEST(JsonShowTest, HasTheSectionsThatAreAskedForInTheirOrder) {
   EXPECT_THAT(keysOf(jsonOf("show --json " + mixed())),
               ElementsAre("recording", "chip", "destinations", "groups", "blocks", "nextHops", "interfaces",
                           "tables", "allocators"));
   EXPECT_THAT(keysOf(jsonOf("show handles groups --json " + mixed())),
               ElementsAre("recording", "chip", "groups", "handles"));
   EXPECT_THAT(keysOf(jsonOf("show next-hops --rows --json " + mixed())),
               ElementsAre("recording", "chip", "nextHops", "rows"));
}

TEST(JsonShowTest, SectionsAgreeWithEachOtherAndWithTheRows) {
   auto const all = jsonOf("show --hash-seed 1 --rows --json " + mixed());
   std::map<std::string, std::map<unsigned, ordered_json>> rows;
   for (auto const& row : all.at("rows")) {
      EXPECT_THAT(keysOf(row), ElementsAre("table", "index", "words", "fields"));
      rows[row.at("table").get<std::string>()][row.at("index").get<unsigned>()] = row.at("fields");
   }
   for (auto const& table : all.at("tables")) {
      EXPECT_EQ(rows[table.at("table").get<std::string>()].size(), table.at("rows"));
      EXPECT_GE(table.at("written"), table.at("rows"));
      EXPECT_EQ(table.at("unanswered"), 0);
   }
   EXPECT_EQ(all.at("groups").size(), 50U);
   for (auto const& group : all.at("groups")) {
      auto const& row = rows["L3EcmpGroup0Table"].at(group.at("index").get<unsigned>());
      EXPECT_EQ(row.at("ecmpBlock"), group.at("block"));
      EXPECT_EQ(row.at("numPaths"), group.at("paths"));
      EXPECT_EQ(row.at("lbMode"), group.at("mode"));
   }
   for (auto const& block : all.at("blocks")) {
      auto member = block.at("base").get<unsigned>();
      EXPECT_EQ(block.at("size"), block.at("nextHops").size());
      for (auto const& nextHop : block.at("nextHops")) {
         EXPECT_EQ(rows["L3UnderlayEcmpMember1Table"].at(member++).at("nextHop"), nextHop);
      }
   }
   for (auto const& hop : all.at("nextHops")) {
      auto const& row = rows["EgrL3NextHop2"].at(hop.at("index").get<unsigned>());
      EXPECT_EQ(row.at("l3Oif"), hop.at("interface").is_null() ? ordered_json(0) : hop.at("interface"));
      if (!hop.at("mac").is_null()) {
         EXPECT_EQ(row.at("dstMac"), hop.at("mac"));
      }
   }
   for (auto const& interface : all.at("interfaces")) {
      EXPECT_EQ(rows["EgrL3Oif2"].at(interface.at("index").get<unsigned>()).at("srcMac"),
                interface.at("src_mac"));
   }
   for (auto const& allocator : all.at("allocators")) {
      EXPECT_EQ(allocator.at("size"),
                allocator.at("used").get<unsigned>() + allocator.at("free").get<unsigned>());
   }
}

TEST(JsonShowTest, HandlesAreThoseOfAllTables) {
   auto const all = jsonOf("show handles tables --json " + mixed());
   std::map<std::string, unsigned> count;
   for (auto const& handle : all.at("handles")) {
      EXPECT_THAT(keysOf(handle),
                  ElementsAre("table", "index", "valid", "state", "type", "references", "key"));
      EXPECT_EQ(handle.at("state"), "success");
      EXPECT_GE(handle.at("references"), 1);
      ++count[handle.at("table").get<std::string>()];
   }
   for (auto const& table : all.at("tables")) {
      EXPECT_EQ(table.at("entries").is_null() ? 0U : table.at("entries").get<unsigned>(),
                count[table.at("table").get<std::string>()]);
   }
   EXPECT_EQ(count["L3NextHop2Table"], count["EgrL3NextHop2"]);
}

TEST(JsonShowTest, FailuresHaveTheirReason) {
   auto const all = jsonOf("--chip-size L3EcmpGroup0Table=10 program --json " + mixed());
   unsigned failed = 0;
   for (auto const& destination : all.at("destinations")) {
      if (destination.at("state") == "failed") {
         ++failed;
         EXPECT_EQ(destination.at("reason"), "no group index is free");
         EXPECT_TRUE(destination.at("group").at("index").is_null());
         for (auto const& via : destination.at("vias")) {
            EXPECT_EQ(via.at("programmed"), false);
            EXPECT_TRUE(via.at("nextHopIndex").is_null());
         }
      }
   }
   EXPECT_EQ(failed, 40U);
   EXPECT_EQ(all.at("summary").at("states").at("failed"), 40);
   EXPECT_EQ(all.at("summary").at("states").at("success"), 10);
   EXPECT_EQ(all.at("summary").at("rows").at("L3EcmpGroup0Table").at("size"), 10);
}

} // namespace
} // namespace L3TunnelAgent
