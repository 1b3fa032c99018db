#pragma once

#include "agent/live/Counters.h"
#include "agent/live/DumpKind.h"
#include "agent/live/DumpReader.h"
#include "agent/live/NetlinkSocket.h"

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace L3TunnelAgent {

/// Hears what a KernelReader reads, from the event loop. Each may call the reader.
class KernelListener {
 public:
   KernelListener() = default;
   KernelListener(KernelListener const&) = delete;
   KernelListener& operator=(KernelListener const&) = delete;
   virtual ~KernelListener() = default;

   /// The kernel announced something; the bytes last until this returns.
   virtual void announced(std::span<std::byte const> datagram) = 0;

   /// What there was to read is read, or a part of it that is large enough.
   virtual void burstRead() = 0;

   /// Announcements were lost.
   virtual void lost() = 0;

   /// One datagram of the replies to a request that was answered in full.
   virtual void replied(DumpKind const& kind, std::span<std::byte const> datagram) = 0;

   /// Everything that was asked for is answered, and what was announced meanwhile is read.
   /// @param fitsTogether whether all of it was there at a time; otherwise it is to be asked for again.
   virtual void dumped(bool fitsTogether) = 0;

   /// Something that a person should know.
   virtual void told(LogLevel level, std::string const& text) = 0;
};

/// Reads a kernel's state and what it announces, from an event loop.
///
/// Announcements are heard from the start on and read while the state is, so that none is missed: what was
/// announced since a request was made may or may not be in the replies, and may be applied behind them.
class KernelReader {
 public:
   struct Settings {
      std::optional<std::string> netns{}; ///< name of a network namespace; the process's own without
      std::size_t receiveBuffer{
            32U << 20U}; ///< for announcements not read yet, in bytes, as the system counts
      std::size_t mostBehind{
            256U << 20U}; ///< of announcements kept while the state is read, in bytes; more count as lost
   };

   /// @param loop, listener, counters must outlive this.
   KernelReader(asio::io_context& loop, Settings const& settings, KernelListener& listener,
                Counters& counters);
   KernelReader(KernelReader const&) = delete;
   KernelReader& operator=(KernelReader const&) = delete;
   ~KernelReader();

   /// Begins to hear announcements; anew when it did already, of the namespace that has the name by now, and
   /// then what is being read is given up.
   /// @throws NetlinkError when the kernel cannot be asked or the namespace cannot be entered; nothing is
   /// different then.
   void start();

   /// What became of the namespace's name since start().
   NetworkNamespace::Standing standing() const { return where_->standing(); }

   /// Asks for these, one after the other. What is interrupted or refused is asked for again, in the end
   /// after pauses. Nothing may be asked for while isReading(). The loop throws NetlinkError when something
   /// is refused again and again before anything that was asked for is answered.
   /// @param kinds must last as long as this.
   void read(std::span<DumpKind const> kinds);
   bool isReading() const { return !kinds_.empty(); }

   Settings const& settings() const { return settings_; }

   /// Reads what is announced already.
   void readAnnounced();

   /// Passes over what is announced already, and what was lost of it. Once announcements were lost the kernel
   /// drops more without a word, until all that it holds is received: only then a request finds what was
   /// dropped, and nothing that is older comes behind the replies.
   /// @return whether nothing is left; otherwise there is more than should be received at once.
   bool passOverAnnounced();

   /// Reads nothing any more, and calls nobody.
   void stop();

 private:
   struct Watched {
      NetlinkSocket socket;
      asio::posix::stream_descriptor descriptor;
      DatagramReader reader;
   };

   std::unique_ptr<Watched> watched(NetworkNamespace const& where);
   void watchAnnouncements();
   void readAnnouncements(std::size_t most);
   void ask();
   void watchReplies();
   void readReplies();
   void repliesLost(std::string const& why);
   void finished(DumpReader::State state);
   void refused(int error);
   void tryAgain(std::string const& why);
   void recovered();
   void answered();
   void handOn();
   template <typename Call>
   auto guarded(Call call);

   asio::io_context& loop_;
   Settings settings_;
   KernelListener& listener_;
   Counters& counters_;
   std::optional<NetworkNamespace> where_;
   std::unique_ptr<Watched> announcements_;
   std::unique_ptr<Watched> replies_;
   asio::steady_timer pause_;
   std::span<DumpKind const> kinds_; // the first one is being read
   std::optional<DumpReader> dump_;
   std::size_t handedOn_{}; // of its replies
   std::uint32_t sequence_{};
   unsigned tries_{}; // of the first kind
   bool fitsTogether_{};
   bool isTold_{};                                        // that the first kind cannot be read
   bool hasAnswers_{};                                    // all that was asked for was answered once
   std::shared_ptr<int> alive_ = std::make_shared<int>(); // while handlers may call this
};

} // namespace L3TunnelAgent
