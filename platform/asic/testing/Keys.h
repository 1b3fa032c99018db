#pragma once

#include "platform/nuv/NuvType.h"
#include "platform/nuv/Record.h"

namespace Asic {

/// A key of allocators: a number.
struct NumberKey : Nuv::Record<NumberKey> {
   NumberKey() = default;
   explicit NumberKey(std::uint32_t value) : number(value) {}

   std::uint32_t number{};

   static constexpr auto fieldList() {
      return Nuv::fieldList("Test::NumberKey", Nuv::field("number", &NumberKey::number));
   }
};

/// A number that knows how many of its kind there are.
struct LivingKey : Nuv::Record<LivingKey> {
   explicit LivingKey(std::uint32_t value) : number(value) { ++living; }
   LivingKey(LivingKey const& other) : Record(other), number(other.number) { ++living; }
   LivingKey& operator=(LivingKey const&) = default;
   ~LivingKey() { --living; }

   inline static int living = 0;
   std::uint32_t number;

   static constexpr auto fieldList() {
      return Nuv::fieldList("Test::LivingKey", Nuv::field("number", &LivingKey::number));
   }
};

} // namespace Asic
