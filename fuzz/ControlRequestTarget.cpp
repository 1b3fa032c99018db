#include "agent/commands/Respond.h"
#include "agent/control/Frames.h"

#include <cstdlib>

namespace {

using namespace L3TunnelAgent;

/// An agent with a destination that waits for its neighbour and one that has no way.
class AskedAgent {
 public:
   AskedAgent() {
      auto const address = IpAddress::fromV4(0x0aff0101);
      agent_.fabric().destinationIs(
            {.address = address,
             .vias = {{.kind = ViaKind::cpu, .device = 1, .gateway = address, .reason = "local"}}});
      agent_.fabric().destinationIs({.address = IpAddress::fromV4(0x0aff0102), .reason = "no route"});
      agent_.fabric().settle();
   }

   Answer answer(Request const& request) { return respond(running_, request); }

 private:
   Agent agent_;
   Marks marks_{agent_};
   RunningAgent running_{agent_, marks_, [] { return std::string("up 1\n"); }};
};

/// Text that came from the client must not command its terminal, unless it asked for colour.
void
checkIsPrintable(std::string const& text) {
   for (char const character : text) {
      if (character != '\n' && (character < ' ' || character > '~')) {
         std::abort();
      }
   }
}

} // namespace

/// What comes over a control socket, in two parts: whatever is asked, there is an answer.
extern "C" int
LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   static AskedAgent asked;
   std::string_view const bytes(reinterpret_cast<char const*>(data), size);
   FrameReader reader(Request::largest);
   try {
      for (auto const part : {bytes.substr(0, size / 2), bytes.substr(size / 2)}) {
         reader.bytesAre(part);
         while (auto const frame = reader.next()) {
            auto const request = requestOf(*frame);
            if (requestOf(*[&] {
                   FrameReader again(Request::largest);
                   again.bytesAre(bytesOf(request));
                   return again.next();
                }()) != request) {
               std::abort();
            }
            auto const answer = asked.answer(request);
            if (!request.isColoured) {
               checkIsPrintable(answer.text + answer.complaint);
            }
         }
      }
   } catch (ProtocolError const&) {
      // Such a client is sent away.
   }
   return 0;
}
