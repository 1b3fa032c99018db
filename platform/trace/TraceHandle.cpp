#include "platform/trace/TraceHandle.h"

#include <cstdio>
#include <map>
#include <mutex>

namespace Trace {

namespace {

// Never destroyed: destructors of static objects may log.
Sink&
sink() {
   static Sink& instance = *new Sink;
   return instance;
}

struct Registry {
   std::mutex mutex;
   std::map<Pelm::String, TraceHandle> handles;
};

Registry&
registry() {
   static Registry& instance = *new Registry;
   return instance;
}

} // namespace

TraceHandle&
handleOf(Pelm::String const& name) {
   std::lock_guard const lock(registry().mutex);
   return registry().handles.try_emplace(name, name).first->second;
}

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
