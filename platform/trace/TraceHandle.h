#pragma once

#include "platform/nuv/Export.h"
#include "platform/pelm/String.h"

#include <cstdint>
#include <functional>

namespace Trace {

/// A named source of trace lines with one bit per level, 0 to `maxLevel`. All levels are closed until
/// somebody opens them; those beyond are closed for good.
class ZANDOR_EXPORT TraceHandle {
 public:
   static constexpr unsigned maxLevel = 31;

   explicit TraceHandle(Pelm::String name) : name_(std::move(name)) {}

   Pelm::String const& name() const { return name_; }
   bool isOpen(unsigned level) const { return level <= maxLevel && (levels_ >> level & 1) != 0; }

   /// Opens the levels whose bits are set, and closes all others.
   void levelsAre(std::uint32_t levels) { levels_ = levels; }

 private:
   Pelm::String name_;
   std::uint32_t levels_{0};
};

/// The process's one handle of that name, made when it is first asked for. It lives to the end, so
/// destructors of static objects may log by it, and it keeps its levels while a library that uses it is
/// loaded again.
ZANDOR_EXPORT TraceHandle& handleOf(Pelm::String const& name);

/// Takes one finished line, without line end.
using Sink = std::function<void(TraceHandle const&, unsigned level, Pelm::StringView line)>;

/// Where the process's text trace goes: standard error until another sink is set. An empty sink restores
/// that. A sink that is left set has to bear lines from the destructors of static objects.
ZANDOR_EXPORT void sinkIs(Sink);

/// Hands a line to the sink.
ZANDOR_EXPORT void line(TraceHandle const&, unsigned level, Pelm::StringView);

} // namespace Trace
