#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Ptr.h"

#include <map>

namespace Kallo {

/// The state database's entities by path. A path holds at most one entity.
class ZANDOR_EXPORT EntityManager : public Nuv::Object {
 public:
   /// Puts `entity` at `path`, replacing what was there.
   void entityIs(Pelm::String const& path, Nuv::Ptr<Nuv::Object> const& entity) { entities_[path] = entity; }

   /// Takes away what is at `path`, if anything is.
   void entityDel(Pelm::String const& path) { entities_.erase(path); }

   /// The entity at `path`, or null.
   Nuv::Ptr<Nuv::Object> getEntity(Pelm::String const& path) const {
      auto found = entities_.find(path);
      return found == entities_.end() ? Nuv::Ptr<Nuv::Object>() : found->second;
   }

 private:
   std::map<Pelm::String, Nuv::Ptr<Nuv::Object>> entities_;
};

} // namespace Kallo
