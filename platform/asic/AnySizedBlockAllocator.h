#pragma once

#include "platform/asic/GenericIndexAllocator.h"
#include "platform/asic/RunMap.h"
#include "platform/nuv/Export.h"

namespace Asic {

/// Gives each key, a block, one run of consecutive indices: the lowest place where it fits.
class ZANDOR_EXPORT AnySizedBlockAllocator : public GenericIndexAllocator {
 public:
   explicit AnySizedBlockAllocator(Pelm::String name) : GenericIndexAllocator(std::move(name)) {}

   /// The first index of the run that the block holds, for `user` too from now on, or else of a new one of
   /// `length` indices; the invalid index when no run of that length is free. A run of length 0 is always
   /// granted, at index 0, and takes up nothing.
   Index newIndexForBlock(Nuv::NuvType const& type, void const* block, Index length,
                          void const* user = nullptr);

   Index used() const override { return runs_.used(); }

   /// Length of the longest run that can be given out.
   Index largestFreeRun() const { return runs_.largestFreeRun(); }

 private:
   void doGrow(Index number) override { runs_.grow(number); }
   void doRelease(Index base, Index length) override { runs_.give(base, length); }

   RunMap runs_;
};

} // namespace Asic
