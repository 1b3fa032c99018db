#pragma once

#include "agent/Address.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <libmnl/libmnl.h>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace L3TunnelAgent {

/// An attribute's number with the name that errors give it.
struct AttributeName {
   std::uint16_t type;
   std::string_view text;
};

#define L3TUNNEL_ATTRIBUTE(name)                                                                             \
   ::L3TunnelAgent::AttributeName {                                                                          \
      name, #name                                                                                            \
   }

/// @param bytes as many as the type has, or more.
template <typename T>
T
read(std::span<std::byte const> bytes) {
   T result;
   std::memcpy(&result, bytes.data(), sizeof result);
   return result;
}

/// The attributes of one message, or those nested in one attribute: bounds are checked once, here, and the
/// length of each value where it is read. Refers to the message.
class Attributes {
 public:
   /// @param context what errors name in front: the message, and the attribute around these.
   /// @param bytes aligned to 4, as everything in a message is.
   /// @throws MessageError when the attributes do not fill the bytes exactly.
   Attributes(std::string context, std::span<std::byte const> bytes);

   /// The attributes behind a message's fixed part.
   /// @throws MessageError when the message is shorter than its fixed part, or as above.
   Attributes(std::string const& message, nlmsghdr const* header, std::size_t fixedSize);

   bool has(std::uint16_t type) const { return find(type) != nullptr; }

   /// Each of these returns the value, or nothing when there is no such attribute.
   /// @throws MessageError when the value has not the length that its type asks for.
   std::optional<std::uint8_t> u8(AttributeName name) const;
   std::optional<std::uint16_t> u16(AttributeName name) const;
   std::optional<std::uint32_t> u32(AttributeName name) const;
   std::optional<int> index(AttributeName name) const;         // of a device
   std::optional<IpAddress> address(AttributeName name) const; // of either family
   std::optional<std::string> text(AttributeName name) const;
   std::optional<std::span<std::byte const>> bytes(AttributeName name) const;
   std::optional<Attributes> nested(AttributeName name) const;

   /// As above, and the value must be there.
   /// @throws MessageError when it is not.
   std::uint32_t requiredU32(AttributeName name) const;

   /// Calls visit(type, bytes) for each attribute in the order of the message.
   template <typename Visit>
   void each(Visit const& visit) const {
      for (auto rest = bytes_; !rest.empty(); rest = behindFirst(rest)) {
         auto const* const attribute = reinterpret_cast<nlattr const*>(rest.data());
         visit(mnl_attr_get_type(attribute), payload(attribute));
      }
   }

   /// @throws MessageError naming the attribute.
   [[noreturn]] void fail(std::string_view attribute, std::string const& what) const;

 private:
   static std::span<std::byte const> payload(nlattr const* attribute);
   static std::span<std::byte const> behindFirst(std::span<std::byte const> bytes);
   nlattr const* find(std::uint16_t type) const;
   std::optional<std::span<std::byte const>> sized(AttributeName name, std::size_t size) const;

   std::string context_;
   std::span<std::byte const> bytes_;
};

/// @throws MessageError when the message is shorter than its fixed part of that size.
void checkFixedPart(std::string const& message, nlmsghdr const* header, std::size_t size);

/// @return the fixed part of a message.
/// @throws MessageError when the message is shorter than that.
template <typename T>
T
fixedPart(std::string const& message, nlmsghdr const* header) {
   checkFixedPart(message, header, sizeof(T));
   return read<T>({static_cast<std::byte const*>(mnl_nlmsg_get_payload(header)), sizeof(T)});
}

} // namespace L3TunnelAgent
