#include "agent/Attributes.h"

#include "agent/MessageReader.h"

#include <algorithm>

namespace L3TunnelAgent {

namespace {

std::span<std::byte const>
behindFixedPart(std::string const& message, nlmsghdr const* header, std::size_t fixedSize) {
   checkFixedPart(message, header, fixedSize);
   std::size_t const skipped = std::min<std::size_t>(MNL_ALIGN(fixedSize), mnl_nlmsg_get_payload_len(header));
   auto const* const payload = static_cast<std::byte const*>(mnl_nlmsg_get_payload(header));
   return {payload + skipped, mnl_nlmsg_get_payload_len(header) - skipped};
}

} // namespace

void
checkFixedPart(std::string const& message, nlmsghdr const* header, std::size_t size) {
   std::size_t const got = mnl_nlmsg_get_payload_len(header);
   if (got < size) {
      throw MessageError(message + ": " + std::to_string(got) + " bytes are fewer than its fixed part of " +
                         std::to_string(size));
   }
}

Attributes::Attributes(std::string const& message, nlmsghdr const* header, std::size_t fixedSize)
    : Attributes(message, behindFixedPart(message, header, fixedSize)) {}

Attributes::Attributes(std::string context, std::span<std::byte const> bytes)
    : context_(std::move(context)), bytes_(bytes) {
   for (auto rest = bytes; !rest.empty(); rest = behindFirst(rest)) {
      auto const* const attribute = reinterpret_cast<nlattr const*>(rest.data());
      if (mnl_attr_ok(attribute, static_cast<int>(rest.size()))) {
         continue;
      }
      std::string const where = "attributes at byte " + std::to_string(bytes.size() - rest.size());
      if (rest.size() < sizeof(nlattr)) {
         fail(where, std::to_string(rest.size()) + " bytes hold no attribute");
      }
      fail(where, "attribute " + std::to_string(mnl_attr_get_type(attribute)) + " has length " +
                        std::to_string(mnl_attr_get_len(attribute)) + " of " + std::to_string(rest.size()) +
                        " bytes left");
   }
}

std::span<std::byte const>
Attributes::payload(nlattr const* attribute) {
   return {static_cast<std::byte const*>(mnl_attr_get_payload(attribute)),
           mnl_attr_get_payload_len(attribute)};
}

std::span<std::byte const>
Attributes::behindFirst(std::span<std::byte const> bytes) {
   auto const* const attribute = reinterpret_cast<nlattr const*>(bytes.data());
   return bytes.subspan(std::min<std::size_t>(MNL_ALIGN(mnl_attr_get_len(attribute)), bytes.size()));
}

nlattr const*
Attributes::find(std::uint16_t type) const {
   nlattr const* found = nullptr; // the last one counts, as it does for the kernel
   for (auto rest = bytes_; !rest.empty(); rest = behindFirst(rest)) {
      auto const* const attribute = reinterpret_cast<nlattr const*>(rest.data());
      if (mnl_attr_get_type(attribute) == type) {
         found = attribute;
      }
   }
   return found;
}

void
Attributes::fail(std::string_view attribute, std::string const& what) const {
   throw MessageError(context_ + ": " + std::string(attribute) + ": " + what);
}

std::optional<std::span<std::byte const>>
Attributes::bytes(AttributeName name) const {
   nlattr const* const attribute = find(name.type);
   return attribute ? std::optional(payload(attribute)) : std::nullopt;
}

std::optional<std::span<std::byte const>>
Attributes::sized(AttributeName name, std::size_t size) const {
   auto const value = bytes(name);
   if (value && value->size() != size) {
      fail(name.text, std::to_string(value->size()) + " bytes instead of " + std::to_string(size));
   }
   return value;
}

std::optional<std::uint8_t>
Attributes::u8(AttributeName name) const {
   auto const value = sized(name, sizeof(std::uint8_t));
   return value ? std::optional(std::to_integer<std::uint8_t>(value->front())) : std::nullopt;
}

std::optional<std::uint16_t>
Attributes::u16(AttributeName name) const {
   auto const value = sized(name, sizeof(std::uint16_t));
   return value ? std::optional(read<std::uint16_t>(*value)) : std::nullopt;
}

std::optional<std::uint32_t>
Attributes::u32(AttributeName name) const {
   auto const value = sized(name, sizeof(std::uint32_t));
   return value ? std::optional(read<std::uint32_t>(*value)) : std::nullopt;
}

std::optional<int>
Attributes::index(AttributeName name) const {
   auto const value = sized(name, sizeof(int));
   return value ? std::optional(read<int>(*value)) : std::nullopt;
}

std::optional<IpAddress>
Attributes::address(AttributeName name) const {
   auto const value = bytes(name);
   if (!value) {
      return std::nullopt;
   }
   auto const result = IpAddress::fromBytes(*value);
   if (!result) {
      fail(name.text, std::to_string(value->size()) + " bytes are no IP address");
   }
   return result;
}

std::optional<std::string>
Attributes::text(AttributeName name) const {
   auto const value = bytes(name);
   if (!value) {
      return std::nullopt;
   }
   auto const* const begin = reinterpret_cast<char const*>(value->data());
   return std::string(begin, std::find(begin, begin + value->size(), '\0'));
}

std::optional<Attributes>
Attributes::nested(AttributeName name) const {
   auto const value = bytes(name);
   return value ? std::optional(Attributes(context_ + ": " + std::string(name.text), *value)) : std::nullopt;
}

std::uint32_t
Attributes::requiredU32(AttributeName name) const {
   auto const value = u32(name);
   if (!value) {
      fail(name.text, "is missing");
   }
   return *value;
}

} // namespace L3TunnelAgent
