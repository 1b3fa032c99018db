#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/asic/GenericIndexAllocatorStub.h"
#include "platform/asic/testing/TinyTable.h"

#include <gtest/gtest.h>

namespace Asic {
namespace {

int allocatorsLiving = 0;

/// Two types of shared allocator: each belongs to a module of its own.
template <int number>
class TestAllocator final : public FirstFreeIndexAllocator {
 public:
   explicit TestAllocator(Pelm::String name) : FirstFreeIndexAllocator(std::move(name)) {
      ++allocatorsLiving;
   }
   ~TestAllocator() override { --allocatorsLiving; }

   static char const* typeName() { return "Test::Allocator"; }
   static Nuv::FwkType staticFwkType() {
      static Nuv::Module const module(Nuv::text("TestAllocator", number));
      return {&module};
   }
   Nuv::FwkType fwkType() const override { return staticFwkType(); }
};

using One = TestAllocator<1>;
using Two = TestAllocator<2>;

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
   auto first = GenericIndexAllocatorStub::createSharedAllocator<One>(*a);
   auto second = GenericIndexAllocatorStub::createSharedAllocator<One>(*b);
   auto other = GenericIndexAllocatorStub::createSharedAllocator<Two>(*a);
   ASSERT_TRUE(first);
   ASSERT_TRUE(other);
   EXPECT_EQ(first, second);
   EXPECT_EQ(first->name(), "Test::Allocator");
   EXPECT_NE(static_cast<Nuv::Object*>(first.get()), other.get());
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 2u);
   EXPECT_EQ(chip.sharedAllocators->sharers(Two::staticFwkType()), 1u);
}

TEST_F(SharedAllocatorsTest, ChipsShareNothing) {
   auto otherChip = newChip();
   auto c = newTable(otherChip);
   EXPECT_NE(GenericIndexAllocatorStub::createSharedAllocator<One>(*a),
             GenericIndexAllocatorStub::createSharedAllocator<One>(*c));
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 1u);
   EXPECT_EQ(otherChip.sharedAllocators->sharers(One::staticFwkType()), 1u);
}

TEST_F(SharedAllocatorsTest, ATableCountsOnceHoweverOftenItAsks) {
   GenericIndexAllocatorStub::createSharedAllocator<One>(*a);
   GenericIndexAllocatorStub::createSharedAllocator<One>(*a);
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 1u);
   GenericIndexAllocatorStub::freeSharedAllocator<One>(*a);
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 0u);
   EXPECT_EQ(allocatorsLiving, 0);
}

TEST_F(SharedAllocatorsTest, AnAllocatorIsLetGoWithItsLastSharer) {
   GenericIndexAllocatorStub::createSharedAllocator<One>(*a);
   GenericIndexAllocatorStub::createSharedAllocator<One>(*b);
   EXPECT_EQ(allocatorsLiving, 1);
   GenericIndexAllocatorStub::freeSharedAllocator<One>(*a);
   GenericIndexAllocatorStub::freeSharedAllocator<One>(*a);
   EXPECT_EQ(allocatorsLiving, 1);
   GenericIndexAllocatorStub::freeSharedAllocator<One>(*b);
   EXPECT_EQ(allocatorsLiving, 0);
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 0u);
}

TEST_F(SharedAllocatorsTest, WhoHoldsAnAllocatorKeepsItFromEndingButNotShared) {
   auto held = GenericIndexAllocatorStub::createSharedAllocator<One>(*a);
   GenericIndexAllocatorStub::freeSharedAllocator<One>(*a);
   EXPECT_EQ(held->references(), 1u);
   EXPECT_NE(GenericIndexAllocatorStub::createSharedAllocator<One>(*a), held);
   GenericIndexAllocatorStub::freeSharedAllocator<One>(*a);
}

TEST_F(SharedAllocatorsTest, GivingBackWhatWasNeverSharedChangesNothing) {
   GenericIndexAllocatorStub::createSharedAllocator<One>(*a);
   GenericIndexAllocatorStub::freeSharedAllocator<Two>(*a);
   GenericIndexAllocatorStub::freeSharedAllocator<One>(*b);
   EXPECT_EQ(chip.sharedAllocators->sharers(One::staticFwkType()), 1u);
}

TEST_F(SharedAllocatorsTest, ATableWithoutAChipHasNone) {
   auto stranger = Nuv::make<TinyTable>();
   EXPECT_FALSE(GenericIndexAllocatorStub::createSharedAllocator<One>(*stranger));
   GenericIndexAllocatorStub::freeSharedAllocator<One>(*stranger);
   EXPECT_EQ(allocatorsLiving, 0);
}

} // namespace
} // namespace Asic
