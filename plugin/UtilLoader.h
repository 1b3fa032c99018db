#pragma once

#include "platform/loader/Singleton.h"
#include "platform/nuv/Export.h"

namespace ZandorL3Tunnel {

/// Brings the plug-ins of table type `T`: those in the folder "AsicFeature/<the table's full type name>".
template <class T>
class ZANDOR_EXPORT UtilLoader final : public Ancillary::Core::Loader::Singleton {
 public:
   static Pelm::String prefix() { return "AsicFeature"; }
   static Pelm::String suffix() { return T::typeName(); }
   static Pelm::String fullName() { return suffix() + "::UtilLoader"; }

   Pelm::String prefixPath() const override { return prefix(); }
   Pelm::String suffixPath() const override { return suffix(); }
   Nuv::FwkType fwkType() const override { return T::staticFwkType(); }
};

} // namespace ZandorL3Tunnel
