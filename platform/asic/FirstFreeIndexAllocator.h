#pragma once

#include "platform/asic/GenericIndexAllocator.h"
#include "platform/asic/IndexBitmap.h"
#include "platform/nuv/Export.h"

namespace Asic {

/// Gives each key one index, the lowest that is free.
class ZANDOR_EXPORT FirstFreeIndexAllocator : public GenericIndexAllocator {
 public:
   explicit FirstFreeIndexAllocator(Pelm::String name) : GenericIndexAllocator(std::move(name)) {}

   /// The index that the key holds, for `table` too from now on, or else the lowest free one, which it holds
   /// from now on; the invalid index when none is free.
   Index newIndexForKey(Nuv::NuvType const& type, void const* key, SwTable const* table = nullptr) {
      return acquire(type, key, 1, table);
   }

   /// Gives the key that very index; true also when it holds it already, which `table` then uses too. False,
   /// with nothing changed, when the index is taken, reserved or out of range, or the key holds another.
   bool requestIndexForKey(Index index, Nuv::NuvType const& type, void const* key,
                           SwTable const* table = nullptr) {
      return acquireAt(index, type, key, table);
   }

   /// Keeps the indices from `first` up to, but not including, `second` from ever being given out, those
   /// included that the allocator has only once it has grown. Saying it again changes nothing; an index that
   /// is held stays with its key, and is not given out after it.
   void reserveIndices(Index first, Index second);

   Index used() const override { return taken_.used(); }
   Index reserved() const override;
   Index freeRuns() const override { return taken_.freeRuns(); }
   Index largestFreeRun() const override { return taken_.largestFreeRun(); }

 private:
   struct Range {
      Index first;
      Index second;
   };

   Index doFind(Index) const override { return taken_.lowestFree().value_or(invalidIndex); }
   bool doIsFree(Index index) const override { return !taken_.isTaken(index); }
   void doTake(Index base, Index) override { taken_.take(base); }
   void doRelease(Index base, Index) override;
   void doNumEntriesIs(Index number) override;
   void takeReserved();
   bool isReserved(Index index) const;

   IndexBitmap taken_;
   // In ascending order; none overlaps or adjoins another.
   std::vector<Range> reserved_;
};

} // namespace Asic
