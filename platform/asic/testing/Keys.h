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

/// A key of runs: a number, and how long its run is, which takes no part in what it equals.
struct BlockKey : Nuv::Record<BlockKey> {
   BlockKey() = default;
   BlockKey(std::uint32_t value, std::uint32_t size) : number(value), length(size) {}

   std::uint32_t number{};
   std::uint32_t length{};

   std::uint32_t size() const { return length; }

   static constexpr auto fieldList() {
      return Nuv::fieldList("Test::BlockKey", Nuv::field("number", &BlockKey::number),
                            Nuv::filledField("length", &BlockKey::length));
   }
};

/// A number that knows how many of its kind there are.
struct LivingKey : Nuv::Record<LivingKey> {
   explicit LivingKey(std::uint32_t value) : number(value) { ++living; }
   LivingKey(LivingKey const& other) : Record(other), number(other.number) { ++living; }
   LivingKey& operator=(LivingKey const&) = default;
   ~LivingKey() { --living; }

   std::uint32_t size() const { return 3; }

   inline static int living = 0;
   std::uint32_t number;

   static constexpr auto fieldList() {
      return Nuv::fieldList("Test::LivingKey", Nuv::field("number", &LivingKey::number));
   }
};

} // namespace Asic
