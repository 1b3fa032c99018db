#include "platform/trace/TraceHandle.h"

#include <cstdio>

namespace Trace {

namespace {

Sink&
sink() {
   static Sink instance;
   return instance;
}

} // namespace

void
sinkIs(Sink newSink) {
   sink() = std::move(newSink);
}

void
line(TraceHandle const& handle, unsigned level, Pelm::StringView text) {
   if (auto const& to = sink()) {
      to(handle, level, text);
   } else {
      std::fprintf(stderr, "%s/%u %.*s\n", handle.name().c_str(), level, int(text.size()), text.data());
   }
}

} // namespace Trace
