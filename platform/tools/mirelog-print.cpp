#include "platform/trace/RingReader.h"

#include <cstdio>
#include <exception>
#include <fmt/format.h>

namespace {

/// Prints a file's messages; its remark, if any, goes to standard error.
bool
print(char const* path) {
   Trace::RingContents const contents = Trace::readRingFile(path);
   if (!contents.error.empty()) {
      fmt::print(stderr, "l3tunnel-mirelog: {}\n", contents.error);
      return false;
   }
   for (auto const& message : contents.messages) {
      fmt::print("{}\n", Trace::lineOf(message));
   }
   if (!contents.remark.empty()) {
      fmt::print(stderr, "l3tunnel-mirelog: {}: {}\n", path, contents.remark);
   }
   if (std::fflush(stdout) != 0) {
      fmt::print(stderr, "l3tunnel-mirelog: cannot write the messages\n");
      return false;
   }
   return true;
}

} // namespace

/// `l3tunnel-mirelog FILE`: one line per message of a trace ring. Exit code 1 if there is nothing to print
/// for a reason.
int
main(int argc, char** argv) {
   if (argc != 2) {
      fmt::print(stderr, "usage: l3tunnel-mirelog FILE\n");
      return 1;
   }
   try {
      return print(argv[1]) ? 0 : 1;
   } catch (std::exception const& error) {
      fmt::print(stderr, "l3tunnel-mirelog: {}: {}\n", argv[1], error.what());
      return 1;
   }
}
