#include "platform/trace/RingReader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

/// Whatever the bytes are, there are messages that can be printed, or an error.
extern "C" int
LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
   auto const contents = Trace::readRing(Pelm::StringView(reinterpret_cast<char const*>(bytes), size));
   if (!contents.error.empty() && !contents.messages.empty()) {
      std::abort();
   }
   for (auto const& message : contents.messages) {
      if (Trace::lineOf(message).find('\n') != Pelm::String::npos) {
         std::abort();
      }
   }
   return 0;
}
