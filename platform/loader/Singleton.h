#pragma once

#include "platform/loader/Loader.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/SingletonRegistry.h"

namespace Ancillary::Core::Loader {

/// Base of a singleton that brings plug-ins with it. `instantiate` loads them on first use: from the folder
/// named by the singleton's prefix and suffix paths, once in a process.
class ZANDOR_EXPORT Singleton : public Nuv::Object {
 public:
   virtual Pelm::String prefixPath() const = 0;
   virtual Pelm::String suffixPath() const = 0;

   /// The process's one `S`. `S` has a static `fullName()` and the two paths as static functions.
   /// Guarded against concurrent first use.
   template <class S>
   static Nuv::Ptr<S> instantiate() {
      static bool const loaded = loadFor(S::prefix(), S::suffix());
      static_cast<void>(loaded);
      auto& registry = Nuv::SingletonRegistry::instance();
      if (!registry.singletonExists(S::fullName())) {
         registry.singletonIs(S::fullName(), Nuv::make<S>());
      }
      return Nuv::dynamicCast<S>(registry.singleton(S::fullName()));
   }

 private:
   static bool loadFor(Pelm::String const& prefix, Pelm::String const& suffix);
};

} // namespace Ancillary::Core::Loader
