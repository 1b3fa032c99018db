#include "platform/trace/RingReader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

/// Whatever the bytes are, there are messages that can be printed, or an error.
void
readAndPrint(Pelm::String const& bytes) {
   auto const contents = Trace::readRing(bytes);
   if (!contents.error.empty() && !contents.messages.empty()) {
      std::abort();
   }
   for (auto const& message : contents.messages) {
      if (Trace::lineOf(message).find('\n') != Pelm::String::npos) {
         std::abort();
      }
   }
}

/// Makes every record whole, in its place, so that changed ones are not all skipped.
void
repairRecords(Pelm::String& bytes) {
   namespace ringfile = Trace::ringfile;
   ringfile::Header header;
   if (bytes.size() < sizeof(header)) {
      return;
   }
   std::memcpy(&header, bytes.data(), sizeof(header));
   if (header.descriptorRoom > bytes.size()) {
      return;
   }
   std::size_t const first = sizeof(header) + std::size_t(header.descriptorRoom);
   ringfile::Record record;
   for (std::size_t at = first; at + sizeof(record) <= bytes.size(); at += sizeof(record)) {
      std::memcpy(&record, bytes.data() + at, sizeof(record));
      record[0] = header.records + (at - first) / sizeof(record);
      auto const origin = static_cast<std::uint32_t>(record[2]);
      std::uint64_t const check = ringfile::checkOf(record[0], record[1], origin, record[3], record[4],
                                                    record[5], record[6], record[7]);
      record[2] = check << 32 | origin;
      std::memcpy(bytes.data() + at, &record, sizeof(record));
   }
}

} // namespace

extern "C" int
LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   Pelm::String bytes(reinterpret_cast<char const*>(data), size);
   bytes.shrink_to_fit();
   readAndPrint(bytes);
   repairRecords(bytes);
   readAndPrint(bytes);
   return 0;
}
