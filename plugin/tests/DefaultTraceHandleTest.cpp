#include "plugin/DefaultTraceHandle.h"

#include <gtest/gtest.h>

namespace ZandorL3Tunnel {
namespace {

TEST(DefaultTraceHandle, IsOneObjectWithTheLibrarysName) {
   auto& handle = _defaultTraceHandle();
   EXPECT_EQ(handle.name(), "L3UnderlayTunnel");
   EXPECT_EQ(&_defaultTraceHandle(), &handle);
}

TEST(DefaultTraceHandle, HasAllItsLevelsClosedAtFirst) {
   for (unsigned level : {TraceLevel::programmer, TraceLevel::write, TraceLevel::resolve, TraceLevel::state,
                          TraceLevel::hardware}) {
      EXPECT_FALSE(_defaultTraceHandle().isOpen(level)) << level;
   }
}

} // namespace
} // namespace ZandorL3Tunnel
