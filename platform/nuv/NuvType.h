#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Hash.h"
#include "platform/nuv/Pool.h"
#include "platform/nuv/Text.h"
#include "platform/nuv/TextRange.h"

#include <cstring>

namespace Nuv {

/// Descriptor of a value type, for code that holds values without knowing their type.
struct ZANDOR_EXPORT NuvType {
   Pelm::StringView name;
   std::uint32_t (*hash)(void const* value, std::uint32_t seed);
   bool (*equal)(void const*, void const*);
   bool (*less)(void const*, void const*);
   void* (*copy)(void const*);
   void (*destroy)(void*);
   std::uint32_t (*size)(void const*); ///< null for values that have no `size()`

   // Each library has its own copy of a descriptor, so the name decides.
   friend bool operator==(NuvType const& a, NuvType const& b) { return &a == &b || a.name == b.name; }
};

/// How the size of a `V` is asked for; null when it has none.
template <class V>
constexpr auto
sizeFunction() -> std::uint32_t (*)(void const*) {
   if constexpr (requires(V const& value) { std::uint32_t(value.size()); }) {
      return [](void const* value) { return std::uint32_t(static_cast<V const*>(value)->size()); };
   } else {
      return nullptr;
   }
}

/// A copy of `value` in the pool, and its end.
template <class V>
void*
copyInPool(void const* value) {
   void* memory = poolTake(sizeof(V));
   try {
      return ::new (memory) V(*static_cast<V const*>(value));
   } catch (...) {
      poolGive(memory, sizeof(V));
      throw;
   }
}

template <class V>
void
destroyInPool(void* value) {
   static_cast<V*>(value)->~V();
   poolGive(value, sizeof(V));
}

/// The descriptor of `V`, a value type with a static `typeName`.
template <class V>
NuvType const&
nuvType() {
   static NuvType const type{
         V::typeName(),
         [](void const* value, std::uint32_t seed) { return hashOf(*static_cast<V const*>(value), seed); },
         [](void const* a, void const* b) { return *static_cast<V const*>(a) == *static_cast<V const*>(b); },
         [](void const* a, void const* b) { return *static_cast<V const*>(a) < *static_cast<V const*>(b); },
         &copyInPool<V>,
         &destroyInPool<V>,
         sizeFunction<V>()};
   return type;
}

} // namespace Nuv
