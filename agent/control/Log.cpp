#include "agent/control/Log.h"

#include "agent/views/Paint.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace L3TunnelAgent {

namespace {

/// As syslog(3) numbers them.
int
priorityOf(LogLevel level) {
   switch (level) {
   case LogLevel::error:
      return 3;
   case LogLevel::warning:
      return 4;
   case LogLevel::notice:
      return 5;
   case LogLevel::info:
      break;
   }
   return 6;
}

/// Whether the text is the number, and nothing else.
template <class Number>
bool
says(std::string_view text, Number number) {
   Number value{};
   auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
   return error == std::errc() && end == text.data() + text.size() && value == number;
}

} // namespace

void
Log::operator()(LogLevel level, std::string const& text) const {
   auto const head =
         form_ == Form::journal ? fmt::format("<{}>", priorityOf(level)) : std::string("l3tunnel-agent: ");
   std::string whole;
   std::istringstream lines(text);
   for (std::string line; std::getline(lines, line);) {
      whole += head + printable(line) + "\n";
   }
   print_(whole);
}

Log::Form
logFormOf(int descriptor) {
   char const* const variable = std::getenv("JOURNAL_STREAM");
   struct stat status {};
   if (!variable || fstat(descriptor, &status) != 0) {
      return Log::Form::plain;
   }
   std::string_view const stream = variable;
   auto const colon = stream.find(':');
   bool const isThat = colon != std::string_view::npos && says(stream.substr(0, colon), status.st_dev) &&
                       says(stream.substr(colon + 1), status.st_ino);
   return isThat ? Log::Form::journal : Log::Form::plain;
}

Log
standardErrorLog() {
   return Log(logFormOf(STDERR_FILENO), [](std::string const& text) {
      std::fwrite(text.data(), 1, text.size(), stderr);
      std::fflush(stderr);
   });
}

} // namespace L3TunnelAgent
