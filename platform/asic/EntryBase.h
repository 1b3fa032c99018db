#pragma once

#include "platform/asic/SwTableBase.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/Record.h"

#include <limits>
#include <tuple>

namespace Asic {

/// Base of every entry. It holds nothing, so its parts are always equal; a keyed entry takes one row.
struct ZANDOR_EXPORT EntryBase {
   static constexpr std::uint16_t getBlockSize() { return 1; }
};

/// A counted pointer on an entry that another one names.
using NeededHandle = Nuv::Ptr<SwTableBase::EntryHandle const>;

/// A field of `Entry` that follows from a handle beside it: the handle's hardware index, once there is one.
template <class Entry, class M>
struct ZANDOR_EXPORT DependentField {
   NeededHandle Entry::*handle;
   M Entry::*index;

   /// Whether the field has room for the handle's index.
   bool fits(Entry const& entry) const {
      auto const& needed = entry.*handle;
      return !needed || SwTableBase::getHwIndexForDependentField(needed) <= std::numeric_limits<M>::max();
   }

   /// Fills the index field from the handle; false, with nothing changed, when the index does not fit the
   /// field.
   bool fill(Entry& entry) const {
      auto const& needed = entry.*handle;
      if (!needed) {
         return true;
      }
      Index found = SwTableBase::getHwIndexForDependentField(needed);
      if (found > std::numeric_limits<M>::max()) {
         return false;
      }
      entry.*index = M(found);
      return true;
   }
};

template <class Entry, class M>
constexpr DependentField<Entry, M>
dependentField(NeededHandle Entry::*handle, M Entry::*index) {
   return {handle, index};
}

/// An entry that names entries of other tables lists the fields that depend on them in `dependentFields()`.
template <class Entry>
concept HasDependentFields = requires {
   Entry::dependentFields();
};

/// Calls `visit(handle)` for each handle of `entry` that is set.
template <class Entry, class Visit>
void
forEachNeededHandle(Entry const& entry, Visit&& visit) {
   if constexpr (HasDependentFields<Entry>) {
      std::apply(
            [&](auto const&... field) {
               auto one = [&](NeededHandle const& handle) {
                  if (handle) {
                     visit(handle);
                  }
               };
               (one(entry.*field.handle), ...);
            },
            Entry::dependentFields());
   }
}

/// Whether a handle of `entry` is not set.
template <class Entry>
bool
hasUnsetHandle(Entry const& entry) {
   if constexpr (HasDependentFields<Entry>) {
      return std::apply([&](auto const&... field) { return (!(entry.*field.handle) || ...); },
                        Entry::dependentFields());
   } else {
      return false;
   }
}

/// Whether every index field of `entry` has room for its handle's index.
template <class Entry>
bool
dependentFieldsFit(Entry const& entry) {
   if constexpr (HasDependentFields<Entry>) {
      return std::apply([&](auto const&... field) { return (field.fits(entry) && ...); },
                        Entry::dependentFields());
   } else {
      return true;
   }
}

/// Fills every index field of `entry` from its handle; false when one index does not fit its field.
template <class Entry>
bool
fillDependentFields(Entry& entry) {
   if constexpr (HasDependentFields<Entry>) {
      return std::apply([&](auto const&... field) { return (field.fill(entry) && ...); },
                        Entry::dependentFields());
   } else {
      return true;
   }
}

} // namespace Asic
