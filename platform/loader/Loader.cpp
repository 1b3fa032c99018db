#include "platform/loader/Loader.h"

#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <set>

namespace Plugin {

namespace fs = std::filesystem;

namespace {

Pelm::String
ownFolder() {
   Dl_info info{};
   if (!dladdr(reinterpret_cast<void*>(&ownFolder), &info) || !info.dli_fname) {
      return ".";
   }
   std::error_code ignored;
   return fs::absolute(info.dli_fname, ignored).parent_path().string();
}

std::vector<Pelm::String>&
path() {
   static std::vector<Pelm::String> instance{ownFolder()};
   return instance;
}

} // namespace

std::vector<Pelm::String> const&
searchPath() {
   return path();
}

void
searchPathIs(std::vector<Pelm::String> folders) {
   path() = std::move(folders);
}

unsigned
LoaderBase::loadPlugins(Pelm::String const& directory, Pelm::String const& category) {
   unsigned loaded = 0;
   for (auto const& folder : searchPath()) {
      auto full = fs::path(folder) / directory;
      std::error_code error;
      fs::directory_iterator at(full, error);
      if (error) {
         failed(full.string(), error.message(), category);
         continue;
      }
      std::set<Pelm::String> libraries;
      for (; !error && at != fs::directory_iterator(); at.increment(error)) {
         if (at->path().extension() == ".so") {
            libraries.insert(at->path().string());
         }
      }
      if (error) {
         failed(full.string(), error.message(), category);
      }
      for (auto const& library : libraries) {
         loaded += loadOne(library) ? 1 : (failed(library, dlerror(), category), 0);
      }
   }
   return loaded;
}

// The library stays: what it registered is used until the process ends.
bool
LoaderBase::loadOne(Pelm::String const& library) {
   return dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL) != nullptr;
}

void
LoaderBase::failed(Pelm::String where, Pelm::String reason, Pelm::String const& category) {
   std::fprintf(stderr, "%s not loaded: %s: %s\n", category.c_str(), where.c_str(), reason.c_str());
   failures_.push_back({std::move(where), std::move(reason)});
}

} // namespace Plugin
