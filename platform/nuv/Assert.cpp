#include "platform/nuv/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Nuv {

void
assertionFailed(char const* source, int line, char const* condition, Pelm::String const& message) {
   std::fprintf(stderr, "%s:%d: assertion \"%s\" failed%s%s\n", source, line, condition,
                message.empty() ? "" : ": ", message.c_str());
   std::fflush(stderr);
   std::abort();
}

} // namespace Nuv
