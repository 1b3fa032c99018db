#pragma once

#include "platform/asic/GenericIndexAllocator.h"
#include "platform/asic/IndexBitmap.h"
#include "platform/nuv/Export.h"

namespace Asic {

/// Gives each key one index, the lowest that is free.
class ZANDOR_EXPORT FirstFreeIndexAllocator : public GenericIndexAllocator {
 public:
   explicit FirstFreeIndexAllocator(Pelm::String name) : GenericIndexAllocator(std::move(name)) {}

   /// The index that the key holds, for `user` too from now on, or else the lowest free one, which it holds
   /// from now on; the invalid index when none is free.
   Index newIndexForKey(Nuv::NuvType const& type, void const* key, void const* user = nullptr);

   /// Keeps the indices from `first` up to, but not including, `second` from ever being given out, those
   /// included that the allocator has only once it has grown. Saying it again changes nothing; an index that
   /// is held stays with its key, and is not given out after it.
   void reserveIndices(Index first, Index second);

   Index used() const override { return taken_.used(); }

 private:
   struct Range {
      Index first;
      Index second;
      friend bool operator==(Range const&, Range const&) = default;
   };

   void doGrow(Index number) override;
   void doRelease(Index base, Index) override;
   void takeReserved(Range range);

   IndexBitmap taken_;
   std::vector<Range> reserved_;
};

} // namespace Asic
