#pragma once

#include "agent/RecordingWriter.h"
#include "agent/live/KernelReader.h"

#include <functional>
#include <vector>

namespace L3TunnelAgent {

/// Records what a running kernel has, then what it announces.
///
/// What is announced while the state is read comes behind it in the recording, with the time at which it was
/// heard. Two snapshots are named: "start" behind the state, and "end". What was heard is in the file a
/// second later, in whatever way the process ends.
class Recorder final : private KernelListener {
 public:
   /// @param loop, writer must outlive this.
   Recorder(asio::io_context& loop, KernelReader::Settings const& settings, RecordingWriter& writer);

   /// Begins to record.
   /// @throws NetlinkError when the kernel cannot be asked or the namespace cannot be entered, WriteError
   /// when the file cannot be written; so does the loop from here on.
   void start();

   /// Records what is announced already, and ends.
   /// @throws WriteError when the file cannot be written.
   void stop();

   /// Called with what a person should know.
   void logIs(std::function<void(LogLevel, std::string const&)> log) { log_ = std::move(log); }

   /// Called once the kernel's state is recorded.
   void stateHookIs(std::function<void()> hook) { stateHook_ = std::move(hook); }

   /// Whether the kernel's state is recorded.
   bool hasState() const { return hasState_; }
   Counters const& counters() const { return counters_; }

 private:
   void announced(std::span<std::byte const> datagram) override;
   void burstRead() override {}
   void lost() override;
   void replied(DumpKind const& kind, std::span<std::byte const> datagram) override;
   void dumped(bool fitsTogether) override;
   void told(LogLevel level, std::string const& text) override;

   void add(Frame frame);
   void flushSoon();
   void stateIsOver();
   void snapshot(char const* name);

   RecordingWriter& writer_;
   Counters counters_;
   std::function<void(LogLevel, std::string const&)> log_;
   std::function<void()> stateHook_;
   std::vector<Frame> behind_; // to be written when the state is
   std::size_t behindBytes_{};
   bool hasState_{};
   bool isRecording_{};
   bool isFlushDue_{};
   asio::steady_timer flush_;
   KernelReader kernel_;
};

} // namespace L3TunnelAgent
