#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/asic/GenericIndexAllocatorStub.h"
#include "platform/asic/testing/Keys.h"
#include "platform/asic/testing/TinyTable.h"

#include <gtest/gtest.h>

namespace Asic {
namespace {

int allocatorsLiving = 0;

Nuv::Module const modules[] = {Nuv::Module("TestAllocator1"), Nuv::Module("TestAllocator2"),
                               Nuv::Module("TestAllocator3")};

/// Types of shared allocator: each belongs to a module of its own.
template <int number>
class TestAllocator final : public FirstFreeIndexAllocator {
 public:
   explicit TestAllocator(Pelm::String name) : FirstFreeIndexAllocator(std::move(name)) {
      ++allocatorsLiving;
   }
   ~TestAllocator() override { --allocatorsLiving; }

   static Pelm::String typeName() { return Nuv::text("Test::Allocator", number); }
   static Nuv::FwkType staticFwkType() { return {&modules[number - 1]}; }
   Nuv::FwkType fwkType() const override { return staticFwkType(); }
};

using One = TestAllocator<1>;
using Two = TestAllocator<2>;
using Unregistered = TestAllocator<3>;

template <class A>
Nuv::Ptr<Nuv::Object>
newAllocator(Pelm::String const& name) {
   return Nuv::make<A>(name);
}

Nuv::RegisteredClass<One> const one(modules[0], &newAllocator<One>);
Nuv::RegisteredClass<Two> const two(modules[1], &newAllocator<Two>);

Nuv::Module const otherTables("OtherTables");
Nuv::FwkType const otherTableType{&otherTables};

template <class A>
Nuv::Ptr<A>
share(SwTable const& table) {
   auto type = A::staticFwkType();
   return Nuv::dynamicCast<A>(
         GenericIndexAllocatorStub::createSharedAllocator(type, table.fwkType(), &table));
}

template <class A>
void
unshare(SwTable const& table) {
   GenericIndexAllocatorStub::freeSharedAllocator(A::staticFwkType(), table.fwkType(), &table);
}

Nuv::NuvType const& keyType = Nuv::nuvType<NumberKey>();

class SharedAllocatorsTest : public testing::Test {
 protected:
   Nuv::Ptr<TinyTable> newTable(ChipInfo const& info) {
      auto table = Nuv::make<TinyTable>();
      table->doInit(0, Nuv::make<Kallo::EntityManager>(), info);
      return table;
   }
   static ChipInfo newChip() { return {Nuv::make<SharedAllocators>()}; }

   ChipInfo chip = newChip();
   Nuv::Ptr<TinyTable> a = newTable(chip);
   Nuv::Ptr<TinyTable> b = newTable(chip);
};

TEST_F(SharedAllocatorsTest, TablesOfOneChipShareOneOfEachType) {
   auto first = share<One>(*a);
   auto second = share<One>(*b);
   auto other = share<Two>(*a);
   ASSERT_TRUE(first);
   ASSERT_TRUE(other);
   EXPECT_EQ(first, second);
   EXPECT_EQ(first->name(), "Test::Allocator1");
   EXPECT_NE(static_cast<Nuv::Object*>(first.get()), other.get());
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 2u);
   EXPECT_EQ(chip.sharedAllocators->sharers(Two::staticFwkType()), 1u);
}

TEST_F(SharedAllocatorsTest, ChipsShareNothing) {
   auto otherChip = newChip();
   auto c = newTable(otherChip);
   EXPECT_NE(share<One>(*a), share<One>(*c));
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 1u);
   EXPECT_EQ(otherChip.sharedAllocators->sharers(One::staticFwkType()), 1u);
}

TEST_F(SharedAllocatorsTest, ATableCountsOnceHoweverOftenItAsks) {
   share<One>(*a);
   share<One>(*a);
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 1u);
   unshare<One>(*a);
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 0u);
   EXPECT_EQ(allocatorsLiving, 0);
}

TEST_F(SharedAllocatorsTest, AnAllocatorIsLetGoWithItsLastSharer) {
   share<One>(*a);
   share<One>(*b);
   EXPECT_EQ(allocatorsLiving, 1);
   unshare<One>(*a);
   unshare<One>(*a);
   EXPECT_EQ(allocatorsLiving, 1);
   unshare<One>(*b);
   EXPECT_EQ(allocatorsLiving, 0);
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 0u);
}

TEST_F(SharedAllocatorsTest, WhoHoldsAnAllocatorKeepsItFromEndingButNotShared) {
   auto held = share<One>(*a);
   unshare<One>(*a);
   EXPECT_EQ(held->references(), 1u);
   EXPECT_NE(share<One>(*a), held);
   unshare<One>(*a);
}

TEST_F(SharedAllocatorsTest, GivingBackWhatWasNeverSharedChangesNothing) {
   share<One>(*a);
   unshare<Two>(*a);
   unshare<One>(*b);
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 1u);
}

TEST_F(SharedAllocatorsTest, ATableWithoutAChipHasNone) {
   auto stranger = Nuv::make<TinyTable>();
   EXPECT_FALSE(share<One>(*stranger));
   unshare<One>(*stranger);
   EXPECT_EQ(allocatorsLiving, 0);
}

TEST_F(SharedAllocatorsTest, ATypeThatNobodyRegisteredHasNone) {
   EXPECT_FALSE(share<Unregistered>(*a));
   EXPECT_EQ(chip.sharedAllocators->sharers(Unregistered::staticFwkType()), 0u);
}

TEST_F(SharedAllocatorsTest, TablesOfDifferentTypesShareToo) {
   auto allocator = share<One>(*a);
   EXPECT_FALSE(allocator->hasSharerOf(otherTableType));
   EXPECT_EQ(GenericIndexAllocatorStub::createSharedAllocator(One::staticFwkType(), otherTableType, b.get()),
             allocator);
   EXPECT_TRUE(allocator->hasSharerOf(otherTableType));
   EXPECT_TRUE(allocator->hasSharerOf(a->fwkType()));
   EXPECT_EQ(allocator->sharers(), 2u);
   GenericIndexAllocatorStub::freeSharedAllocator(One::staticFwkType(), otherTableType, b.get());
   EXPECT_FALSE(allocator->hasSharerOf(otherTableType));
   unshare<One>(*a);
   EXPECT_EQ(allocator->sharers(), 0u);
}

TEST_F(SharedAllocatorsTest, AKeyStaysWhileAnySharerUsesIt) {
   auto allocator = share<One>(*a);
   share<One>(*b);
   allocator->numEntriesIs(4);
   NumberKey key(7);
   EXPECT_EQ(allocator->newIndexForKey(keyType, &key, a.get()), 0u);
   EXPECT_TRUE(allocator->canReleaseIndex(allocator->getKey(keyType, &key), a.get()));
   EXPECT_FALSE(allocator->canReleaseIndex(allocator->getKey(keyType, &key), b.get()));
   EXPECT_EQ(allocator->newIndexForKey(keyType, &key, b.get()), 0u);
   EXPECT_EQ(allocator->newIndexForKey(keyType, &key, b.get()), 0u);
   EXPECT_FALSE(allocator->canReleaseIndex(allocator->getKey(keyType, &key), a.get()));
   EXPECT_TRUE(allocator->releaseIndexFromTable(keyType, &key, a.get()));
   EXPECT_EQ(allocator->indexForKey(keyType, &key), 0u);
   EXPECT_FALSE(allocator->releaseIndexFromTable(keyType, &key, a.get()));
   EXPECT_EQ(allocator->indexForKey(keyType, &key), 0u);
   EXPECT_TRUE(allocator->canReleaseIndex(allocator->getKey(keyType, &key), b.get()));
   EXPECT_TRUE(allocator->releaseIndexFromTable(keyType, &key, b.get()));
   EXPECT_EQ(allocator->indexForKey(keyType, &key), invalidIndex);
   EXPECT_EQ(allocator->used(), 0u);
   unshare<One>(*a);
   unshare<One>(*b);
}

TEST_F(SharedAllocatorsTest, WhoRequestsAnIndexThatIsHeldUsesItToo) {
   auto allocator = share<One>(*a);
   share<One>(*b);
   allocator->numEntriesIs(4);
   NumberKey key(7);
   EXPECT_TRUE(allocator->requestIndexForKey(2, keyType, &key, a.get()));
   EXPECT_FALSE(allocator->requestIndexForKey(1, keyType, &key, b.get()));
   EXPECT_TRUE(allocator->canReleaseIndex(allocator->getKey(keyType, &key), a.get()));
   EXPECT_TRUE(allocator->requestIndexForKey(2, keyType, &key, b.get()));
   EXPECT_TRUE(allocator->releaseIndexFromTable(keyType, &key, a.get()));
   EXPECT_EQ(allocator->indexForKey(keyType, &key), 2u);
   unshare<One>(*a);
   unshare<One>(*b);
}

TEST_F(SharedAllocatorsTest, WithoutSharersATableReleasesAtOnce) {
   auto allocator = Nuv::make<One>("own");
   allocator->numEntriesIs(4);
   NumberKey key(7);
   allocator->newIndexForKey(keyType, &key, a.get());
   allocator->newIndexForKey(keyType, &key, nullptr);
   EXPECT_TRUE(allocator->releaseIndexFromTable(keyType, &key, a.get()));
   EXPECT_EQ(allocator->indexForKey(keyType, &key), invalidIndex);
   EXPECT_FALSE(allocator->releaseIndexFromTable(keyType, &key, a.get()));
}

TEST_F(SharedAllocatorsTest, ATableThatGoesAwayGivesBackWhatNobodyElseUses) {
   auto allocator = share<One>(*a);
   share<One>(*b);
   allocator->numEntriesIs(8);
   for (std::uint32_t number = 0; number < 6; ++number) {
      NumberKey key(number);
      if (number % 2 == 0) {
         allocator->newIndexForKey(keyType, &key, a.get());
      }
      if (number % 3 == 0) {
         allocator->newIndexForKey(keyType, &key, b.get());
      }
   }
   EXPECT_EQ(allocator->holders(), 4u);
   unshare<One>(*a);
   EXPECT_EQ(allocator->holders(), 2u);
   EXPECT_EQ(allocator->sharers(), 1u);
   for (std::uint32_t number : {0u, 3u}) {
      NumberKey key(number);
      EXPECT_TRUE(allocator->canReleaseIndex(allocator->getKey(keyType, &key), b.get())) << number;
   }
   unshare<One>(*b);
   EXPECT_EQ(allocator->holders(), 0u);
   EXPECT_EQ(allocator->used(), 0u);
}

TEST_F(SharedAllocatorsTest, KnowsWhichAttributeOfATableHoldsIt) {
   auto allocator = share<One>(*a);
   EXPECT_EQ(allocator->tableAttr(a.get()), "");
   allocator->setTableAttr(a.get(), "first");
   allocator->setTableAttr(a.get(), "indexAllocator");
   EXPECT_EQ(allocator->tableAttr(a.get()), "indexAllocator");
   EXPECT_EQ(allocator->tableAttr(b.get()), "");
   unshare<One>(*a);
   EXPECT_EQ(allocator->tableAttr(a.get()), "");
}

} // namespace
} // namespace Asic
