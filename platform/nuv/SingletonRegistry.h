#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Ptr.h"

#include <map>
#include <mutex>

namespace Nuv {

/// The process's singletons by full type name.
class ZANDOR_EXPORT SingletonRegistry {
 public:
   static SingletonRegistry& instance();

   bool singletonExists(Pelm::String const& name) const;

   /// Registers `object` unless the name has one already: the first one stays.
   void singletonIs(Pelm::String const& name, Ptr<Object> const& object);

   /// The singleton of that name, or null.
   Ptr<Object> singleton(Pelm::String const& name) const;

 private:
   mutable std::mutex mutex_;
   std::map<Pelm::String, Ptr<Object>> singletons_;
};

} // namespace Nuv
