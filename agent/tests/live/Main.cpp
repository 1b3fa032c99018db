#include "agent/tests/live/Sandbox.h"

#include <gtest/gtest.h>

int
main(int argumentCount, char** arguments) {
   testing::InitGoogleTest(&argumentCount, arguments);
   if (!testing::GTEST_FLAG(list_tests)) {
      L3TunnelAgent::Live::enterSandbox();
   }
   return RUN_ALL_TESTS();
}
