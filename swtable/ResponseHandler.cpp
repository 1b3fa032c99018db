#include "swtable/ResponseHandler.h"

namespace ZandorL3Tunnel {

void
ResponseHandler::entryStateIs(EntryState state) {
   using Asic::SwTableBase;
   bool isLast = state == SwTableBase::success();
   bool isToldOf = isLast || state == SwTableBase::inProgress() ||
                   state == SwTableBase::failedNeededEntry() || state == SwTableBase::failed();
   if (!box_ || !isToldOf) {
      return;
   }
   auto running = isLast ? std::move(box_) : box_;
   running->function(state);
}

} // namespace ZandorL3Tunnel
