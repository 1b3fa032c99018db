#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace Bench {

/// Counts the instructions of this process, those that the kernel executes for it included, where the
/// machine counts them and the process may ask.
class InstructionCounter {
 public:
   InstructionCounter();
   ~InstructionCounter();
   InstructionCounter(InstructionCounter const&) = delete;
   InstructionCounter& operator=(InstructionCounter const&) = delete;

   /// The instructions so far; nothing where they are not counted.
   std::optional<std::uint64_t> count() const;

 private:
   int descriptor_;
};

/// Takes down what each step of a job costs: processor time, instructions, rows. Under callgrind each step
/// is dumped by its name, and nothing else is counted.
class Measurement {
 public:
   /// Runs `step`, which does `operations` operations, and takes down its cost under `name`.
   template <class Step>
   void operator()(char const* name, std::size_t operations, Step&& step) {
      begin();
      step();
      end(name, operations);
   }

   void rowsAre(char const* name, std::uint64_t rows) { steps_[name].rows = rows; }

   /// For each step: operations, and for each time that it was done nanoseconds and instructions (null where
   /// they are not counted) per operation, and the rows written per operation.
   nlohmann::json json() const;

 private:
   struct Step {
      std::size_t operations{};
      std::uint64_t rows{};
      std::vector<double> nanoseconds;
      std::vector<std::optional<double>> instructions;
   };

   void begin();
   void end(char const* name, std::size_t operations);

   InstructionCounter counter_;
   std::map<std::string, Step> steps_;
   std::uint64_t nanosecondsBefore_{};
   std::optional<std::uint64_t> instructionsBefore_;
};

} // namespace Bench
