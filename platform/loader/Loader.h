#pragma once

#include "platform/nuv/Export.h"
#include "platform/pelm/String.h"

#include <vector>

namespace Plugin {

/// The folders in which plug-ins are looked for, in order. At first: the folder of the platform library.
ZANDOR_EXPORT std::vector<Pelm::String> const& searchPath();
ZANDOR_EXPORT void searchPathIs(std::vector<Pelm::String>);

/// A folder or library that could not be loaded, and why.
struct ZANDOR_EXPORT LoadFailure {
   Pelm::String path;
   Pelm::String reason;
};

/// Loads plug-ins and keeps them until the process ends.
class ZANDOR_EXPORT LoaderBase {
 public:
   LoaderBase() = default;
   LoaderBase(LoaderBase const&) = delete;
   LoaderBase& operator=(LoaderBase const&) = delete;

   /// Loads every shared object of the folder `directory` beneath each folder of the search path, in the
   /// order of their names. Something missing or broken stops nothing: it is written to standard error, kept
   /// in `failures`, and the rest is loaded. Returns the number loaded.
   unsigned loadPlugins(Pelm::String const& directory, Pelm::String const& category);

   std::vector<LoadFailure> const& failures() const { return failures_; }

 private:
   bool loadOne(Pelm::String const& path);
   void failed(Pelm::String path, Pelm::String reason, Pelm::String const& category);

   std::vector<LoadFailure> failures_;
};

template <class>
class ZANDOR_EXPORT Loader : public LoaderBase {};

} // namespace Plugin
