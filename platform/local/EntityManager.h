#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Ptr.h"

#include <map>

namespace Local {

/// Entities that parts of one agent share, by path. Whoever wants one mounts its path with the type that it
/// expects, then looks it up.
class ZANDOR_EXPORT EntityManager : public Nuv::Object {
 public:
   void entityIs(Pelm::String const& path, Pelm::String const& typeName, Nuv::Ptr<Nuv::Object> const& entity);
   void entityDel(Pelm::String const& path);

   /// Makes the entity at `path` visible here as a `typeName`. Says again what was said: changes nothing.
   void doMount(Pelm::String const& path, Pelm::String const& typeName) const;

   /// The mounted entity; null when the path is not mounted, holds nothing, or holds another type than the
   /// mount expects.
   Nuv::Ptr<Nuv::Object> getEntity(Pelm::String const& path) const;

 private:
   struct Entity {
      Pelm::String typeName;
      Nuv::Ptr<Nuv::Object> object;
   };

   std::map<Pelm::String, Entity> entities_;
   mutable std::map<Pelm::String, Pelm::String> mounts_;
};

} // namespace Local
