#include "agent/Agent.h"
#include "agent/views/Audit.h"
#include "chip/model/Forwarding.h"
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

/// A chip that little fits into, so that all of its tables are full now and then.
Fabric::Settings
smallChip() {
   return {.sizes = {{"L3EcmpGroup0Table", 6},
                     {"L3UnderlayEcmpMember1Table", 10},
                     {"IngL3NextHop2Table", 7},
                     {"EgrL3NextHop2", 7},
                     {"EgrL3Oif2", 5}},
           .includeUnresolved = false,
           .dropToCpu = false};
}

/// Aborts unless the chip has just what the tables say, and nothing once all is taken out.
void
checkChip(Fabric& fabric) {
   if (!audit(fabric).findings.empty() || !ModelChip::danglingRows(fabric.chip()).empty()) {
      std::abort();
   }
   fabric.clear();
   for (auto const& table : fabric.chip().tables()) {
      if (table->rowsPresent() != 0 || table->unanswered() != 0) {
         std::abort();
      }
   }
   if (fabric.groups().handles().size() != 0 || fabric.interfaces().indices().holders() != 0 ||
       fabric.programmer().l3EcmpMemberTable()->handles().size() != 0 ||
       fabric.programmer().l3EcmpNextHopTable()->handles().size() != 0) {
      std::abort();
   }
}

} // namespace

/// A whole recording, round by round: what is derived from each change must in the end be what is derived
/// from scratch, and a chip that is kept programmed must have just that.
extern "C" int
LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   MemoryFile const file(data, size);
   Agent agent(smallChip());
   try {
      Recording recording(file.path());
      play(agent, recording, std::nullopt);
   } catch (RecordingError const&) {
      // What came before is applied.
   }
   while (agent.step()) {
   }
   checkAgainstScratch(agent.kernel(), agent.derivation());
   checkChip(agent.fabric());
   return 0;
}
