#pragma once

#include "platform/asic/SwTableUtil.h"
#include "platform/nuv/Export.h"

#include <functional>

namespace Asic {

/// How a chip's plug-in offers its util for one type of table. Registered from construction to destruction,
/// so a plug-in needs just one of them as a static object.
class ZANDOR_EXPORT UtilFactory {
 public:
   /// `make` is given a hardware table whose rows have the layout `layout`. It may make and end factories,
   /// its own included; the library that its code lies in has to stay.
   using Make = std::function<Nuv::Ptr<SwTable::Util>(Nuv::Ptr<HwTable> const&)>;

   UtilFactory(Pelm::String tableType, Pelm::String layout, Make make);
   ~UtilFactory();
   UtilFactory(UtilFactory const&) = delete;
   UtilFactory& operator=(UtilFactory const&) = delete;

   /// A util for `table` on behalf of a software table of type `tableType`; null when no plug-in that is
   /// loaded knows the rows' layout.
   static Nuv::Ptr<SwTable::Util> utilFor(Pelm::StringView tableType, Nuv::Ptr<HwTable> const& table);

 private:
   Pelm::String tableType_;
   Pelm::String layout_;
   Make make_;
};

} // namespace Asic
