#pragma once

#include <string>

namespace L3TunnelAgent::Live {

/// Puts the rest of the program into mount, process and network namespaces of its own, with a /run of its
/// own: network namespaces and routers made there are the program's own, and end with it, however it ends.
/// Called once, by main, before there are threads. What follows runs in a child; the caller of the program
/// sees that child's exit code.
void enterSandbox();

/// @return why there is no sandbox, empty when this program runs in one.
std::string const& whyNoSandbox();

} // namespace L3TunnelAgent::Live

/// Skips the test where namespaces cannot be made.
#define SKIP_WITHOUT_SANDBOX()                                                                               \
   if (!L3TunnelAgent::Live::whyNoSandbox().empty()) {                                                       \
      GTEST_SKIP() << "Namespaces cannot be made: " << L3TunnelAgent::Live::whyNoSandbox()                   \
                   << ". Recordings cover it: agent/testdata/small, agent/testdata/mixed";                   \
   }                                                                                                         \
   static_assert(true)
