#include "platform/chipstate/BrixTypes.h"
#include "platform/chipstate/FendoTypes.h"

#include <fmt/format.h>
#include <iterator>

namespace Brix {

void
appendText(Pelm::String& out, NextHopEntryType type) {
   switch (type) {
   case NextHopEntryType::receive:
      return Nuv::appendText(out, "receive");
   case NextHopEntryType::unicast:
      return Nuv::appendText(out, "unicast");
   case NextHopEntryType::drop:
      return Nuv::appendText(out, "drop");
   case NextHopEntryType::glean:
      return Nuv::appendText(out, "glean");
   case NextHopEntryType::tunnelUnicast:
      return Nuv::appendText(out, "tunnelUnicast");
   }
   Nuv::appendText(out, unsigned(type));
}

void
parseText(Nuv::TextRange& range, NextHopEntryType& type) {
   static constexpr NextHopEntryType named[] = {NextHopEntryType::receive, NextHopEntryType::unicast,
                                                NextHopEntryType::drop, NextHopEntryType::glean,
                                                NextHopEntryType::tunnelUnicast};
   auto before = range;
   auto word = range.word();
   for (auto candidate : named) {
      if (Nuv::text(candidate) == word) {
         type = candidate;
         return;
      }
   }
   range = before;
   std::uint8_t number{};
   parseText(range, number);
   type = NextHopEntryType(number);
}

} // namespace Brix

namespace Fendo {

EthAddr
EthAddr::fromValue(std::uint64_t number) {
   EthAddr address;
   for (auto at = address.bytes.rbegin(); at != address.bytes.rend(); ++at, number >>= 8) {
      *at = std::uint8_t(number);
   }
   return address;
}

void
appendText(Pelm::String& out, EthAddr const& address) {
   fmt::format_to(std::back_inserter(out), "{:02x}", fmt::join(address.bytes, ":"));
}

void
parseText(Nuv::TextRange& range, EthAddr& address) {
   EthAddr read;
   bool isFirst = true;
   for (auto& byte : read.bytes) {
      if (!isFirst) {
         range.require(":");
      }
      isFirst = false;
      auto high = range.hexDigit();
      byte = std::uint8_t(high << 4 | range.hexDigit());
   }
   address = read;
}

} // namespace Fendo
