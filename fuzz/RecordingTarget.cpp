#include "agent/RoundReader.h"
#include "fuzz/DerivationCheck.h"

#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using namespace L3TunnelAgent;

/// The input as a file that never touches a disk.
class MemoryFile {
 public:
   MemoryFile(std::uint8_t const* data, std::size_t size)
       : descriptor_(memfd_create("recording", MFD_CLOEXEC)) {
      if (descriptor_ < 0 || write(descriptor_, data, size) != static_cast<ssize_t>(size)) {
         std::abort();
      }
   }

   MemoryFile(MemoryFile const&) = delete;
   MemoryFile& operator=(MemoryFile const&) = delete;
   ~MemoryFile() { close(descriptor_); }

   std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
   int descriptor_;
};

} // namespace

/// A whole recording, round by round: what is derived from each change must in the end be what is derived
/// from scratch.
extern "C" int
LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   MemoryFile const file(data, size);
   KernelState state;
   Derivation derivation(state);
   try {
      Recording recording(file.path());
      RoundReader reader(recording);
      while (auto const round = reader.next()) {
         reader.apply(state, *round);
         derivation.update(state.takeChanges());
      }
   } catch (RecordingError const&) {
      // What came before is applied.
   }
   derivation.update(state.takeChanges());
   checkAgainstScratch(state, derivation);
   return 0;
}
