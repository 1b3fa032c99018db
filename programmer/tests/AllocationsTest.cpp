#include "platform/nuv/Pool.h"
#include "programmer/testing/ProgrammerTest.h"

#include <cstdlib>
#include <new>

namespace {

std::size_t allocations;

void*
allocated(std::size_t size) {
   ++allocations;
   if (void* memory = std::malloc(size == 0 ? 1 : size)) {
      return memory;
   }
   throw std::bad_alloc();
}

} // namespace

// These replace the process's own, the libraries' uses included.
void*
operator new(std::size_t size) {
   return allocated(size);
}
void*
operator new[](std::size_t size) {
   return allocated(size);
}
void
operator delete(void* memory) noexcept {
   std::free(memory);
}
void
operator delete[](void* memory) noexcept {
   std::free(memory);
}
void
operator delete(void* memory, std::size_t) noexcept {
   std::free(memory);
}
void
operator delete[](void* memory, std::size_t) noexcept {
   std::free(memory);
}

namespace ZandorL3Tunnel {
namespace {

class AllocationsTest : public ProgrammerTest, public testing::WithParamInterface<unsigned> {
 protected:
   template <class Work>
   static std::size_t allocationsOf(Work&& work) {
      auto before = allocations + Nuv::poolTaken();
      work();
      return std::size_t(allocations + Nuv::poolTaken() - before);
   }
};

TEST_P(AllocationsTest, AKnownSetCostsWhatItsBlockCostsAndNothingElse) {
   interfaceIs(1, 0x11);
   auto set = l3ViaFactory();
   for (unsigned number = 0; number < GetParam(); ++number) {
      auto via = unicastVia(std::uint8_t(number), 1, 101);
      set->viaIs(via, number);
   }
   auto block = programmer->getEcmpBlockHandle(set, false);
   loop.runUntilIdle();
   // What the pool has to cut off new memory for, it has by now.
   Handle again = programmer->getEcmpBlockHandle(set, false);
   auto known = allocationsOf([&] { again = programmer->getEcmpBlockHandle(set, false); });
   EXPECT_EQ(again, block);
   auto building = allocationsOf([&] {
      L3UnderlayEcmpMember1Table::EntryBlock same;
      if (GetParam() != 0) {
         same.reserve(GetParam());
      }
      for (unsigned position = 0; position < GetParam(); ++position) {
         same.entryIs(position, {});
      }
   });
   EXPECT_LE(known, building);
   EXPECT_EQ(building, GetParam() == 0 ? 0U : 2U) << "one for the block, one for its members";
   EXPECT_NE(allocationsOf([] { delete new std::vector<int>(1); }), 0U) << "allocations are counted";
   EXPECT_EQ(allocationsOf([] { Nuv::poolGive(Nuv::poolTake(24), 24); }), 1U) << "and those of the pool";
   rowsApplied.clear();
   loop.runUntilIdle();
   EXPECT_THAT(rowsApplied, testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Vias, AllocationsTest, testing::Values(0, 1, 4, 64, 200),
                         testing::PrintToStringParamName());

} // namespace
} // namespace ZandorL3Tunnel
