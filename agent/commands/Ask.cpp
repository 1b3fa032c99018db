#include "agent/commands/Ask.h"

#include "agent/control/ControlSocket.h"

#include <array>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/write.hpp>
#include <fmt/format.h>
#include <utility>
#include <vector>

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

/// Hands the frames on; the exit code behind the last one of an answer.
std::optional<ExitCode>
handedOn(std::vector<ControlFrame> const& frames, AnswerSink const& sink) {
   for (auto const& frame : frames) {
      switch (frame.kind) {
      case Kind::output:
         sink.output(frame.payload);
         break;
      case Kind::complaint:
         sink.complaint(frame.payload);
         break;
      case Kind::end:
         return exitCodeOf(frame);
      case Kind::request:
         throw ProtocolError("the agent asks instead of answering");
      }
   }
   return std::nullopt;
}

} // namespace

ExitCode
ask(Asked const& asked, Request const& request, AnswerSink const& sink) {
   auto const path = asked.control.empty() ? defaultControlPath() : asked.control;
   auto const bytes = bytesOf(request);
   asio::io_context loop;
   asio::local::stream_protocol::socket socket(loop, asio::local::stream_protocol(), connectedControl(path));
   asio::error_code error;
   // One that is sent away at once hears why all the same.
   asio::write(socket, asio::buffer(bytes), error);
   FrameReader reader(largestText);
   std::vector<ControlFrame> frames;
   std::array<char, portion> buffer;
   while (true) {
      auto const count = socket.read_some(asio::buffer(buffer), error);
      if (error) {
         throw std::runtime_error(
               fmt::format("control socket {}: the agent has gone away before the end of its answer", path));
      }
      reader.bytesAre({buffer.data(), count});
      bool isWhole = false;
      while (auto frame = reader.next()) {
         isWhole |= frame->kind == Kind::end || frame->kind == Kind::request;
         frames.push_back(std::move(*frame));
      }
      if (!isWhole && !asked.isFollowing) {
         continue;
      }
      if (auto const code = handedOn(std::exchange(frames, {}), sink)) {
         return *code;
      }
   }
}

} // namespace L3TunnelAgent
