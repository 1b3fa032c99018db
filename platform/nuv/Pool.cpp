#include "platform/nuv/Pool.h"

#include "platform/nuv/Ptr.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

namespace Nuv {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool isPooling = false;
#elif defined(__has_feature)
constexpr bool isPooling = !__has_feature(address_sanitizer);
#else
constexpr bool isPooling = true;
#endif

// What is aligned more strictly has a size that is a multiple of its alignment, and so has its class.
constexpr std::size_t granule = 8;
constexpr std::size_t maxSize = 512;
constexpr std::size_t classes = maxSize / granule;

// Small enough that a size which is used little costs little, and small beside the objects of one that is.
constexpr std::size_t firstPiece = 1024;
constexpr std::size_t lastPiece = 65536;

struct Free {
   Free* next;
};

/// Objects of one size.
struct SizeClass {
   Free* free;
   std::byte* fresh;
   std::byte* end;
   std::size_t piece;
};

// There may be objects before any constructor ran, and after every destructor did.
constinit SizeClass sizeClasses[classes]{};
constinit std::mutex mutex;
constinit std::uint64_t taken{};

SizeClass&
sizeClass(std::size_t size) {
   return sizeClasses[(size - 1) / granule];
}

constexpr std::size_t
rounded(std::size_t size) {
   return (size + granule - 1) / granule * granule;
}

bool
isPooled(std::size_t size) {
   // No size at all is beyond all of them here.
   return isPooling && size - 1 < maxSize;
}

void*
takeFresh(SizeClass& objects, std::size_t size) {
   if (std::size_t(objects.end - objects.fresh) < rounded(size)) {
      auto bytes = objects.piece ? std::min(objects.piece * 2, lastPiece) : firstPiece;
      objects.fresh = static_cast<std::byte*>(::operator new(bytes));
      objects.end = objects.fresh + bytes;
      objects.piece = bytes;
   }
   return std::exchange(objects.fresh, objects.fresh + rounded(size));
}

void
give(SizeClass& objects, void* memory) {
   objects.free = ::new (memory) Free{objects.free};
}

// What is rare is apart, so that the rest is short.
[[gnu::noinline]] void*
takeOtherwise(std::size_t size) {
   if (!isPooled(size)) {
      return ::operator new(size);
   }
   auto& objects = sizeClass(size);
   if (!threadSafePtr()) {
      ++taken;
      return takeFresh(objects, size);
   }
   std::lock_guard const lock(mutex);
   ++taken;
   if (Free* memory = objects.free) {
      objects.free = memory->next;
      return memory;
   }
   return takeFresh(objects, size);
}

[[gnu::noinline]] void
giveOtherwise(void* memory, std::size_t size) noexcept {
   if (!isPooled(size)) {
      ::operator delete(memory);
   } else if (memory) {
      std::lock_guard const lock(mutex);
      give(sizeClass(size), memory);
   }
}

} // namespace

void*
poolTake(std::size_t size) {
   if (isPooled(size) && !threadSafePtr()) [[likely]] {
      auto& objects = sizeClass(size);
      if (Free* memory = objects.free) {
         ++taken;
         objects.free = memory->next;
         return memory;
      }
      if (std::size_t(objects.end - objects.fresh) >= rounded(size)) [[likely]] {
         ++taken;
         return std::exchange(objects.fresh, objects.fresh + rounded(size));
      }
   }
   return takeOtherwise(size);
}

std::uint64_t
poolTaken() {
   return taken;
}

void
poolGive(void* memory, std::size_t size) noexcept {
   if (memory && isPooled(size) && !threadSafePtr()) [[likely]] {
      give(sizeClass(size), memory);
   } else {
      giveOtherwise(memory, size);
   }
}

} // namespace Nuv
