#pragma once

#include "platform/asic/GenericIndexAllocator.h"
#include "platform/asic/IndexBitmap.h"

namespace Asic {

/// Gives each key one index, the lowest that is free.
class FirstFreeIndexAllocator : public GenericIndexAllocator {
 public:
   explicit FirstFreeIndexAllocator(Pelm::String name) : GenericIndexAllocator(std::move(name)) {}

   /// The index that the key holds, or else the lowest free one, which it holds from now on; the invalid
   /// index when none is free.
   Index newIndexForKey(Nuv::NuvType const& type, void const* key);

   /// Keeps the indices from `first` up to, but not including, `second` from ever being given out. Saying it
   /// again changes nothing; an index that is held stays with its key.
   void reserveIndices(Index first, Index second);

   Index used() const override { return taken_.used(); }

 private:
   void doGrow(Index number) override { taken_.grow(number); }
   void doRelease(Index base, Index) override { taken_.give(base); }

   IndexBitmap taken_;
};

} // namespace Asic
