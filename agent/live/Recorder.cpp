#include "agent/live/Recorder.h"

#include <chrono>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

constexpr std::chrono::seconds flushPause{1};

/// Of the clock that recordings are in.
std::uint64_t
now() {
   return static_cast<std::uint64_t>(
         std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
}

nlohmann::json
marker(char const* name) {
   auto const time = std::chrono::system_clock::now().time_since_epoch();
   return {{"marker", name}, {"realtime_ns", std::chrono::nanoseconds(time).count()}};
}

} // namespace

Recorder::Recorder(asio::io_context& loop, KernelReader::Settings const& settings, RecordingWriter& writer)
    : writer_(writer), flush_(loop), kernel_(loop, settings, *this, counters_) {}

void
Recorder::start() {
   kernel_.start();
   isRecording_ = true;
   auto start = marker("start");
   for (auto const& kind : allDumps()) {
      start["dumps"][std::to_string(kind.tag)] = kind.name;
   }
   writer_.add(FrameKind::marker, now(), start.dump());
   kernel_.read(allDumps());
}

void
Recorder::stop() {
   if (!std::exchange(isRecording_, false)) {
      return;
   }
   flush_.cancel();
   kernel_.readAnnounced();
   kernel_.stop();
   if (!hasState_) {
      told(LogLevel::warning, "the recording ends before all of the kernel's state is in it");
      stateIsOver();
   }
   snapshot("end");
   writer_.close();
}

void
Recorder::add(Frame frame) {
   frame.nanoseconds = now();
   if (hasState_) {
      writer_.add(frame);
      flushSoon();
   } else {
      behind_.push_back(std::move(frame));
   }
}

void
Recorder::flushSoon() {
   if (std::exchange(isFlushDue_, true)) {
      return;
   }
   flush_.expires_after(flushPause);
   flush_.async_wait([this](asio::error_code const& error) {
      if (!error && isRecording_) {
         isFlushDue_ = false;
         writer_.flush();
      }
   });
}

void
Recorder::announced(std::span<std::byte const> datagram) {
   if (!hasState_) {
      bool const hadRoom = behindBytes_ <= kernel_.settings().mostBehind;
      behindBytes_ += datagram.size();
      if (behindBytes_ > kernel_.settings().mostBehind) {
         if (hadRoom) {
            lost();
         }
         return;
      }
   }
   add({.kind = FrameKind::datagram, .payload = {datagram.begin(), datagram.end()}});
}

void
Recorder::lost() {
   constexpr std::string_view text = "ENOBUFS: announcements were lost";
   auto const* const begin = reinterpret_cast<std::byte const*>(text.data());
   add({.kind = FrameKind::note, .payload = {begin, begin + text.size()}});
   told(LogLevel::warning, "announcements of the kernel were lost, which the recording says");
}

void
Recorder::replied(DumpKind const& kind, std::span<std::byte const> datagram) {
   writer_.add({.kind = FrameKind::dumpReply,
                .tag = kind.tag,
                .nanoseconds = now(),
                .payload = {datagram.begin(), datagram.end()}});
}

void
Recorder::dumped(bool fitsTogether) {
   if (!fitsTogether) {
      told(LogLevel::warning, "the kernel's state changed while it was read, which the recording says");
   }
   writer_.add(FrameKind::marker, now(), marker("dump-end").dump());
   snapshot("start");
   stateIsOver();
   writer_.flush();
   if (stateHook_) {
      stateHook_();
   }
}

/// What was announced meanwhile follows.
void
Recorder::stateIsOver() {
   hasState_ = true;
   for (auto const& frame : std::exchange(behind_, {})) {
      writer_.add(frame);
   }
}

void
Recorder::snapshot(char const* name) {
   auto taken = marker("snapshot");
   taken["dir"] = name;
   writer_.add(FrameKind::marker, now(), taken.dump());
}

void
Recorder::told(LogLevel level, std::string const& text) {
   if (log_) {
      log_(level, text);
   }
}

} // namespace L3TunnelAgent
