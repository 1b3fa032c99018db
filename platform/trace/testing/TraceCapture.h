#pragma once

#include "platform/trace/TraceHandle.h"

#include <algorithm>
#include <vector>

namespace Trace {

/// Opens every level of a handle and keeps the process's trace lines, until it ends.
class TraceCapture {
 public:
   explicit TraceCapture(TraceHandle& handle) : handle_(handle) {
      handle_.levelsAre(~0u);
      sinkIs([this](TraceHandle const&, unsigned, Pelm::StringView line) { lines_.emplace_back(line); });
   }
   ~TraceCapture() {
      handle_.levelsAre(0);
      sinkIs({});
   }
   TraceCapture(TraceCapture const&) = delete;
   TraceCapture& operator=(TraceCapture const&) = delete;

   std::vector<Pelm::String> const& lines() const { return lines_; }

   /// How many lines have `part` in them.
   std::size_t count(Pelm::StringView part) const {
      return std::size_t(std::count_if(lines_.begin(), lines_.end(), [part](auto const& line) {
         return line.find(part) != Pelm::String::npos;
      }));
   }

   void clear() { lines_.clear(); }

 private:
   TraceHandle& handle_;
   std::vector<Pelm::String> lines_;
};

} // namespace Trace
