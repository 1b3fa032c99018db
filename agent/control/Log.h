#pragma once

#include "agent/live/Counters.h"

#include <functional>
#include <string>

namespace L3TunnelAgent {

/// Writes lines for whoever looks after an agent that runs.
class Log {
 public:
   using Print = std::function<void(std::string const&)>;

   enum class Form : std::uint8_t {
      plain,   ///< "l3tunnel-agent: text"
      journal, ///< "<4>text": the journal takes the level from the line, and knows the program
   };

   explicit Log(Form form, Print print) : form_(form), print_(std::move(print)) {}

   /// Writes the text, each of its lines with the level; what could command a terminal is escaped.
   void operator()(LogLevel level, std::string const& text) const;

 private:
   Form form_;
   Print print_;
};

/// The form for a descriptor: that of the journal when $JOURNAL_STREAM, which a service manager sets, names
/// the very file behind it.
Log::Form logFormOf(int descriptor);

/// Writes to standard error in the form for it.
Log standardErrorLog();

} // namespace L3TunnelAgent
