#include "agent/RoundReader.h"

#include "agent/MessageReader.h"

#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

namespace L3TunnelAgent {

namespace {

constexpr std::uint64_t nanosecondsPerMillisecond = 1'000'000;
constexpr std::string_view lostAnnouncements = "ENOBUFS"; // what the recorder was told then

std::string_view
text(Frame const& frame) {
   return {reinterpret_cast<char const*>(frame.payload.data()), frame.payload.size()};
}

} // namespace

std::optional<Round>
RoundReader::next(Take const& take) {
   while (true) {
      auto frame = ahead_ ? std::exchange(ahead_, std::nullopt) : recording_.next();
      if (!frame) {
         break;
      }
      bool const isMessage = frame->kind == FrameKind::datagram || frame->kind == FrameKind::dumpReply;
      if (pending_.frames != 0 && !(isMessage && belongs(*frame))) {
         ahead_ = std::move(frame);
         break;
      }
      if (!isMessage) {
         if (auto round = reported(*frame)) {
            return round;
         }
         continue;
      }
      this->take(*frame, take);
   }
   return pending_.frames == 0 ? std::nullopt : std::optional(std::exchange(pending_, {}));
}

std::optional<Round>
RoundReader::next(KernelState& state) {
   return next([&](Frame const& frame) { applyReply(state, frame.tag, frame.payload); });
}

void
RoundReader::take(Frame const& frame, Take const& take) {
   if (pending_.frames++ == 0) {
      pending_.kind = frame.kind;
      pending_.nanoseconds = frame.nanoseconds;
   }
   pending_.overrun |= frame.kind == FrameKind::dumpReply && isInterrupted(frame.payload);
   try {
      take(frame);
   } catch (MessageError const& error) {
      throw recording_.error(frame.number, error.what());
   }
}

bool
RoundReader::belongs(Frame const& frame) const {
   return frame.kind == pending_.kind &&
          (frame.kind == FrameKind::dumpReply ||
           frame.nanoseconds / nanosecondsPerMillisecond == pending_.nanoseconds / nanosecondsPerMillisecond);
}

/// @return the round that a marker or a note is by itself, if it is of interest.
std::optional<Round>
RoundReader::reported(Frame const& frame) const {
   Round round{.nanoseconds = frame.nanoseconds};
   if (frame.kind == FrameKind::marker) {
      round.snapshot = snapshotName(frame);
   } else {
      round.overrun = text(frame).find(lostAnnouncements) != std::string_view::npos;
   }
   return round.snapshot || round.overrun ? std::optional(std::move(round)) : std::nullopt;
}

std::optional<std::string>
RoundReader::snapshotName(Frame const& marker) const {
   auto const json = nlohmann::json::parse(text(marker), nullptr, false);
   auto const member = [&](char const* name) -> std::optional<std::string> {
      auto const found = json.find(name);
      return found != json.end() && found->is_string() ? std::optional(found->get<std::string>())
                                                       : std::nullopt;
   };
   if (!json.is_object()) {
      throw recording_.error(marker.number, "the marker is no JSON object");
   }
   if (member("marker") != "snapshot") {
      return std::nullopt;
   }
   auto name = member("dir");
   if (!name) {
      throw recording_.error(marker.number, "the snapshot marker has no name");
   }
   return name;
}

} // namespace L3TunnelAgent
