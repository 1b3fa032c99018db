#pragma once

#include "platform/nuv/Text.h"
#include "platform/trace/TraceHandle.h"

/// Text trace: writes the text forms of the values, one after the other, as one line. A closed level costs
/// one test of a bit; its values are not even evaluated.
#define DUOLOG(handle, level, ...)                                                                           \
   do {                                                                                                      \
      auto const& duologHandle = (handle);                                                                   \
      if (duologHandle.isOpen(level)) [[unlikely]] {                                                         \
         ::Trace::line(duologHandle, level, ::Nuv::text(__VA_ARGS__));                                       \
      }                                                                                                      \
   } while (false)
