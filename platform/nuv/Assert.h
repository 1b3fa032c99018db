#pragma once

#include "platform/nuv/Export.h"
#include "platform/pelm/String.h"

namespace Nuv {

/// Prints source, line, condition and message to standard error, then aborts, in every build type.
[[noreturn]] ZANDOR_EXPORT void assertionFailed(char const* source, int line, char const* condition,
                                                Pelm::String const& message);

} // namespace Nuv

/// Stops the process when `condition` does not hold: for programming errors only. `text` is the condition as
/// it is quoted; `message` is evaluated only on failure.
#define NUV_ASSERT_AS(source, condition, text, message)                                                      \
   do {                                                                                                      \
      if (!(condition)) [[unlikely]] {                                                                       \
         ::Nuv::assertionFailed(source, __LINE__, text, message);                                            \
      }                                                                                                      \
   } while (false)

#define NUV_ASSERT(condition, message) NUV_ASSERT_AS(__FILE_NAME__, condition, #condition, message)
