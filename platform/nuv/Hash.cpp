#include "platform/nuv/Hash.h"

#include <atomic>
#include <mutex>
#include <random>

namespace Nuv {

namespace {

// Constant-initialised, since collections of static storage duration may ask for the seed before main.
constinit std::mutex seedMutex;
constinit std::atomic<bool> seedIsUsed = false;
constinit bool seedIsGiven = false;
constinit std::uint32_t theSeed = 0;

} // namespace

std::uint32_t
hashSeed() {
   if (!seedIsUsed.load(std::memory_order_acquire)) {
      std::lock_guard lock(seedMutex);
      if (!seedIsUsed.load(std::memory_order_relaxed)) {
         if (!seedIsGiven) {
            theSeed = std::random_device()();
         }
         seedIsUsed.store(true, std::memory_order_release);
      }
   }
   return theSeed;
}

bool
hashSeedIs(std::uint32_t seed) {
   std::lock_guard lock(seedMutex);
   if (seedIsUsed.load(std::memory_order_relaxed)) {
      return false;
   }
   theSeed = seed;
   seedIsGiven = true;
   return true;
}

} // namespace Nuv
