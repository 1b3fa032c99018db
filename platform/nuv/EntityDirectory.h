#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Notifiee.h"
#include "platform/nuv/Ptr.h"
#include "platform/pelm/String.h"

#include <map>
#include <optional>

namespace Nuv {

/// Entities by path, each with the name of its type. A path holds at most one. Whoever wants an entity mounts
/// its path as the type that it expects; a path is seen by everybody as it was mounted last. It makes no
/// difference which comes first, the mount or the entity.
class ZANDOR_EXPORT EntityDirectory : public Object {
 public:
   /// Observer of what can be seen.
   class Notifiee : public Nuv::Notifiee {
    public:
      /// What `getEntity(path)` answers is another entity than before, or no longer one, or one at last. May
      /// do anything, the directory's last reference included.
      virtual void handleEntity(Pelm::String const& path) = 0;
   };

   /// Puts `entity`, which is a `typeName`, at `path`, and takes away what was there. Null takes away only.
   void entityIs(Pelm::String const& path, Pelm::String const& typeName, Ptr<Object> const& entity);

   /// The same for an entity whose class says what type it is.
   template <class T>
   void entityIs(Pelm::String const& path, Ptr<T> const& entity) {
      entityIs(path, T::typeName(), entity);
   }

   /// Takes away what is at `path`, if anything is. Its mount stays.
   void entityDel(Pelm::String const& path);

   /// Makes the entity at `path` visible, now and whenever one comes, if it is a `typeName`. Says again what
   /// was said: changes nothing; another type takes the place of the one before.
   void doMount(Pelm::String const& path, Pelm::String const& typeName) const;

   /// Whether `path` is mounted as a `typeName`.
   bool isMounted(Pelm::String const& path, Pelm::String const& typeName) const;

   /// The mounted entity; null when the path is not mounted, holds nothing, or holds another type than the
   /// mount expects.
   Ptr<Object> getEntity(Pelm::String const& path) const;

   /// Registers an observer; it hears changes until it leaves or the directory ends.
   void notifieeIs(Notifiee& notifiee) const { notifieeList_.notifieeIs(notifiee); }

 protected:
   EntityDirectory() = default;

 private:
   struct Place {
      Pelm::String typeName;
      Ptr<Object> entity;
      std::optional<Pelm::String> mountedAs;

      Object* visible() const { return mountedAs == typeName ? entity.get() : nullptr; }
   };

   Place place(Pelm::String const& path) const;
   void placeIs(Pelm::String const& path, Place const& place) const;

   // Mounts come from those who only read.
   mutable std::map<Pelm::String, Place> places_;
   mutable NotifieeList<Notifiee> notifieeList_;
};

} // namespace Nuv
