#include "platform/asic/DontCareHandle.h"

#include <gtest/gtest.h>

namespace SwTableWorkaround {
namespace {

TEST(DontCareHandle, IsOneObjectForEachIndex) {
   auto handle = dontCareHandle(3);
   EXPECT_EQ(handle, dontCareHandle(3));
   EXPECT_NE(handle, dontCareHandle(4));
}

TEST(DontCareHandle, OutlivesItsHolders) {
   auto const* address = dontCareHandle(5).get();
   auto number = dontCareHandle(5)->creationNumber();
   EXPECT_EQ(dontCareHandle(5).get(), address);
   EXPECT_EQ(dontCareHandle(5)->creationNumber(), number);
}

TEST(DontCareHandle, IsCompleteAtItsIndexFromTheStart) {
   for (Asic::Index index : {0u, 1u, 8191u, Asic::invalidIndex}) {
      auto handle = dontCareHandle(index);
      EXPECT_TRUE(handle->isComplete());
      EXPECT_FALSE(handle->isFailed());
      EXPECT_TRUE(handle->isHwIndexValid());
      EXPECT_EQ(handle->hwEntryIndex(), index);
      EXPECT_EQ(Asic::SwTableBase::getHwIndexForDependentField(handle), index);
   }
}

} // namespace
} // namespace SwTableWorkaround
