#include "agent/tests/FabricDriver.h"
#include "agent/views/Sections.h"
#include "agent/views/Summary.h"
#include "chip/model/Layouts.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {
namespace {

using testing::HasSubstr;
using testing::Not;

void
destinationIs(Agent& agent, std::uint32_t number, std::vector<DerivedVia> vias) {
   agent.fabric().destinationIs(destination(number, std::move(vias)));
   agent.fabric().settle();
}

std::string
shown(Agent const& agent) {
   Users const users(agent.fabric());
   return destinationsSection().text({agent, users}, Paint());
}

Json
json(Agent const& agent) {
   Users const users(agent.fabric());
   return destinationsSection().json({agent, users});
}

TEST(DestinationsSectionTest, FailedSetIsToldFromTheOneThatIsKept) {
   Agent agent({.sizes = {{"L3UnderlayEcmpMember1Table", 3}}});
   destinationIs(agent, 1, {unicastVia(1, 11), unicastVia(2, 12)});
   destinationIs(agent, 2, {unicastVia(1, 11), unicastVia(2, 12)});
   EXPECT_THAT(shown(agent), Not(HasSubstr("keeps")));
   EXPECT_EQ(json(agent)[0].at("keptOld"), false);
   EXPECT_EQ(summaryOf(agent).keptOld, 0U);

   destinationIs(agent, 1, {unicastVia(3, 13), unicastVia(4, 14)});
   destinationIs(agent, 3, {unicastVia(3, 13), unicastVia(4, 14)});
   EXPECT_THAT(shown(agent), HasSubstr("10.0.0.1     failed   0      0      2      keeps #11, #12; wants "
                                       "#13, #14: no run of 2 member rows is free\n"));
   EXPECT_THAT(shown(agent), HasSubstr("10.0.0.3     failed   -      -      -      #13, #14: no run of 2 "
                                       "member rows is free\n"));
   auto const all = json(agent);
   EXPECT_EQ(all[0].at("keptOld"), true);
   EXPECT_EQ(all[0].at("block").at("size"), 2);
   EXPECT_EQ(all[0].at("vias")[0].at("programmed"), false);
   EXPECT_EQ(all[1].at("keptOld"), false);
   EXPECT_EQ(all[2].at("keptOld"), false);
   EXPECT_TRUE(all[2].at("block").at("size").is_null());

   auto const summary = summaryOf(agent);
   EXPECT_EQ(summary.keptOld, 1U);
   EXPECT_EQ(json(summary).at("keptOld"), 1);
   EXPECT_THAT(text(summary, Paint()),
               HasSubstr("  failed                   2\n    1 of these keeps the set that it had\n"));
   EXPECT_EQ(reached(agent.fabric(), 1), reached(agent.fabric(), 2)) << "the chip forwards as before";
}

TEST(DestinationsSectionTest, EachViaOfALargeSharedSetNamesItsOwnNextHop) {
   constexpr unsigned count = 600;
   std::vector<DerivedVia> vias;
   for (unsigned i = 0; i < count; ++i) {
      vias.push_back(unicastVia(1, 11));
      vias.back().mac = MacAddress{{2, 0, 0, 0, std::uint8_t(i >> 8), std::uint8_t(i)}};
   }
   Agent agent;
   destinationIs(agent, 1, vias);
   destinationIs(agent, 2, {vias.begin() + 5, vias.end()});
   destinationIs(agent, 3, vias);
   auto const all = json(agent);
   EXPECT_EQ(all[0].at("vias"), all[2].at("vias"));
   namespace Row = ModelChip::EgrL3NextHop2;
   auto const* const table = agent.fabric().chip().table(Row::layout.table);
   for (auto const& destination : {all[0], all[1]}) {
      for (auto const& via : destination.at("vias")) {
         auto const row = table->row(via.at("nextHopIndex").get<Asic::Index>());
         EXPECT_EQ(via.at("mac"), Nuv::text(Fendo::EthAddr::fromValue(Row::dstMac.unpack(row))));
      }
   }
   EXPECT_EQ(all[1].at("vias").size(), count - 5);
}

} // namespace
} // namespace L3TunnelAgent
