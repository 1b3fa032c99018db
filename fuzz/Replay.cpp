#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path>
filesIn(fs::path const& folder) {
   std::vector<fs::path> files;
   std::error_code error;
   for (auto const& entry : fs::directory_iterator(folder, error)) {
      if (entry.is_regular_file()) {
         files.push_back(entry.path());
      }
   }
   std::sort(files.begin(), files.end());
   return files;
}

std::vector<std::uint8_t>
contents(fs::path const& file) {
   std::ifstream in(file, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), {}};
}

} // namespace

/// Gives every file of a corpus to the target, so that what the fuzzer once found stays found.
int
main(int argc, char** argv) {
   if (argc != 2) {
      std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
      return 2;
   }
   auto files = filesIn(argv[1]);
   for (auto const& file : files) {
      // Should the target crash, this line tells where.
      std::printf("%s\n", file.c_str());
      std::fflush(stdout);
      // The heap block is as long as the input, for the sanitizers to see every step beyond it.
      auto input = contents(file);
      input.shrink_to_fit();
      LLVMFuzzerTestOneInput(input.data(), input.size());
   }
   if (files.empty()) {
      std::fprintf(stderr, "no files in %s\n", argv[1]);
      return 1;
   }
   return 0;
}
