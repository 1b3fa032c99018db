#pragma once

#include "chip/model/Layouts.h"
#include "platform/asic/UtilFactory.h"

namespace ModelChip {

/// Offers `U` as the util of table type `T` for the model chip's rows of `layout`: the one static object that
/// a plug-in has.
template <class T, class U>
class UtilPlugin {
 public:
   explicit UtilPlugin(RowLayout const& layout)
       : factory_(T::typeName(), layout.name, [](Nuv::Ptr<Asic::HwTable> const& table) {
          return Nuv::Ptr<Asic::SwTable::Util>(Nuv::make<U>(table));
       }) {}

 private:
   Asic::UtilFactory factory_;
};

} // namespace ModelChip
