#include "programmer/testing/ProgrammerTest.h"

#include "platform/asic/DontCareHandle.h"
#include "platform/trace/Mirelog.h"
#include "platform/trace/RingReader.h"

#include <set>

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::Not;
using testing::SizeIs;
using testing::UnorderedElementsAre;

TEST_F(ProgrammerTest, ReachesEveryViaFromTheGroup) {
   interfaceIs(1, 0x11);
   interfaceIs(2, 0x22);
   auto block = blockOf({unicastVia(1, 1, 101), unicastVia(2, 2, 102)});
   auto group = groupIs(7, block, 2);
   EXPECT_EQ(block->entryState(), Asic::SwTableBase::unresolved());
   EXPECT_EQ(group->entryState(), Asic::SwTableBase::unresolved());
   loop.runUntilIdle();
   EXPECT_EQ(block->entryState(), Asic::SwTableBase::success());
   EXPECT_EQ(group->entryState(), Asic::SwTableBase::success());

   auto rows = ModelChip::followGroup(*chip, group->hwEntryIndex());
   EXPECT_EQ(rows.problem, "");
   ASSERT_THAT(rows.hops, SizeIs(2));
   std::set<std::pair<unsigned, unsigned>> reached;
   for (auto const& hop : rows.hops) {
      ASSERT_TRUE(hop.interface);
      EXPECT_EQ(hop.destinationType, 4);
      EXPECT_EQ(hop.destinationId, 100 + hop.dstMac.bytes[5]);
      reached.insert({hop.dstMac.bytes[5], hop.interface->srcMac.bytes[5]});
   }
   EXPECT_EQ(reached, (std::set<std::pair<unsigned, unsigned>>{{1, 0x11}, {2, 0x22}}));
}

TEST_F(ProgrammerTest, LeavesNothingWhenNobodyHoldsAnything) {
   interfaceIs(1, 0x11);
   auto block = blockOf({unicastVia(1, 1, 101), viaOfKind(Brix::NextHopEntryType::drop)});
   auto group = groupIs(7, block, 2);
   loop.runUntilIdle();
   EXPECT_GT(rowsPresent(), 0u);

   group = nullptr;
   block = nullptr;
   groupDel(7);
   interfaces->entryRemoveAll();
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
   EXPECT_EQ(interfaces->handles().size(), 0u);
   EXPECT_EQ(groups->handles().size(), 0u);
   EXPECT_EQ(groups->indexAllocator()->used(), 0u);
   EXPECT_EQ(programmer->l3EcmpMemberTable()->handles().size(), 0u);
   EXPECT_EQ(programmer->l3EcmpMemberTable()->indexAllocator()->used(), 0u);
   EXPECT_EQ(programmer->l3EcmpNextHopTable()->handles().size(), 0u);
   EXPECT_EQ(programmer->l3EcmpNextHopTable()->indexAllocator()->used(), 1u);
}

TEST_F(ProgrammerTest, EmptySetIsAnEmptyBlock) {
   auto block = blockOf({});
   ASSERT_TRUE(block);
   EXPECT_EQ(block->entryState(), State::success);
   auto group = groupIs(7, block, 0);
   loop.runUntilIdle();
   EXPECT_EQ(group->entryState(), State::success);
   EXPECT_THAT(rowsApplied, ElementsAre("L3EcmpGroup0Table written 0"));
}

TEST_F(ProgrammerTest, EqualSetsShareOneBlockAndEqualViasOneNextHop) {
   interfaceIs(1, 0x11);
   auto a = unicastVia(1, 1, 101);
   auto b = unicastVia(2, 1, 102);
   auto c = unicastVia(3, 1, 103);
   auto first = blockOf({a, b});
   EXPECT_EQ(blockOf({b, a}), first);
   auto second = blockOf({b, c});
   EXPECT_NE(second, first);
   EXPECT_EQ(programmer->l3EcmpNextHopTable()->handles().size(), 3u);
   EXPECT_EQ(programmer->l3EcmpMemberTable()->handles().size(), 2u);
   loop.runUntilIdle();
   auto commands = commandsIssued();
   EXPECT_EQ(blockOf({a, b}), first);
   loop.runUntilIdle();
   EXPECT_EQ(commandsIssued(), commands);
}

TEST_F(ProgrammerTest, MembersFollowTheOrderOfTheSet) {
   interfaceIs(1, 0x11);
   auto set = l3ViaFactory();
   for (std::uint8_t neighbour = 1; neighbour <= 5; ++neighbour) {
      set->viaIs(unicastVia(neighbour, 1, neighbour), 1);
   }
   auto block = programmer->getEcmpBlockHandle(set, false);
   auto group = groupIs(7, block, 5);
   loop.runUntilIdle();
   std::vector<std::uint8_t> wanted;
   for (auto const& [via, value] : set->via()) {
      wanted.push_back(via.macAddr.bytes[5]);
   }
   std::vector<std::uint8_t> found;
   for (auto const& hop : ModelChip::followGroup(*chip, group->hwEntryIndex()).hops) {
      found.push_back(hop.dstMac.bytes[5]);
   }
   EXPECT_EQ(found, wanted);
}

struct KindCase {
   char const* name;
   unsigned type;
   bool hasPort;
   bool isCpuDrop;
   unsigned destinationType;
   unsigned destinationId;
   bool hasInterface;
};

class KindTest : public ProgrammerTest, public testing::WithParamInterface<KindCase> {};

TEST_P(KindTest, BecomesTheNextHopOfItsKind) {
   auto const& kind = GetParam();
   interfaceIs(1, 0x11);
   auto via = unicastVia(1, 1, kind.hasPort ? 101 : 0xffff);
   via.nhEntryType = Brix::NextHopEntryType(kind.type);
   auto block = blockOf({via}, kind.isCpuDrop);
   auto group = groupIs(7, block, 1);
   loop.runUntilIdle();
   auto rows = ModelChip::followGroup(*chip, group->hwEntryIndex());
   ASSERT_THAT(rows.hops, SizeIs(1));
   EXPECT_EQ(rows.problem, "");
   EXPECT_EQ(rows.hops[0].destinationType, kind.destinationType);
   EXPECT_EQ(rows.hops[0].destinationId, kind.destinationId);
   EXPECT_EQ(rows.hops[0].interface.has_value(), kind.hasInterface);
   auto const& nextHops = *programmer->l3EcmpNextHopTable();
   nextHops.handles().forEach([&](auto const& handle) {
      EXPECT_EQ(nextHops.ingL3NextHop2TableEntry(handle.key())->strengthProfileIndex, 5);
      auto egr = nextHops.egrL3NextHop2Entry(handle.key());
      EXPECT_EQ(egr->strengthProfileIndex, 9);
      EXPECT_EQ(egr->dstMacAddress, kind.hasInterface ? via.macAddr : Fendo::EthAddr());
      EXPECT_EQ(egr->l3Oif2Handle,
                kind.hasInterface ? interfaces->entryWeakRef(1) : SwTableWorkaround::dontCareHandle(0));
   });
   auto member = chip->table("L3UnderlayEcmpMember1Table")->row(rows.base);
   EXPECT_EQ(ModelChip::L3UnderlayEcmpMember1Table::strengthProfile.unpack(member), 0u);
}

INSTANTIATE_TEST_SUITE_P(All, KindTest,
                         testing::Values(KindCase{"unicast", 2, true, false, 4, 101, true},
                                         KindCase{"unicastDropping", 2, true, true, 4, 101, true},
                                         KindCase{"tunnelUnicast", 11, true, false, 4, 101, true},
                                         KindCase{"tunnelUnicastDropping", 11, true, true, 4, 101, true},
                                         KindCase{"tunnelUnicastWithoutPort", 11, false, false, 8, 0, false},
                                         KindCase{"tunnelUnicastWithoutPortDropping", 11, false, true, 0, 0,
                                                  false},
                                         KindCase{"unicastWithoutPort", 2, false, false, 8, 0, false},
                                         KindCase{"unicastWithoutPortDropping", 2, false, true, 0, 0, false},
                                         KindCase{"receive", 0, true, false, 8, 0, false},
                                         KindCase{"receiveDropping", 0, true, true, 0, 0, false},
                                         KindCase{"glean", 4, true, false, 8, 0, false},
                                         KindCase{"gleanDropping", 4, true, true, 0, 0, false},
                                         KindCase{"drop", 3, true, false, 0, 0, false},
                                         KindCase{"dropDropping", 3, true, true, 0, 0, false}),
                         [](auto const& test) { return test.param.name; });

TEST_F(ProgrammerTest, ReturnsNothingBeforeItsTablesAreThere) {
   auto fresh = l3UnderlayEcmpProgrammerFactory(fcsd, stateDatabase, local);
   Trace::TraceCapture trace(_defaultTraceHandle());
   EXPECT_FALSE(fresh->getEcmpBlockHandle(l3ViaFactory(), false));
   EXPECT_THAT(trace.lines(), ElementsAre("getEcmpBlockHandle ARM tables are not initialized"));
   auto ring = Trace::readRing(Trace::ringImage()).messages;
   ASSERT_THAT(ring, Not(testing::IsEmpty()));
   EXPECT_EQ(ring.back().text, "getEcmpBlockHandle ARM tables are not initialized");
   EXPECT_EQ(ring.back().level, 4u);
   EXPECT_EQ(commandsIssued(), 0u);
}

TEST_F(ProgrammerTest, OnlyStoresWhatItIsMadeWith) {
   for (auto const& fresh :
        {l3UnderlayEcmpProgrammerFactory(fcsd, stateDatabase, local),
         L3UnderlayEcmpProgrammer::L3UnderlayEcmpProgrammerIs(fcsd, stateDatabase, local)}) {
      EXPECT_EQ(fresh->fcsd(), fcsd);
      EXPECT_EQ(fresh->kalloEm(), stateDatabase);
      EXPECT_EQ(fresh->localEm(), local);
      EXPECT_FALSE(fresh->l3EcmpNextHopTable());
      EXPECT_FALSE(fresh->l3EcmpMemberTable());
      EXPECT_FALSE(fresh->egrL3Oif2());
      EXPECT_FALSE(fresh->chipInfo());
   }
}

TEST_F(ProgrammerTest, PublishesItsAttributesByName) {
   auto const& type = *Nuv::TypeInfo::find(L3UnderlayEcmpProgrammer::typeName());
   std::vector<Pelm::String> names;
   for (auto const& attribute : type.attributes()) {
      names.emplace_back(attribute.name);
      EXPECT_EQ(attribute.textIs, nullptr) << attribute.name;
   }
   EXPECT_THAT(names, ElementsAre("fcsd", "kalloEm", "localEm", "l3EcmpNextHopTable", "l3EcmpMemberTable",
                                  "egrL3Oif2", "chipInfo", "defaultIngUnderlayFlow", "defaultEgrUnderlayFlow",
                                  "l3IngUnderlayFlow", "l3EgrUnderlayFlow"));
   auto published = [&](char const* name) { return type.attribute(name)->text(programmer.get()); };
   EXPECT_EQ(published("fcsd"), Nuv::text(fcsd));
   EXPECT_EQ(published("egrL3Oif2"), Nuv::text(interfaces));
   EXPECT_EQ(published("l3EcmpMemberTable"), Nuv::text(programmer->l3EcmpMemberTable()));
}

TEST_F(ProgrammerTest, PublishesTheChipAndTheFlowsThatItNeverReads) {
   auto const& type = *Nuv::TypeInfo::find(L3UnderlayEcmpProgrammer::typeName());
   auto published = [&](char const* name) { return type.attribute(name)->text(programmer.get()); };
   ASSERT_TRUE(programmer->chipInfo());
   EXPECT_EQ(programmer->chipInfo()->info.sharedAllocators, chip->chipInfo().sharedAllocators);
   EXPECT_EQ(published("chipInfo"), Nuv::text(programmer->chipInfo()));
   for (auto const* name :
        {"defaultIngUnderlayFlow", "defaultEgrUnderlayFlow", "l3IngUnderlayFlow", "l3EgrUnderlayFlow"}) {
      EXPECT_EQ(published(name), "0x0") << name;
   }
   L3UnderlayEcmpProgrammer::Flow const flows[] = {l3ViaFactory(), l3ViaFactory(), l3ViaFactory(),
                                                   l3ViaFactory()};
   programmer->defaultIngUnderlayFlowIs(flows[0]);
   programmer->defaultEgrUnderlayFlowIs(flows[1]);
   programmer->l3IngUnderlayFlowIs(flows[2]);
   programmer->l3EgrUnderlayFlowIs(flows[3]);
   EXPECT_EQ(published("defaultIngUnderlayFlow"), Nuv::text(flows[0]));
   EXPECT_EQ(published("defaultEgrUnderlayFlow"), Nuv::text(flows[1]));
   EXPECT_EQ(published("l3IngUnderlayFlow"), Nuv::text(flows[2]));
   EXPECT_EQ(published("l3EgrUnderlayFlow"), Nuv::text(flows[3]));
   auto block = blockOf({viaOfKind(Brix::NextHopEntryType::drop)});
   auto nextHops = programmer->l3EcmpNextHopTable();
   nextHops->handles().forEach([&](auto const& handle) {
      EXPECT_EQ(nextHops->ingL3NextHop2TableEntry(handle.key())->strengthProfileIndex, 5);
      EXPECT_EQ(nextHops->egrL3NextHop2Entry(handle.key())->strengthProfileIndex, 9);
   });
}

TEST_F(ProgrammerTest, TracesWhatItIsAskedAndWhatItDecides) {
   interfaceIs(1, 0x11);
   Trace::TraceCapture trace(_defaultTraceHandle());
   blockOf({unicastVia(1, 1, 101)});
   EXPECT_EQ(trace.count("getEcmpBlockHandle nextHop: entryType=unicast;macAddr=02:00:00:00:00:01; l2If=101; "
                         "l3Id=1"),
             1u);
   EXPECT_EQ(trace.count("fillNextHopInfo; macAddr=02:00:00:00:00:01 cpu=False; drop=False"), 1u);
   blockOf({viaOfKind(Brix::NextHopEntryType::receive)});
   EXPECT_EQ(trace.count(" cpuNextHop"), 1u);
   blockOf({viaOfKind(Brix::NextHopEntryType::drop)});
   EXPECT_EQ(trace.count(" dropNextHop"), 1u);
   programmer->initTables(chip->chipInfo());
   EXPECT_EQ(trace.count("initTables Allocating L3EcmpNextHop tables"), 1u);
}

TEST_F(ProgrammerTest, PublishesTheHardwareTablesOfItsTables) {
   auto fresh = l3UnderlayEcmpProgrammerFactory(fcsd, Nuv::make<Kallo::EntityManager>(), local);
   chip->publish(*fresh->kalloEm(), unit);
   auto mounts = Nuv::make<Kallo::MountGroup>();
   fresh->doMountHwTableMountInfo(mounts);
   mounts->doMount(fresh->kalloEm());
   EXPECT_EQ(mounts->state(), Kallo::MountGroup::State::waiting);
   fresh->initTables(chip->chipInfo());
   EXPECT_TRUE(mounts->isComplete());
   std::vector<Pelm::String> names;
   for (auto const& [path, typeName] : mounts->mounts()) {
      auto info = Nuv::dynamicCast<Asic::HwTableMountInfo>(fresh->kalloEm()->getEntity(path));
      names.push_back(info->hwTable(unit)->name);
   }
   EXPECT_THAT(names,
               UnorderedElementsAre("IngL3NextHop2Table", "EgrL3NextHop2", "L3UnderlayEcmpMember1Table"));
   fresh->initTables(chip->chipInfo());
   EXPECT_TRUE(mounts->isComplete());
}

TEST_F(ProgrammerTest, PublishesATableAsSoonAsItIsInitialised) {
   struct Watch final : Nuv::EntityDirectory::Notifiee {
      void handleEntity(Pelm::String const& path) override { onEntity(path); }

      std::function<void(Pelm::String const&)> onEntity;
   };
   auto database = Nuv::make<Kallo::EntityManager>();
   auto fresh = l3UnderlayEcmpProgrammerFactory(fcsd, database, local);
   auto mounts = Nuv::make<Kallo::MountGroup>();
   chip->publish(*database, unit);
   fresh->doMountHwTableMountInfo(mounts);
   mounts->doMount(database);
   auto const vias = l3ViaFactory();
   vias->viaIs(viaOfKind(Brix::NextHopEntryType::unicast), 1);
   std::vector<Pelm::String> seen;
   Watch watch;
   watch.onEntity = [&](Pelm::String const& path) {
      EXPECT_FALSE(fresh->getEcmpBlockHandle(vias, false)) << "the tables are not all there yet";
      if (path == Asic::HwTableMountInfo::path(EgrL3NextHop2::typeName())) {
         EXPECT_TRUE(fresh->l3EcmpNextHopTable()->indexAllocator());
         EXPECT_FALSE(fresh->l3EcmpMemberTable());
         seen.emplace_back("next hops");
      } else if (path == Asic::HwTableMountInfo::path(L3UnderlayEcmpMember1Table::typeName())) {
         EXPECT_TRUE(fresh->l3EcmpMemberTable()->indexAllocator());
         EXPECT_FALSE(fresh->egrL3Oif2());
         seen.emplace_back("members");
      }
   };
   database->notifieeIs(watch);
   fresh->initTables(chip->chipInfo());
   EXPECT_THAT(seen, ElementsAre("next hops", "members"));
}

using ProgrammerDeathTest = ProgrammerTest;

TEST_F(ProgrammerDeathTest, RefusesKindsThatMayNotReachTheUnderlay) {
   std::set<unsigned> const mayReachIt{0, 2, 3, 4, 11};
   for (unsigned type = 0; type <= 255; ++type) {
      auto via = viaOfKind(Brix::NextHopEntryType(type));
      if (mayReachIt.contains(type)) {
         EXPECT_TRUE(blockOf({via})) << type;
      } else {
         EXPECT_DEATH(blockOf({via}), "fillNextHopInfo:[0-9]+: .*\"0\"") << type;
      }
   }
}

TEST_F(ProgrammerDeathTest, WantsTheInterfaceOfAUnicastVia) {
   EXPECT_DEATH(blockOf({unicastVia(1, 5, 101)}), "expect a valid entryHandle, key: 5");
}

TEST_F(ProgrammerDeathTest, WantsABlock) {
   programmer->l3EcmpMemberTable()->cleanup();
   EXPECT_DEATH(blockOf({}), "\"ecmpBlockHandle\"");
}

TEST_F(ProgrammerDeathTest, WantsTheChipToBeKnown) {
   auto unknown = Nuv::make<ZandorCentral::FeatureAgentCommonSmData>(unit);
   auto fresh = l3UnderlayEcmpProgrammerFactory(unknown, stateDatabase, local);
   EXPECT_DEATH(fresh->initTables(chip->chipInfo()), "fcsd\\(\\)->logicalModInfos\\(\\)");
}

TEST_F(ProgrammerDeathTest, WantsTheSharedInterfaceTable) {
   auto other = Nuv::make<Local::EntityManager>();
   auto fresh = l3UnderlayEcmpProgrammerFactory(fcsd, stateDatabase, other);
   EXPECT_DEATH(fresh->initTables(chip->chipInfo()), "egrL3Oif2\\(\\)");
   other->entityIs(L3UnderlayEcmpProgrammer::egrL3Oif2Path, groups);
   EXPECT_DEATH(fresh->initTables(chip->chipInfo()), "egrL3Oif2\\(\\)");
}

} // namespace
} // namespace ZandorL3Tunnel
