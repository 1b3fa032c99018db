#include "chip/model/testing/ChipTest.h"
#include "programmer/L3UnderlayEcmpProgrammer.h"
#include "tables/L3EcmpGroup0Table.h"

#include <set>

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::SizeIs;
using testing::UnorderedElementsAre;

L3ViaEntry
unicastVia(std::uint8_t neighbour, std::uint16_t interface, std::uint16_t port) {
   L3ViaEntry via;
   via.nhEntryType = Brix::NextHopEntryType::unicast;
   via.macAddr = {{2, 0, 0, 0, 0, neighbour}};
   via.l3Id = {interface};
   via.l2If = {port};
   return via;
}

L3ViaEntry
viaOfKind(Brix::NextHopEntryType type) {
   L3ViaEntry via;
   via.nhEntryType = type;
   return via;
}

class ProgrammerTest : public ModelChip::ChipTest {
 protected:
   ProgrammerTest() {
      fcsd->logicalModInfoIs({0});
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      groups->doInit(unit, stateDatabase, chip->chipInfo());
      local->entityIs(L3UnderlayEcmpProgrammer::egrL3Oif2Path, EgrL3Oif2::typeName(), interfaces);
      programmer->initTables(chip->chipInfo());
   }

   void interfaceIs(Asic::Index index, std::uint8_t mac) {
      EgrL3Oif2::Entry entry;
      entry.srcMacAddress = {{2, 1, 0, 0, 0, mac}};
      interfaces->entryCommit(index, entry);
   }

   Handle blockOf(std::initializer_list<L3ViaEntry> vias, bool isCpuDrop = false) {
      auto set = l3ViaFactory();
      for (auto const& via : vias) {
         set->viaIs(via, 1);
      }
      return programmer->getEcmpBlockHandle(set, isCpuDrop);
   }

   Handle groupIs(std::uint32_t id, Handle const& block, std::uint16_t paths) {
      L3EcmpGroup0Table::Entry entry;
      entry.ecmpBlockPtrHandle = block;
      entry.numPaths = paths;
      ZandorL3Common::L3AdjIdKey key;
      key.id = id;
      return groups->entryCommit(key, entry);
   }

   void groupDel(std::uint32_t id) {
      ZandorL3Common::L3AdjIdKey key;
      key.id = id;
      groups->entryRemove(key);
   }

   Nuv::Ptr<Local::EntityManager> local = Nuv::make<Local::EntityManager>();
   Nuv::Ptr<ZandorCentral::FeatureAgentCommonSmData> fcsd =
         Nuv::make<ZandorCentral::FeatureAgentCommonSmData>(unit);
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3EcmpGroup0Table> groups = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
   Nuv::Ptr<L3UnderlayEcmpProgrammer> programmer =
         l3UnderlayEcmpProgrammerFactory(fcsd, stateDatabase, local);
};

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
      EXPECT_EQ(nextHops.egrL3NextHop2Entry(handle.key())->strengthProfileIndex, 9);
   });
}

INSTANTIATE_TEST_SUITE_P(All, KindTest,
                         testing::Values(KindCase{"unicast", 2, true, false, 4, 101, true},
                                         KindCase{"tunnelUnicast", 11, true, true, 4, 101, true},
                                         KindCase{"unicastWithoutPort", 2, false, false, 8, 0, false},
                                         KindCase{"unicastWithoutPortDropping", 2, false, true, 0, 0, false},
                                         KindCase{"receive", 0, true, false, 8, 0, false},
                                         KindCase{"receiveDropping", 0, true, true, 0, 0, false},
                                         KindCase{"glean", 4, true, false, 8, 0, false},
                                         KindCase{"drop", 3, true, false, 0, 0, false},
                                         KindCase{"dropDropping", 3, true, true, 0, 0, false}),
                         [](auto const& test) { return test.param.name; });

TEST_F(ProgrammerTest, ReturnsNothingBeforeItsTablesAreThere) {
   auto fresh = l3UnderlayEcmpProgrammerFactory(fcsd, stateDatabase, local);
   Trace::TraceCapture trace(_defaultTraceHandle());
   EXPECT_FALSE(fresh->getEcmpBlockHandle(l3ViaFactory(), false));
   EXPECT_THAT(trace.lines(), ElementsAre("getEcmpBlockHandle ARM tables are not initialized"));
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

TEST_F(ProgrammerTest, WritesOneDestinationFromInterfaceToGroup) {
   interfaceIs(1, 0x11);
   auto group = groupIs(7, blockOf({unicastVia(1, 1, 101), viaOfKind(Brix::NextHopEntryType::drop)}), 2);
   loop.runUntilIdle();
   ASSERT_THAT(rowsApplied, SizeIs(8));
   EXPECT_EQ(rowsApplied[5], "L3UnderlayEcmpMember1Table written 0");
   EXPECT_EQ(rowsApplied[6], "L3UnderlayEcmpMember1Table written 1");
   EXPECT_EQ(rowsApplied[7], "L3EcmpGroup0Table written 0");

   rowsApplied.clear();
   groupDel(7);
   group = nullptr;
   loop.runUntilIdle();
   ASSERT_THAT(rowsApplied, SizeIs(7));
   EXPECT_EQ(rowsApplied[0], "L3EcmpGroup0Table cleared 0");
   EXPECT_EQ(rowsApplied[1], "L3UnderlayEcmpMember1Table cleared 0");
   EXPECT_EQ(rowsApplied[2], "L3UnderlayEcmpMember1Table cleared 1");
}

TEST_F(ProgrammerTest, SetTooLargeForABlockIsRefusedAndLeavesNothing) {
   interfaceIs(1, 0x11);
   auto set = l3ViaFactory();
   for (unsigned number = 0; number < 65536; ++number) {
      auto via = viaOfKind(Brix::NextHopEntryType::drop);
      via.macAddr = Fendo::EthAddr::fromValue(number);
      set->viaIs(via, 1);
   }
   chip->rowObserverIs({});
   EXPECT_THROW(programmer->getEcmpBlockHandle(set, false), Nuv::Exception);
   EXPECT_EQ(programmer->l3EcmpNextHopTable()->handles().size(), 0u);
   loop.runUntilIdle();
   EXPECT_EQ(programmer->l3EcmpNextHopTable()->indexAllocator()->holders(), 0u);
   EXPECT_EQ(rowsPresent(), 1u);
}

TEST_F(ProgrammerTest, NewTablesDisturbNoRowThatIsInUse) {
   interfaceIs(1, 0x11);
   auto a = unicastVia(1, 1, 101);
   auto before = blockOf({a});
   auto group = groupIs(7, before, 1);
   loop.runUntilIdle();
   auto oldTable = programmer->l3EcmpMemberTable().get();
   programmer->initTables(chip->chipInfo());
   EXPECT_NE(programmer->l3EcmpMemberTable().get(), oldTable);
   auto after = blockOf({a});
   auto second = groupIs(8, after, 1);
   loop.runUntilIdle();
   EXPECT_NE(after, before);
   before = nullptr;
   groupDel(7);
   group = nullptr;
   loop.runUntilIdle();
   auto other = blockOf({unicastVia(2, 1, 102)});
   loop.runUntilIdle();
   auto rows = ModelChip::followGroup(*chip, second->hwEntryIndex());
   EXPECT_EQ(rows.problem, "");
   ASSERT_THAT(rows.hops, SizeIs(1));
   EXPECT_EQ(rows.hops[0].destinationId, 101);
   EXPECT_EQ(rows.hops[0].dstMac.bytes[5], 1);
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
   std::vector<Pelm::String> seen;
   Watch watch;
   watch.onEntity = [&](Pelm::String const& path) {
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
   for (unsigned type : {1, 5, 6, 7, 8, 9, 10, 12, 255}) {
      EXPECT_DEATH(blockOf({viaOfKind(Brix::NextHopEntryType(type))}), "fillNextHopInfo:[0-9]+: .*\"0\"");
   }
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
