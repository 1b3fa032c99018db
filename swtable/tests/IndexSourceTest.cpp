#include "chip/model/testing/ChipTest.h"
#include "swtable/BlockTable.h"
#include "swtable/KeyedTable.h"
#include "tables/L3EcmpMember0Table.h"
#include "tables/L3NextHop2Table.h"

namespace ZandorL3Tunnel {
namespace {

struct MemberEntry : Asic::EntryBase, Nuv::Record<MemberEntry> {
   std::uint32_t value{};

   static constexpr auto fieldList() {
      return Nuv::fieldList("Test::MemberEntry", Nuv::field("value", &MemberEntry::value));
   }
};

Nuv::Module const module("IndexSourceTest");

/// A table of blocks over the level-0 members beside the library's own. No util is there for it, so it writes
/// no rows.
struct OtherMembersSheet {
   static constexpr char const* typeName() { return "Test::OtherMembers"; }
   static constexpr char const* hwTableName() { return "None"; }
   using Source = SharedAllocator<L3EcmpMember0SharedAllocator>;
   using Entry = MemberEntry;
};

class OtherMembers final : public BlockTable<OtherMembers, OtherMembersSheet> {
 public:
   OtherMembers() : BlockTable("others") {}
   static Nuv::FwkType staticFwkType() { return {&module}; }
   Asic::Index numEntries() const override { return rows; }

   Asic::Index rows = 16;
};

/// A table with an allocator of its own.
struct OwnSheet {
   static constexpr char const* typeName() { return "Test::Own"; }
   static constexpr char const* hwTableName() { return "None"; }
   using Index = L3UnderlayNextHopKey;
   using Source = OwnAllocator<Asic::FirstFreeIndexAllocator>;
   using Entry = MemberEntry;
};

class Own final : public KeyedTable<Own, OwnSheet, Asic::SwTable> {
 public:
   explicit Own(Pelm::String name) : KeyedTable(std::move(name)) {}
   static Nuv::FwkType staticFwkType() { return {&module}; }
   Asic::Index numEntries() const override { return 2; }
};

/// An allocator that no class was registered for.
class Unknown final : public Asic::FirstFreeIndexAllocator {
 public:
   using FirstFreeIndexAllocator::FirstFreeIndexAllocator;
   static Nuv::FwkType staticFwkType() { return {&module}; }
};

class IndexSourceTest : public ModelChip::ChipTest {
 protected:
   using Block = OtherMembers::EntryBlock;

   IndexSourceTest() : ChipTest({{"L3EcmpMember0Table", 12}}) {}

   template <class T>
   Nuv::Ptr<T> initialized(Nuv::Ptr<T> table) {
      table->doInit(unit, stateDatabase, chip->chipInfo());
      return table;
   }

   static Block blockOf(std::initializer_list<std::uint32_t> values) {
      Block block;
      for (auto value : values) {
         MemberEntry entry;
         entry.value = value;
         block.entryIs(block.size(), entry);
      }
      return block;
   }

   static L3UnderlayNextHopKey keyOf(std::uint16_t port) {
      L3UnderlayNextHopKey key;
      key.l2If = {port};
      return key;
   }

   std::size_t sharers() const {
      return chip->chipInfo().sharedAllocators->sharers(L3EcmpMember0SharedAllocator::staticFwkType());
   }
};

TEST_F(IndexSourceTest, ABlockTableMakesItsAllocatorAsLargeAsItsHardwareAndSaysSo) {
   auto table = l3EcmpMember0TableFactory();
   EXPECT_FALSE(table->indexAllocator());
   Trace::TraceCapture trace(_defaultTraceHandle());
   initialized(table);
   EXPECT_EQ(trace.count("Creating shared allocator"), 1u);
   auto const& allocator = table->indexAllocator();
   ASSERT_TRUE(allocator);
   EXPECT_EQ(allocator->numEntries(), 12u);
   EXPECT_TRUE(allocator->initialized());
   EXPECT_TRUE(allocator->hasNotificationActive());
   EXPECT_EQ(allocator->name(), "ZandorL3Tunnel::L3EcmpMember0SharedAllocator");
   EXPECT_EQ(allocator->tableAttr(table.get()), "indexAllocator");
   EXPECT_TRUE(allocator->hasSharerOf(L3EcmpMember0Table::staticFwkType()));
}

TEST_F(IndexSourceTest, CleanupGivesTheAllocatorBackAndSaysSo) {
   auto table = initialized(Nuv::make<OtherMembers>());
   EXPECT_EQ(sharers(), 1u);
   Trace::TraceCapture trace(_defaultTraceHandle());
   table->cleanup();
   EXPECT_EQ(trace.count("Trying to delete shared allocator for table:others"), 1u);
   EXPECT_FALSE(table->indexAllocator());
   EXPECT_EQ(sharers(), 0u);
   trace.clear();
   table->cleanup();
   EXPECT_EQ(trace.count("Trying to delete shared allocator"), 0u);
}

TEST_F(IndexSourceTest, TwoTablesOfOneTypeShareOneAllocator) {
   auto a = initialized(Nuv::make<OtherMembers>());
   auto b = initialized(Nuv::make<OtherMembers>());
   EXPECT_EQ(a->indexAllocator(), b->indexAllocator());
   EXPECT_EQ(sharers(), 2u);
   auto block = blockOf({1, 2, 3});
   auto inA = a->entryBlockRef(block);
   auto inB = b->entryBlockRef(block);
   auto other = b->entryBlockRef(blockOf({4}));
   auto allocator = a->indexAllocator();
   EXPECT_EQ(allocator->used(), 4u);
   inA = nullptr;
   EXPECT_EQ(allocator->used(), 4u);
   EXPECT_EQ(a->heldHwIndex(block), 0u);
   inB = nullptr;
   EXPECT_EQ(allocator->used(), 1u);
   EXPECT_EQ(a->heldHwIndex(block), Asic::invalidIndex);
}

TEST_F(IndexSourceTest, TablesOfDifferentTypesDrawFromOneIndexSpace) {
   auto members = initialized(l3EcmpMember0TableFactory());
   auto others = initialized(Nuv::make<OtherMembers>());
   EXPECT_EQ(members->indexAllocator(), others->indexAllocator());
   EXPECT_EQ(sharers(), 2u);
   L3EcmpMember0Table::EntryBlock ours;
   ours.entryIs(1, {});
   // Keys of two types are two, even where both are empty of all else.
   auto handle = members->entryBlockRef(ours);
   auto other = others->entryBlockRef(blockOf({0, 0}));
   EXPECT_EQ(members->heldHwIndex(ours), 0u);
   EXPECT_EQ(others->heldHwIndex(blockOf({0, 0})), 2u);
   EXPECT_EQ(members->indexAllocator()->holders(), 2u);
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(others->heldHwIndex(blockOf({0, 0})), 2u);
   EXPECT_EQ(others->indexAllocator()->used(), 2u);
}

TEST_F(IndexSourceTest, AnAllocatorIsAsLargeAsTheLargestTableThatShares) {
   auto small = initialized(l3EcmpMember0TableFactory());
   EXPECT_EQ(small->indexAllocator()->numEntries(), 12u);
   auto large = initialized(Nuv::make<OtherMembers>());
   EXPECT_EQ(small->indexAllocator()->numEntries(), 16u);
   auto another = initialized(l3EcmpMember0TableFactory());
   EXPECT_EQ(another->indexAllocator()->numEntries(), 16u);
}

TEST_F(IndexSourceTest, ATableThatIsTakenDownGivesItsRunsBack) {
   auto a = initialized(Nuv::make<OtherMembers>());
   auto b = initialized(Nuv::make<OtherMembers>());
   auto allocator = a->indexAllocator();
   auto shared = blockOf({1, 2, 3});
   std::vector<Handle> handles{a->entryBlockRef(shared), b->entryBlockRef(shared),
                               a->entryBlockRef(blockOf({4, 5}))};
   EXPECT_EQ(allocator->used(), 5u);
   a->cleanup();
   EXPECT_EQ(allocator->used(), 3u);
   EXPECT_EQ(sharers(), 1u);
   b->cleanup();
   EXPECT_EQ(allocator->used(), 0u);
   EXPECT_EQ(sharers(), 0u);
}

TEST_F(IndexSourceTest, AnswersTheIndexOfARunOrTheInvalidOne) {
   auto table = initialized(Nuv::make<OtherMembers>());
   EXPECT_EQ(table->doAcquireHwIndex(blockOf({1, 2})), std::optional<Asic::Index>(0));
   EXPECT_EQ(table->doAcquireHwIndex(blockOf({3})), std::optional<Asic::Index>(2));
   EXPECT_EQ(table->doAcquireHwIndex(blockOf({1, 2})), std::optional<Asic::Index>(0));
   Block large;
   large.entryIs(13, {});
   EXPECT_EQ(table->doAcquireHwIndex(large), std::optional<Asic::Index>(Asic::invalidIndex));
   EXPECT_EQ(table->doAcquireHwIndex(Block()), std::optional<Asic::Index>(0));
   table->doReleaseHwIndex(blockOf({1, 2}));
   table->doReleaseHwIndex(blockOf({3}));
   EXPECT_EQ(table->doAcquireHwIndex(large), std::optional<Asic::Index>(0));
}

TEST_F(IndexSourceTest, AnotherAllocatorReplacesTheOneBefore) {
   auto table = initialized(Nuv::make<OtherMembers>());
   auto before = table->indexAllocator();
   auto after = l3EcmpMember0SharedAllocatorFactory("after");
   after->numEntriesIs(4);
   table->indexAllocatorIs(after);
   EXPECT_EQ(table->indexAllocator(), after);
   EXPECT_EQ(table->doAcquireHwIndex(blockOf({1})), std::optional<Asic::Index>(0));
   EXPECT_EQ(before->used(), 0u);
   EXPECT_EQ(after->used(), 1u);
   table->cleanup();
   EXPECT_EQ(after->used(), 0u);
   EXPECT_EQ(sharers(), 0u);
}

TEST_F(IndexSourceTest, ATableWithAnAllocatorOfItsOwnSharesNothingAndReleasesAtOnce) {
   auto a = initialized(Nuv::make<Own>("a"));
   auto b = initialized(Nuv::make<Own>("b"));
   ASSERT_NE(a->indexAllocator(), b->indexAllocator());
   EXPECT_EQ(a->indexAllocator()->name(), "a");
   EXPECT_EQ(a->indexAllocator()->numEntries(), 2u);
   EXPECT_TRUE(a->indexAllocator()->initialized());
   EXPECT_EQ(a->indexAllocator()->tableAttr(a.get()), "indexAllocator");
   EXPECT_EQ(a->indexAllocator()->sharers(), 0u);
   EXPECT_EQ(a->doAcquireHwIndex(keyOf(1)), std::optional<Asic::Index>(0));
   EXPECT_EQ(b->doAcquireHwIndex(keyOf(1)), std::optional<Asic::Index>(0));
   a->doReleaseHwIndex(keyOf(1));
   EXPECT_EQ(a->indexAllocator()->used(), 0u);
   EXPECT_EQ(b->indexAllocator()->used(), 1u);
   auto allocator = b->indexAllocator();
   b->cleanup();
   EXPECT_EQ(allocator->used(), 0u);
   EXPECT_FALSE(b->indexAllocator());
}

TEST_F(IndexSourceTest, NextHopsNeverGetIndexZero) {
   auto nextHops = initialized(l3NextHop2TableFactory());
   auto const& allocator = *nextHops->indexAllocator();
   EXPECT_EQ(allocator.reserved(), 1u);
   auto again = initialized(l3NextHop2TableFactory());
   EXPECT_EQ(allocator.reserved(), 1u);
   auto key = keyOf(1);
   auto const& type = Nuv::nuvType<L3UnderlayNextHopKey>();
   EXPECT_FALSE(nextHops->indexAllocator()->requestIndexForKey(0, type, &key));
   EXPECT_EQ(nextHops->indexAllocator()->newIndexForKey(type, &key), 1u);
}

TEST_F(IndexSourceTest, DiesWithoutATable) {
   EXPECT_DEATH(AllocatorUse::initAllocator(L3EcmpMember0SharedAllocator::staticFwkType(), nullptr, nullptr),
                "SwTableAccessor.*\"table\"");
}

TEST_F(IndexSourceTest, DiesWithoutAnAllocator) {
   auto table = Nuv::make<OtherMembers>();
   // The table knows no chip.
   EXPECT_DEATH(
         AllocatorUse::initAllocator(L3EcmpMember0SharedAllocator::staticFwkType(), table.get(), nullptr),
         "SwTableAccessor.*\"shalloc\"");
   initialized(table);
   EXPECT_DEATH(AllocatorUse::initAllocator(Unknown::staticFwkType(), table.get(), nullptr),
                "SwTableAccessor.*\"shalloc\"");
}

} // namespace
} // namespace ZandorL3Tunnel
