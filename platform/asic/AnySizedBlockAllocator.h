#pragma once

#include "platform/asic/GenericIndexAllocator.h"
#include "platform/asic/RunMap.h"
#include "platform/nuv/Export.h"

namespace Asic {

/// Gives each key, a block, one run of consecutive indices: the lowest place where it fits.
class ZANDOR_EXPORT AnySizedBlockAllocator : public GenericIndexAllocator {
 public:
   explicit AnySizedBlockAllocator(Pelm::String name) : GenericIndexAllocator(std::move(name)) {}

   /// The first index of the run that the block holds, for `table` too from now on, or else of a new one as
   /// long as the block's size; the invalid index when no such run is free. A block of size 0 is always
   /// granted, at index 0, and holds nothing. The block's type must be one that has a size.
   Index newIndexForBlock(Nuv::NuvType const& type, void const* block, SwTable const* table = nullptr);

   Index used() const override { return runs_.used(); }
   Index freeRuns() const override { return runs_.freeRuns(); }
   Index largestFreeRun() const override { return runs_.largestFreeRun(); }

 private:
   Index doFind(Index length) const override { return runs_.firstFit(length).value_or(invalidIndex); }
   bool doIsFree(Index index) const override { return runs_.isFree(index, 1); }
   void doTake(Index base, Index length) override { runs_.take(base, length); }
   void doRelease(Index base, Index length) override { runs_.give(base, length); }
   void doNumEntriesIs(Index number) override;

   RunMap runs_;
};

} // namespace Asic
