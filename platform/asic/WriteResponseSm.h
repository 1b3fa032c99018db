#pragma once

#include "platform/asic/SwTableBase.h"
#include "platform/nuv/Export.h"

namespace Asic {

class SwTable;

/// What the chip said to a row.
enum class ZANDOR_EXPORT RowAnswer : std::uint8_t { confirmed, refused };

/// The reaction through which the chip's answers reach the entries of a table. A table without one hears
/// none.
class ZANDOR_EXPORT WriteResponseSm : public Nuv::Object {
 public:
   explicit WriteResponseSm(SwTable* table) : swTable_(table) {}

   SwTable* swTable() const { return swTable_; }

   /// The chip has answered the newest row that `owner` wrote at its index. Who calls touches neither then.
   void handleWriteResponse(SwTableBase::EntryHandle& owner, RowAnswer answer);

 private:
   SwTable* swTable_;
};

} // namespace Asic
