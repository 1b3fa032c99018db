#include "agent/views/Lookup.h"

#include <charconv>
#include <fmt/format.h>
#include <limits>
#include <stdexcept>

namespace L3TunnelAgent {

namespace {

constexpr std::uint8_t tcp = 6;
constexpr std::uint8_t udp = 17;

ModelChip::FlowAddress
flowAddress(IpAddress const& address) {
   return {address.bytes, address.family == IpAddress::Family::v6};
}

IpAddress
ipAddress(ModelChip::FlowAddress const& address) {
   return {address.isV6 ? IpAddress::Family::v6 : IpAddress::Family::v4, address.bytes};
}

std::string
endText(ModelChip::FlowAddress const& address, std::uint16_t port) {
   auto const text = ipAddress(address).text();
   return address.isV6 ? fmt::format("[{}]:{}", text, port) : fmt::format("{}:{}", text, port);
}

[[noreturn]] void
refuse(std::string const& key, std::string const& value, std::string const& wanted) {
   throw std::invalid_argument(
         fmt::format("'{}={}': {} is {}", printable(key), printable(value), key, wanted));
}

template <class T>
T
number(std::string const& key, std::string const& value) {
   T result{};
   auto const [end, error] = std::from_chars(value.data(), value.data() + value.size(), result);
   if (error != std::errc() || end != value.data() + value.size()) {
      refuse(key, value, fmt::format("a number from 0 to {}", std::numeric_limits<T>::max()));
   }
   return result;
}

ModelChip::FlowAddress
address(std::string const& key, std::string const& value) {
   auto const parsed = IpAddress::parse(value);
   if (!parsed) {
      refuse(key, value, "an IP address");
   }
   return flowAddress(*parsed);
}

std::uint8_t
protocol(std::string const& key, std::string const& value) {
   return value == "tcp" ? tcp : value == "udp" ? udp : number<std::uint8_t>(key, value);
}

void
partIs(ModelChip::Flow& flow, std::string const& key, std::string const& value) {
   if (key == "src") {
      flow.source = address(key, value);
   } else if (key == "dst") {
      flow.destination = address(key, value);
   } else if (key == "proto") {
      flow.protocol = protocol(key, value);
   } else if (key == "sport") {
      flow.sourcePort = number<std::uint16_t>(key, value);
   } else if (key == "dport") {
      flow.destinationPort = number<std::uint16_t>(key, value);
   } else {
      throw std::invalid_argument(
            fmt::format("'{}' is none of src, dst, proto, sport, dport", printable(key)));
   }
}

} // namespace

ModelChip::Flow
tunnelFlow(IpAddress const& destination) {
   ModelChip::Flow flow{.source = {},
                        .destination = flowAddress(destination),
                        .protocol = udp,
                        .sourcePort = 49152,
                        .destinationPort = 4789};
   flow.source.isV6 = flow.destination.isV6;
   return flow;
}

void
flowIs(ModelChip::Flow& flow, std::string const& text) {
   for (std::size_t at = 0; at <= text.size();) {
      auto const end = std::min(text.find(',', at), text.size());
      auto const part = text.substr(at, end - at);
      auto const equals = part.find('=');
      if (equals == std::string::npos) {
         throw std::invalid_argument(fmt::format("'{}' is not of the form KEY=VALUE", printable(part)));
      }
      partIs(flow, part.substr(0, equals), part.substr(equals + 1));
      at = end + 1;
   }
   if (flow.source.isV6 != flow.destination.isV6) {
      throw std::invalid_argument("src and dst are not of one family");
   }
}

std::string
text(ModelChip::Flow const& flow) {
   auto const protocol = flow.protocol == udp   ? std::string("udp")
                         : flow.protocol == tcp ? std::string("tcp")
                                                : fmt::format("protocol {}", flow.protocol);
   return fmt::format("{} {} to {}", protocol, endText(flow.source, flow.sourcePort),
                      endText(flow.destination, flow.destinationPort));
}

} // namespace L3TunnelAgent
