#pragma once

#include "platform/asic/SwTableBase.h"
#include "platform/nuv/Export.h"

namespace Asic {

class SwTable;

/// The reaction through which the chip's answers reach the entries of a table. A table without one hears
/// none.
class ZANDOR_EXPORT WriteResponseSm : public Nuv::Object {
 public:
   explicit WriteResponseSm(SwTable* table) : swTable_(table) {}

   SwTable* swTable() const { return swTable_; }

   /// The chip has confirmed a row, the newest one that `owner` wrote at its index.
   void handleWriteResponse(SwTableBase::EntryHandle& owner);

 private:
   SwTable* swTable_;
};

} // namespace Asic
