#pragma once

#include "platform/nuv/Export.h"

#include <cstddef>
#include <cstdint>

namespace Nuv {

/// Memory for small objects that come and go by the hundred thousand, such as handles and what follows them:
/// cut from large pieces without a header for each, and kept for the next object of about the size. A piece
/// is never given back. Memory is aligned for any object of its size. Throws std::bad_alloc.
///
/// Needs no lock while the process has one thread; with `threadSafePtr` on it takes one. The sanitizers see
/// each object as an allocation of its own.
ZANDOR_EXPORT void* poolTake(std::size_t size);

/// Gives memory of that size back to where it came from.
ZANDOR_EXPORT void poolGive(void* memory, std::size_t size) noexcept;

/// How many objects the pool has given out of its pieces so far, for tests of what a piece of work allocates.
/// What is too large for the pool, and everything under the sanitizers, comes from `operator new` instead and
/// does not count.
ZANDOR_EXPORT std::uint64_t poolTaken();

/// Base of classes whose objects lie in the pool when they are made by `new`. What is deleted as one of its
/// bases needs a virtual destructor there, so that the size is the object's own.
class ZANDOR_EXPORT Pooled {
 public:
   static void* operator new(std::size_t size) { return poolTake(size); }
   static void operator delete(void* memory, std::size_t size) noexcept { poolGive(memory, size); }
};

/// Memory from the pool for a standard collection.
template <class T>
struct ZANDOR_EXPORT PoolAllocator {
   using value_type = T;

   PoolAllocator() = default;
   template <class U>
   PoolAllocator(PoolAllocator<U> const&) {}

   T* allocate(std::size_t count) { return static_cast<T*>(poolTake(count * sizeof(T))); }
   void deallocate(T* memory, std::size_t count) noexcept { poolGive(memory, count * sizeof(T)); }

   friend bool operator==(PoolAllocator const&, PoolAllocator const&) { return true; }
};

} // namespace Nuv
