#pragma once

#include "agent/Address.h"

#include <array>
#include <cstring>
#include <libmnl/libmnl.h>
#include <span>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// One netlink message as the kernel writes it.
class MessageBuilder {
 public:
   template <typename Fixed>
   MessageBuilder(std::uint16_t type, Fixed const& fixed, std::uint16_t flags = 0) {
      nlmsghdr* const head = mnl_nlmsg_put_header(buffer_.data());
      head->nlmsg_type = type;
      head->nlmsg_flags = flags;
      std::memcpy(mnl_nlmsg_put_extra_header(head, sizeof fixed), &fixed, sizeof fixed);
   }

   MessageBuilder& u8(std::uint16_t type, std::uint8_t value) { return bytes(type, &value, sizeof value); }
   MessageBuilder& u16(std::uint16_t type, std::uint16_t value) { return bytes(type, &value, sizeof value); }
   MessageBuilder& u32(std::uint16_t type, std::uint32_t value) { return bytes(type, &value, sizeof value); }
   MessageBuilder& flag(std::uint16_t type) { return bytes(type, nullptr, 0); }

   MessageBuilder& bytes(std::uint16_t type, void const* value, std::size_t size) {
      mnl_attr_put(header(), type, size, value);
      return *this;
   }

   MessageBuilder& text(std::uint16_t type, char const* value) {
      mnl_attr_put_strz(header(), type, value);
      return *this;
   }

   MessageBuilder& ip(std::uint16_t type, std::string const& value) {
      auto const address = IpAddress::parse(value).value();
      return bytes(type, address.bytes.data(), address.family == IpAddress::Family::v4 ? 4 : 16);
   }

   MessageBuilder& mac(std::uint16_t type, std::string const& value) {
      return bytes(type, MacAddress::parse(value).value().bytes.data(), 6);
   }

   /// Puts what fill(*this) puts into an attribute.
   template <typename Fill>
   MessageBuilder& nest(std::uint16_t type, Fill const& fill) {
      nlattr* const start = mnl_attr_nest_start(header(), type);
      fill(*this);
      mnl_attr_nest_end(header(), start);
      return *this;
   }

   /// Puts a structure that is no attribute, as some attributes begin with.
   template <typename Fixed>
   MessageBuilder& fixed(Fixed const& value) {
      std::memcpy(mnl_nlmsg_put_extra_header(header(), sizeof value), &value, sizeof value);
      return *this;
   }

   std::vector<std::byte> datagram() const {
      auto const* const begin = reinterpret_cast<std::byte const*>(buffer_.data());
      return {begin, begin + MNL_ALIGN(reinterpret_cast<nlmsghdr const*>(begin)->nlmsg_len)};
   }

 private:
   nlmsghdr* header() { return reinterpret_cast<nlmsghdr*>(buffer_.data()); }

   alignas(nlmsghdr) std::array<char, 4096> buffer_{};
};

} // namespace L3TunnelAgent
