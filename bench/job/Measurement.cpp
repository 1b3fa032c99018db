#include "bench/job/Measurement.h"

#include <ctime>
#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

namespace Bench {

namespace {

// What neighbours on the machine take is not in it, what the kernel does for the process is.
std::uint64_t
processorTime() {
   timespec now;
   clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
   return std::uint64_t(now.tv_sec) * 1'000'000'000u + std::uint64_t(now.tv_nsec);
}

int
openCounter(bool withKernel) {
   perf_event_attr attributes{};
   attributes.type = PERF_TYPE_HARDWARE;
   attributes.size = sizeof attributes;
   attributes.config = PERF_COUNT_HW_INSTRUCTIONS;
   attributes.exclude_kernel = !withKernel;
   attributes.exclude_hv = 1;
   return int(syscall(SYS_perf_event_open, &attributes, 0, -1, -1, 0));
}

} // namespace

InstructionCounter::InstructionCounter() : descriptor_(openCounter(true)) {}

InstructionCounter::~InstructionCounter() {
   if (descriptor_ >= 0) {
      close(descriptor_);
   }
}

std::optional<std::uint64_t>
InstructionCounter::count() const {
   std::uint64_t value{};
   bool isCounted = descriptor_ >= 0 && read(descriptor_, &value, sizeof value) == sizeof value;
   return isCounted ? std::optional(value) : std::nullopt;
}

void
Measurement::begin() {
   CALLGRIND_ZERO_STATS;
   instructionsBefore_ = counter_.count();
   nanosecondsBefore_ = processorTime();
}

void
Measurement::end(char const* name, std::size_t operations) {
   auto nanoseconds = processorTime() - nanosecondsBefore_;
   auto instructions = counter_.count();
   CALLGRIND_DUMP_STATS_AT(name);
   auto& step = steps_[name];
   step.operations = operations;
   step.nanoseconds.push_back(double(nanoseconds) / double(operations));
   step.instructions.push_back(
         instructions && instructionsBefore_
               ? std::optional(double(*instructions - *instructionsBefore_) / double(operations))
               : std::nullopt);
}

nlohmann::json
Measurement::json() const {
   auto all = nlohmann::json::object();
   for (auto const& [name, step] : steps_) {
      auto instructions = nlohmann::json::array();
      for (auto const& each : step.instructions) {
         instructions.push_back(each ? nlohmann::json(*each) : nlohmann::json());
      }
      all[name] = {{"operations", step.operations},
                   {"rows", double(step.rows) / double(step.operations)},
                   {"ns", step.nanoseconds},
                   {"instructions", instructions}};
   }
   return all;
}

} // namespace Bench
