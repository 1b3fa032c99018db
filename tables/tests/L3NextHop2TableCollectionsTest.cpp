#include "tables/testing/NextHopTest.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The merged table's collections: what each form of theirs does, and what is published.
class L3NextHop2TableCollectionsTest : public NextHopTest {
 protected:
   L3NextHop2TableCollectionsTest() {
      interface(1);
      rowsSince();
   }

   void TearDown() override {
      handle = nullptr;
      expectNothingLeft();
   }

   Handle handle;
};

TEST_F(L3NextHop2TableCollectionsTest, APairIsWaitedForAndThenInPlace) {
   handle = write(7, 1, 1);
   EXPECT_FALSE(nextHops->mergedEntryHas(keyOf(7)));
   EXPECT_TRUE(nextHops->unresolvedMergedEntryHas(keyOf(7)));
   rowsSince();
   EXPECT_TRUE(nextHops->mergedEntryHas(keyOf(7)));
   EXPECT_FALSE(nextHops->unresolvedMergedEntryHas(keyOf(7)));
   for (auto port : {8, 9}) {
      EXPECT_FALSE(nextHops->mergedEntryHas(keyOf(std::uint16_t(port))));
      EXPECT_FALSE(nextHops->unresolvedMergedEntryHas(keyOf(std::uint16_t(port))));
   }
}

TEST_F(L3NextHop2TableCollectionsTest, APairThatIsTakenBackFreesItsRowsAndItsIndexUntilItIsWrittenAgain) {
   handle = write(7, 1, 1);
   auto other = write(8, 2, 1);
   rowsSince();
   ModelChip::StateWatch watch(*handle);
   nextHops->mergedEntryDel(keyOf(7));
   EXPECT_FALSE(nextHops->mergedEntryHas(keyOf(7)));
   EXPECT_FALSE(handle->isHwIndexValid());
   EXPECT_EQ(handle->hwEntryIndex(), Asic::invalidIndex) << "somebody else may have the index now";
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u);
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3NextHop2 cleared 1", "IngL3NextHop2Table cleared 1"));
   nextHops->mergedEntryDel(keyOf(7));
   nextHops->mergedEntryDel(keyOf(9));
   EXPECT_EQ(write(7, 1, 1), handle);
   rowsSince();
   EXPECT_THAT(watch.states, ElementsAre(State::unresolved, State::inProgress, State::success));
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_EQ(other->entryState(), State::success);
   nextHops->mergedEntryDelAll();
   EXPECT_EQ(handle->entryState(), State::unresolved);
   EXPECT_EQ(other->entryState(), State::unresolved);
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
}

TEST_F(L3NextHop2TableCollectionsTest, APairTakenBackBehindANewerOneLeavesThatOneAlone) {
   handle = write(7, 1, 1);
   rowsSince();
   write(7, 2, 1);
   nextHops->mergedEntryDel(keyOf(7));
   EXPECT_EQ(handle->hwEntryIndex(), 1u);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
}

TEST_F(L3NextHop2TableCollectionsTest, AWaitingPairThatIsDroppedMayBeWrittenAgain) {
   for (bool hasPredecessor : {false, true}) {
      if (hasPredecessor) {
         handle = write(7, 9, 1);
         rowsSince();
      }
      handle = write(7, 1, 1);
      nextHops->unresolvedMergedEntryDel(keyOf(7));
      nextHops->unresolvedMergedEntryDel(keyOf(8));
      EXPECT_FALSE(nextHops->unresolvedMergedEntryHas(keyOf(7)));
      rowsSince();
      EXPECT_EQ(handle->entryState(), State::unresolved) << "nobody waits for the halves";
      write(7, 1, 1);
      rowsSince();
      EXPECT_EQ(handle->entryState(), State::success);
      EXPECT_TRUE(handle->isHwIndexValid());
      write(7, 2, 1);
      nextHops->unresolvedMergedEntryDelAll();
      EXPECT_EQ(handle->entryState(), State::unresolved);
      handle = nullptr;
      rowsSince();
      EXPECT_EQ(rowsPresent(), 1u);
   }
}

TEST_F(L3NextHop2TableCollectionsTest, APairMayBeBuiltByHand) {
   handle = write(7, 1, 1);
   rowsSince();
   auto pair = nextHops->mergedEntry(keyOf(7));
   nextHops->mergedEntryIs(keyOf(7), pair);
   EXPECT_EQ(nextHops->mergedEntry(keyOf(7)), pair);
   EXPECT_EQ(handle->entryState(), State::success) << "the same pair is in place";
   nextHops->mergedEntryIs(keyOf(8), pair);
   EXPECT_FALSE(nextHops->mergedEntryHas(keyOf(8))) << "a pair has an entry";
   EXPECT_FALSE(nextHops->unresolvedMergedEntryIs(keyOf(8)));
   auto waiting = nextHops->unresolvedMergedEntryIs(keyOf(7));
   ASSERT_TRUE(waiting);
   EXPECT_EQ(nextHops->unresolvedMergedEntry(keyOf(7)), waiting);
   auto another = nextHops->unresolvedMergedEntryIs(keyOf(7));
   waiting->initUnresolvedMergedEntry(pair);
   EXPECT_TRUE(nextHops->unresolvedMergedEntryHas(keyOf(7))) << "replaced, the first one says nothing";
   another->initUnresolvedMergedEntry(pair);
   EXPECT_FALSE(nextHops->unresolvedMergedEntryHas(keyOf(7)));
   another->doResolve();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_THAT(rowsSince(), IsEmpty());
}

TEST_F(L3NextHop2TableCollectionsTest, MappingsAreSetAndTakenBack) {
   handle = write(7, 1, 1);
   auto other = write(8, 2, 1);
   nextHops->mappedEntryHandleIs(keyOf(1), handle);
   nextHops->mappedEntryHandleIs(keyOf(2), handle);
   EXPECT_TRUE(nextHops->mappedEntryHandleHas(keyOf(1)));
   EXPECT_FALSE(nextHops->mappedEntryHandleHas(keyOf(7)));
   EXPECT_EQ(nextHops->mappedEntryHandles(), 2u);
   nextHops->mappedEntryHandleIs(keyOf(1), other);
   EXPECT_EQ(nextHops->mappedEntryHandle(keyOf(1)), other);
   nextHops->mappedEntryHandleDel(keyOf(1));
   nextHops->mappedEntryHandleDel(keyOf(1));
   EXPECT_FALSE(nextHops->mappedEntryHandleHas(keyOf(1)));
   auto const number = handle->creationNumber();
   handle = nullptr;
   EXPECT_EQ(nextHops->mappedEntryHandle(keyOf(2))->creationNumber(), number) << "a mapping holds it";
   nextHops->mappedEntryHandleIs(keyOf(3), other);
   nextHops->mappedEntryHandleDelAll();
   EXPECT_EQ(nextHops->mappedEntryHandles(), 0u);
   EXPECT_FALSE(nextHops->entryHas(keyOf(7)));
   EXPECT_TRUE(nextHops->entryHas(keyOf(8)));
}

TEST_F(L3NextHop2TableCollectionsTest, HandlesThatAreLetGoAreInertAndTheTableGoesOn) {
   handle = write(7, 1, 1);
   nextHops->entryCommit(keyOf(8), ing(2), egr(2));
   nextHops->mappedEntryHandleIs(keyOf(9), handle);
   rowsSince();
   nextHops->entryHandleDelAll();
   EXPECT_EQ(nextHops->handles().size(), 0u);
   EXPECT_EQ(nextHops->mappedEntryHandles(), 0u);
   EXPECT_EQ(handle->references(), 1u);
   EXPECT_FALSE(handle->isHwIndexValid());
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
   rowsSince();
   EXPECT_EQ(rowsPresent(), 1u);
   auto fresh = write(7, 1, 1);
   rowsSince();
   EXPECT_NE(fresh, handle);
   EXPECT_EQ(fresh->entryState(), State::success);
}

TEST_F(L3NextHop2TableCollectionsTest, AHandleMayBeMadeAheadAndIsWrittenLater) {
   handle = nextHops->entryHandleIs(keyOf(7));
   ASSERT_TRUE(nextHops->entryHandleHas(keyOf(7)));
   EXPECT_EQ(nextHops->entryHandle(keyOf(7))->entryType(), L3NextHop2Table::EntryHandle::unset());
   EXPECT_EQ(handle->references(), 2u) << "the table's, and this one";
   EXPECT_EQ(nextHops->entryHandleIs(keyOf(7)), handle);
   EXPECT_THAT(rowsSince(), IsEmpty());
   EXPECT_EQ(write(7, 1, 1), handle);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::success);
   handle = nullptr;
   EXPECT_FALSE(nextHops->entryHandleHas(keyOf(7)));
}

TEST_F(L3NextHop2TableCollectionsTest, AHandleThatIsLetGoIsInertAndItsKeyBeginsAnew) {
   nextHops->entryHandleDel(keyOf(7));
   handle = nextHops->entryCommit(keyOf(7), ing(1), egr(1));
   auto const other = write(8, 2, 1);
   nextHops->entryMapToKey(keyOf(9), keyOf(7), Asic::needsExplicitRemove());
   rowsSince();
   nextHops->entryHandleDel(keyOf(7));
   EXPECT_EQ(handle->references(), 1u);
   EXPECT_TRUE(handle->hasLeft());
   EXPECT_FALSE(nextHops->entryHas(keyOf(9))) << "it stood for what is gone";
   EXPECT_EQ(rowsSince().size(), 2u);
   EXPECT_EQ(other->entryState(), State::success);
   nextHops->entryHandleIs(keyOf(7));
   nextHops->entryHandleDel(keyOf(7));
   EXPECT_FALSE(nextHops->entryHandleHas(keyOf(7)));
   auto const again = write(7, 1, 1);
   rowsSince();
   EXPECT_EQ(again->entryState(), State::success);
   EXPECT_NE(again, handle);
}

TEST_F(L3NextHop2TableCollectionsTest, AnotherAllocatorKeepsBackTheSameIndices) {
   auto table = l3NextHop2TableFactory();
   table->doInit(unit, stateDatabase, chip->chipInfo());
   auto allocator = l3NextHop2SharedAllocatorFactory("another");
   allocator->numEntriesIs(3);
   table->indexAllocatorIs(allocator);
   EXPECT_EQ(table->indexAllocator(), allocator);
   handle = table->entryRef(keyOf(7), ing(1), egr(1));
   auto second = table->entryRef(keyOf(8), ing(1), egr(1));
   auto third = table->entryRef(keyOf(9), ing(1), egr(1));
   rowsSince();
   EXPECT_EQ(handle->hwEntryIndex(), 1u);
   EXPECT_EQ(second->hwEntryIndex(), 2u);
   EXPECT_EQ(third->entryState(), State::failed);
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
   EXPECT_DEATH(table->indexAllocatorIs(nullptr), "handles_.size\\(\\) == 0");
   handle = second = third = nullptr;
   rowsSince();
   EXPECT_EQ(allocator->holders(), 0u);
   table->indexAllocatorIs(nullptr);
   EXPECT_EQ(table->entryRef(keyOf(7), ing(1), egr(1))->entryState(), State::failed);
}

TEST_F(L3NextHop2TableCollectionsTest, EveryAttributeIsPublished) {
   auto const* type = Nuv::TypeInfo::find(L3NextHop2Table::typeName());
   ASSERT_TRUE(type);
   std::vector<Pelm::String> names;
   for (auto const& attribute : type->attributes()) {
      names.push_back(attribute.name);
      EXPECT_FALSE(attribute.textIs) << "whoever wants to change it calls the table";
   }
   EXPECT_THAT(names, ElementsAre("ingL3NextHop2Table", "egrL3NextHop2", "indexAllocator", "entryHandle",
                                  "mergedEntry", "unresolvedMergedEntry", "mappedEntryHandle",
                                  "indexDeallocatorSm"));
   auto text = [&](char const* name) { return type->attribute(name)->text(nextHops.get()); };
   EXPECT_EQ(text("ingL3NextHop2Table"), Nuv::text(nextHops->ingL3NextHop2Table()));
   EXPECT_EQ(text("egrL3NextHop2"), Nuv::text(nextHops->egrL3NextHop2()));
   EXPECT_EQ(text("indexAllocator"), Nuv::text(nextHops->indexAllocator()));
   EXPECT_EQ(text("indexDeallocatorSm"), Nuv::text(nextHops->indexDeallocatorSm()));
   for (auto const* name : {"entryHandle", "mergedEntry", "unresolvedMergedEntry", "mappedEntryHandle"}) {
      EXPECT_EQ(text(name), "None") << name;
   }
}

TEST_F(L3NextHop2TableCollectionsTest, OtherTablesPublishTheirCollectionsToo) {
   auto names = [](char const* typeName) {
      std::vector<Pelm::String> found;
      for (auto const& attribute : Nuv::TypeInfo::find(typeName)->attributes()) {
         found.push_back(attribute.name);
      }
      return found;
   };
   EXPECT_THAT(names("ZandorL3Tunnel::IngL3NextHop2Table"),
               ElementsAre("entryHandle", "resolvedEntry", "util", "writeResponseSm"));
   EXPECT_THAT(names("ZandorL3Tunnel::EgrL3NextHop2"),
               ElementsAre("entryHandle", "unresolvedEntry", "resolvedEntry", "util", "writeResponseSm"));
   for (auto const* blocks :
        {"ZandorL3Tunnel::L3EcmpMember0Table", "ZandorL3Tunnel::L3UnderlayEcmpMember1Table"}) {
      EXPECT_THAT(names(blocks), ElementsAre("indexAllocator", "entryHandle", "unresolvedEntryBlock",
                                             "resolvedEntryBlock", "util", "writeResponseSm"));
   }
   auto const* type = Nuv::TypeInfo::find("ZandorL3Tunnel::EgrL3NextHop2");
   EXPECT_EQ(type->attribute("resolvedEntry")->text(nextHops->egrL3NextHop2().get()), "None");
}

using L3NextHop2TableCollectionsDeathTest = L3NextHop2TableCollectionsTest;

TEST_F(L3NextHop2TableCollectionsDeathTest, AKeyIsMappedToAHandleOfItsOwnTable) {
   handle = write(7, 1, 1);
   EXPECT_DEATH(nextHops->mappedEntryHandleIs(keyOf(8), interfaces->entryWeakRef(1)), "of its own table");
   EXPECT_DEATH(nextHops->mappedEntryHandleIs(keyOf(8), nullptr), "of its own table");
}

TEST_F(L3NextHop2TableCollectionsDeathTest, ATableIsInitializedOnce) {
   EXPECT_DEATH(nextHops->doInit(unit, stateDatabase, chip->chipInfo()), "!isInitialized_");
   EXPECT_DEATH(interfaces->doInit(unit, stateDatabase, chip->chipInfo()), "!isInitialized_.*EgrL3Oif2");
}

// What a handle and the one slot of its entry take. Pointers of 32 bits only make them smaller.
TEST(HandleSizeTest, StaysWithinItsBounds) {
   EXPECT_LE(sizeof(IngL3NextHop2Table::EntryHandle), 128u);
   EXPECT_LE(sizeof(EgrL3NextHop2::EntryHandle), 128u);
   EXPECT_LE(sizeof(L3NextHop2Table::EntryHandle), 160u);
}

} // namespace
} // namespace ZandorL3Tunnel
