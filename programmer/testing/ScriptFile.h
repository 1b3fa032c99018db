#pragma once

#include "programmer/testing/Script.h"
#include "tables/EgrL3Oif2.h"

#include <fstream>

namespace ZandorL3Tunnel {

/// A script with what else decides how it runs: the process's hash seed, and how many handles were made
/// before it. Its file has these two, then a line for each step; lines that begin with # say nothing.
struct ScriptFile {
   std::uint32_t hashSeed{};
   std::uint64_t handles{};
   Script script;

   std::string text() const {
      return Nuv::text("hash-seed ", hashSeed, "\nhandles ", handles, "\n") + scriptText(script);
   }

   /// Throws `Nuv::RangeException` with the line that is not understood.
   static ScriptFile of(std::istream& in) {
      ScriptFile file;
      for (std::string line; std::getline(in, line);) {
         std::istringstream words(line);
         std::string name;
         words >> name;
         if (name == "hash-seed") {
            words >> file.hashSeed;
         } else if (name == "handles") {
            words >> file.handles;
         } else if (!name.empty() && name[0] != '#') {
            file.script.push_back(stepOf(line));
         }
      }
      return file;
   }
};

/// Makes handles until so many were made in the process, at least one; returns how many there were.
inline std::uint64_t
handlesMadeAre(std::uint64_t atLeast = 0) {
   std::uint64_t made = 0;
   do {
      Nuv::Ptr<EgrL3Oif2::EntryHandle> handle = Nuv::make<EgrL3Oif2::EntryHandle>(0u, nullptr);
      made = handle->creationNumber();
   } while (made < atLeast);
   return made;
}

} // namespace ZandorL3Tunnel
