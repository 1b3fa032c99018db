#include "agent/commands/Command.h"
#include "agent/live/Recorder.h"
#include "agent/views/Names.h"

#include <CLI/CLI.hpp>
#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <csignal>
#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

// A hundred years.
constexpr double longestDuration = 3.2e9;

struct RecordOptions {
   std::string file;
   KernelReader::Settings kernel;
   std::optional<double> duration; // seconds
   bool force{};
};

RecordingWriter
writerOf(RecordOptions const& options) {
   if (!options.force && options.file != "-" && std::filesystem::exists(options.file)) {
      throw UsageError(fmt::format("FILE {}: is there already; --force replaces it", options.file));
   }
   return {options.file,
           options.force ? RecordingWriter::Existing::replaced : RecordingWriter::Existing::kept};
}

std::string
summary(RecordOptions const& options, Counters const& counters) {
   auto text = fmt::format("{}: {} of the kernel's state, {} recorded", options.file,
                           counted(counters.dumps, "part", "parts"),
                           counted(counters.messages, "announcement", "announcements"));
   return text + (counters.overruns ? fmt::format(", lost {} times\n", counters.overruns) : "\n");
}

Answer
run(RecordOptions const& options, Context& context) {
   auto writer = writerOf(options);
   asio::io_context loop(1);
   Recorder recorder(loop, options.kernel, writer);
   recorder.logIs([&](LogLevel /*level*/, std::string const& text) {
      if (context.warn) {
         context.warn(text);
      }
   });

   asio::signal_set signals(loop, SIGINT, SIGTERM, SIGHUP);
   asio::steady_timer end(loop);
   auto const stop = [&](asio::error_code const& error) {
      if (!error) {
         signals.cancel();
         end.cancel();
         recorder.stop();
      }
   };
   signals.async_wait([&](asio::error_code const& error, int /*signal*/) { stop(error); });
   if (options.duration) {
      recorder.stateHookIs([&] {
         end.expires_after(std::chrono::duration_cast<asio::steady_timer::duration>(
               std::chrono::duration<double>(*options.duration)));
         end.async_wait(stop);
      });
   }
   recorder.start();
   loop.run();
   return {.text = options.file == "-" ? "" : summary(options, recorder.counters())};
}

} // namespace

Command
recordCommand(CLI::App& app) {
   auto options = std::make_shared<RecordOptions>();
   auto* const command = app.add_subcommand(
         "record", "record what this machine's kernel has and announces, until interrupted");
   command
         ->add_option("FILE", options->file,
                      "recording to make, compressed when its name ends in .gz; - is standard output")
         ->required();
   command
         ->add_option("--netns", options->kernel.netns,
                      "record the kernel's state in the network namespace of that name")
         ->type_name("NAME");
   command
         ->add_option("--duration", options->duration,
                      "end that long after the kernel's state is recorded (default: when interrupted)")
         ->check(CLI::Range(0.0, longestDuration).description(""))
         ->type_name("SECONDS");
   command
         ->add_option("--receive-buffer", options->kernel.receiveBuffer,
                      fmt::format("room for announcements not read yet (default: {})",
                                  options->kernel.receiveBuffer))
         ->type_name("BYTES");
   command->add_flag("--force", options->force, "replace a file that is there already");
   return {[options](Context& context) { return run(*options, context); }};
}

} // namespace L3TunnelAgent
