#include "agent/commands/Ask.h"

#include "agent/control/ControlSocket.h"

#include <array>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/write.hpp>
#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

using Kind = ControlFrame::Kind;

constexpr std::size_t portion = 64 * 1024;

/// What an exit code of the agent says; one that it cannot say is a fault.
ExitCode
exitCodeOf(ControlFrame const& end) {
   if (end.payload.size() != 1 || static_cast<unsigned char>(end.payload[0]) > exitFault) {
      throw ProtocolError("the agent's answer ends in no exit code");
   }
   return ExitCode(end.payload[0]);
}

/// Hands the whole frames on; the exit code behind the last one.
std::optional<ExitCode>
handedOn(FrameReader& reader, AnswerSink const& sink) {
   while (auto const frame = reader.next()) {
      switch (frame->kind) {
      case Kind::output:
         sink.output(frame->payload);
         break;
      case Kind::complaint:
         sink.complaint(frame->payload);
         break;
      case Kind::end:
         return exitCodeOf(*frame);
      case Kind::request:
         throw ProtocolError("the agent asks instead of answering");
      }
   }
   return std::nullopt;
}

} // namespace

ExitCode
ask(std::string const& control, Request const& request, AnswerSink const& sink) {
   auto const path = control.empty() ? defaultControlPath() : control;
   auto const bytes = bytesOf(request);
   asio::io_context loop;
   asio::local::stream_protocol::socket socket(loop, asio::local::stream_protocol(), connectedControl(path));
   asio::error_code error;
   // One that is sent away at once hears why all the same.
   asio::write(socket, asio::buffer(bytes), error);
   FrameReader reader(largestText);
   std::array<char, portion> buffer;
   while (true) {
      auto const count = socket.read_some(asio::buffer(buffer), error);
      if (error) {
         throw std::runtime_error(
               fmt::format("control socket {}: the agent has gone away before the end of its answer", path));
      }
      reader.bytesAre({buffer.data(), count});
      if (auto const code = handedOn(reader, sink)) {
         return *code;
      }
   }
}

} // namespace L3TunnelAgent
