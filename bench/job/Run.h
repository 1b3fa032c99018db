#pragma once

#include "bench/HeapBytes.h"
#include "bench/job/Job.h"
#include "bench/job/Measurement.h"

#include <CLI/CLI.hpp>
#include <cstdio>

// The one way in which every side is made to do the job. A side has these:
//
//    Side(Job const&)                           its inputs are laid ready, as whoever asks has them
//    void add(destination, set)                 the destination, of the set of that number
//    void addChanged(destination, set)          if it can: a destination that is there, of the changed set
//    void withdraw(destination, set)            the set is the one that it was added with
//    void settle()                              returns when everything is done and acknowledged
//    std::uint64_t rowsWritten() const          rows written and cleared so far
//    std::uint64_t digest(destination, size) const   what forwarding would do, read from the rows alone
//    bool isEmpty() const                       whether no row is left
//    void holdNextHops()                        if it can: all next hops, without sets

namespace Bench {

/// A side did not do what it was asked for: its figures would be worth nothing.
[[noreturn]] inline void
fail(char const* what) {
   std::fprintf(stderr, "the job was not done: %s\n", what);
   std::exit(1);
}

template <class Side>
class Run {
 public:
   explicit Run(Job const& job)
       : job_(job), known_(job.order(1)), changed_(job.order(2)), gone_(job.order(3)) {}

   nlohmann::json times() {
      for (std::size_t cycle = 0; cycle < job_.cycles; ++cycle) {
         Side side(job_);
         all(side);
      }
      return measurement_.json();
   }

   /// Live heap, beyond that of empty tables: of next hops alone, and what sets and groups add.
   nlohmann::json bytes() {
      Side side(job_);
      auto empty = heapBytes() + double(side.rowBytes());
      side.holdNextHops();
      side.settle();
      auto withNextHops = heapBytes() + double(side.rowBytes());
      addAll(side);
      auto whole = heapBytes() + double(side.rowBytes());
      auto count = double(job_.sets() * job_.set);
      return {{"nextHop", (withNextHops - empty) / count},
              {"member", (whole - withNextHops) / count},
              {"both", (whole - empty) / count}};
   }

 private:
   void all(Side& side) {
      step(side, "new", job_.sets(), [&] { addAll(side); });
      check(side, job_.sets(), false);
      if constexpr (requires { side.addChanged(0, 0); }) {
         step(side, "known", job_.changes(), [&] { addKnown(side); });
         for (std::size_t number = 0; number < job_.changes(); ++number) {
            side.withdraw(job_.sets() + number, known_[number]);
         }
         side.settle();
         step(side, "change", job_.changes(), [&] { changeEach(side); });
         check(side, job_.changes(), true);
      }
      step(side, "withdraw", job_.sets(), [&] { withdrawAll(side); });
      if (!side.isEmpty()) {
         fail("rows are left when all is withdrawn");
      }
   }

   template <class Work>
   void step(Side& side, char const* name, std::size_t operations, Work&& work) {
      auto before = side.rowsWritten();
      measurement_(name, operations, work);
      measurement_.rowsAre(name, side.rowsWritten() - before);
   }

   void addAll(Side& side) {
      for (std::size_t number = 0; number < job_.sets(); ++number) {
         side.add(number, number);
         turn(side, number);
      }
      side.settle();
   }

   void addKnown(Side& side) {
      for (std::size_t number = 0; number < job_.changes(); ++number) {
         side.add(job_.sets() + number, known_[number]);
         turn(side, number);
      }
      side.settle();
   }

   void changeEach(Side& side) {
      for (std::size_t number = 0; number < job_.changes(); ++number) {
         side.addChanged(changed_[number], changed_[number]);
         side.settle();
      }
   }

   void withdrawAll(Side& side) {
      for (std::size_t number = 0; number < job_.sets(); ++number) {
         side.withdraw(gone_[number], gone_[number]);
         turn(side, number);
      }
      side.settle();
   }

   void turn(Side& side, std::size_t number) {
      if (number % Job::destinationsPerTurn == Job::destinationsPerTurn - 1) {
         side.settle();
      }
   }

   void check(Side& side, std::size_t count, bool isChanged) {
      for (std::size_t number = 0; number < count; ++number) {
         auto set = isChanged ? changed_[number] : number;
         auto wanted = digest(isChanged ? job_.changedSetOf(set) : job_.setOf(set));
         if (side.digest(set) != wanted) {
            fail("a destination's rows lead elsewhere");
         }
      }
   }

   Job job_;
   std::vector<std::size_t> known_;
   std::vector<std::size_t> changed_;
   std::vector<std::size_t> gone_;
   Measurement measurement_;
};

/// The whole program of one side: does the job that the command line describes, and prints what it cost.
template <class Side>
int
sideMain(char const* name, int argc, char** argv) {
   CLI::App app("Does the benchmark's job on one side, and prints what it cost, as JSON.", name);
   Job job;
   bool isForBytes = false;
   bool hasNoGroups = false;
   app.add_option("--next-hops", job.nextHops, "how many next hops");
   app.add_option("--set", job.set, "next hops of each destination")->check(CLI::Range(1, 4096));
   app.add_option("--cycles", job.cycles, "how often");
   app.add_flag("--no-groups", hasNoGroups, "destinations without group rows");
   app.add_flag("--bytes", isForBytes, "measure live heap instead of time");
   CLI11_PARSE(app, argc, argv);
   job.hasGroups = !hasNoGroups;
   nlohmann::json result{{"side", name}};
   if constexpr (requires { Side::whyNot(); }) {
      if (auto reason = Side::whyNot(); !reason.empty()) {
         result["notMeasured"] = reason;
         std::printf("%s\n", result.dump().c_str());
         return 0;
      }
   }
   // What is done once in a process is not a part of any operation.
   {
      Job small{.nextHops = 64, .set = job.set, .hasGroups = job.hasGroups};
      Run<Side>(small).times();
   }
   if (isForBytes) {
      if constexpr (requires(Side & side) { side.holdNextHops(); }) {
         result["bytes"] = Run<Side>(job).bytes();
      }
   } else {
      result["steps"] = Run<Side>(job).times();
   }
   std::printf("%s\n", result.dump().c_str());
   return 0;
}

} // namespace Bench
