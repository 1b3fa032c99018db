#include "platform/trace/RingReader.h"

#include "platform/trace/Mirelog.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <iterator>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <unordered_map>

namespace Trace {

namespace {

using ringfile::Descriptor;
using ringfile::DescriptorType;
using ringfile::Header;
using ringfile::Record;

/// A copy of the value at an offset, which must be inside.
template <class T>
T
valueAt(Pelm::StringView bytes, std::size_t offset) {
   T value;
   std::memcpy(&value, bytes.data() + offset, sizeof(value));
   return value;
}

/// What is wrong with a header; empty if nothing is.
Pelm::String
complaintAbout(Header const& header) {
   if (header.magic != ringfile::magic) {
      return "not a trace ring";
   }
   if (header.version != ringfile::version) {
      return fmt::format("trace ring of version {}, not {}", header.version, ringfile::version);
   }
   if (header.recordBytes != sizeof(Record)) {
      return fmt::format("damaged header: records of {} bytes", header.recordBytes);
   }
   if (!std::has_single_bit(header.records) || header.records > maxRingRecords) {
      return fmt::format("damaged header: {} records", header.records);
   }
   if (header.descriptorRoom % 64 != 0 || header.descriptorRoom > ringfile::maxDescriptorRoom) {
      return fmt::format("damaged header: {} bytes of descriptors", header.descriptorRoom);
   }
   return {};
}

/// Where the records of a good header begin.
std::size_t
recordsOffset(Header const& header) {
   return sizeof(Header) + std::size_t(header.descriptorRoom);
}

void
appendEscaped(Pelm::String& out, Pelm::StringView raw) {
   for (char const c : raw) {
      auto const byte = static_cast<unsigned char>(c);
      if (byte < 0x20 || byte == 0x7f || c == '\\') {
         fmt::format_to(std::back_inserter(out), "\\x{:02x}", byte);
      } else {
         out += c;
      }
   }
}

Pelm::String
escaped(Pelm::StringView raw) {
   Pelm::String out;
   appendEscaped(out, raw);
   return out;
}

struct Site {
   unsigned level;
   unsigned line;
   std::size_t arguments;
   std::array<std::uint8_t, detail::payloadWords> kinds;
   Pelm::StringView file;
   Pelm::StringView format;

   std::size_t texts() const {
      return std::size_t(
            std::count(kinds.begin(), kinds.begin() + std::ptrdiff_t(arguments), std::uint8_t(Kind::text)));
   }
};

/// The texts of the messages.
class Descriptors {
 public:
   explicit Descriptors(Pelm::StringView bytes) {
      std::size_t at = 0;
      while (bytes.size() - at >= sizeof(Descriptor)) {
         auto const head = valueAt<Descriptor>(bytes, at);
         if (head.bytes == 0) {
            return;
         }
         if (head.bytes % 8 != 0 || head.bytes < sizeof(head) || head.bytes > bytes.size() - at) {
            damaged_ = true;
            return;
         }
         if (!add(head, bytes.substr(at + sizeof(head), head.bytes - sizeof(head)))) {
            damaged_ = true;
         }
         at += head.bytes;
      }
   }

   bool damaged() const { return damaged_; }

   Site const* site(std::uint16_t id) const {
      auto const at = sites_.find(id);
      return at == sites_.end() ? nullptr : &at->second;
   }

   Pelm::StringView facility(std::uint16_t id) const {
      auto const at = facilities_.find(id);
      return at == facilities_.end() ? "?" : at->second;
   }

 private:
   bool add(Descriptor const& head, Pelm::StringView texts) {
      if (texts.size() < std::size_t(head.fileLength) + head.textLength) {
         return false;
      }
      auto const file = texts.substr(0, head.fileLength);
      auto const text = texts.substr(head.fileLength, head.textLength);
      if (head.type == DescriptorType::facility) {
         return text.size() <= Facility::maxName && facilities_.try_emplace(head.id, text).second;
      }
      bool const isGood =
            head.type == DescriptorType::site && file.size() <= ringfile::maxFile &&
            text.size() <= MirelogSite::maxFormat && head.level <= MirelogSite::maxLevel &&
            head.arguments <= head.kinds.size() &&
            std::all_of(head.kinds.begin(), head.kinds.begin() + head.arguments, [](std::uint8_t kind) {
               return kind >= std::uint8_t(Kind::boolean) && kind <= std::uint8_t(Kind::ipv4Address);
            });
      return isGood &&
             sites_.try_emplace(head.id, Site{head.level, head.line, head.arguments, head.kinds, file, text})
                   .second;
   }

   std::unordered_map<std::uint16_t, Site> sites_;
   std::unordered_map<std::uint16_t, Pelm::StringView> facilities_;
   bool damaged_{};
};

/// A text as `packText` left it.
void
appendText(Pelm::String& out, std::uint64_t const* words, std::size_t count) {
   std::array<char, detail::payloadWords * sizeof(*words)> bytes;
   std::memcpy(bytes.data(), words, count * sizeof(*words));
   auto const first = static_cast<unsigned char>(bytes[0]);
   std::size_t const length = std::min<std::size_t>(first & 0x7f, count * sizeof(*words) - 1);
   appendEscaped(out, Pelm::StringView(bytes.data() + 1, length));
   if (first & 0x80) {
      out += "...";
   }
}

void
appendWord(Pelm::String& out, Kind kind, std::uint64_t word) {
   auto const to = std::back_inserter(out);
   auto const byte = [word](unsigned index) { return word >> 8 * index & 0xff; };
   switch (kind) {
   case Kind::boolean:
      out += word ? "True" : "False";
      return;
   case Kind::signedInteger:
      fmt::format_to(to, "{}", static_cast<std::int64_t>(word));
      return;
   case Kind::hexadecimal:
   case Kind::address:
      fmt::format_to(to, "{:#x}", word);
      return;
   case Kind::ethernetAddress:
      fmt::format_to(to, "{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", byte(5), byte(4), byte(3), byte(2),
                     byte(1), byte(0));
      return;
   case Kind::ipv4Address:
      fmt::format_to(to, "{}.{}.{}.{}", byte(3), byte(2), byte(1), byte(0));
      return;
   case Kind::unsignedInteger:
   case Kind::text:
      break;
   }
   fmt::format_to(to, "{}", word);
}

Pelm::String
textOf(Site const& site, Record const& record) {
   std::size_t const wordsPerText = detail::wordsPerText(site.arguments, site.texts());
   std::uint64_t const* word = record.data() + 3;
   std::size_t argument = 0;
   Pelm::String out;
   for (std::size_t i = 0; i < site.format.size(); ++i) {
      Pelm::StringView const rest = site.format.substr(i);
      if (rest.starts_with("{}") && argument < site.arguments) {
         Kind const kind{site.kinds[argument++]};
         if (kind == Kind::text) {
            appendText(out, word, wordsPerText);
            word += wordsPerText;
         } else {
            appendWord(out, kind, *word++);
         }
         ++i;
      } else {
         appendEscaped(out, rest.substr(0, 1));
         i += rest.starts_with("{{") || rest.starts_with("}}");
      }
   }
   return out;
}

RingMessage
messageOf(Record const& record, Descriptors const& descriptors, Header const& header) {
   RingMessage message;
   message.sequence = record[0];
   message.time = static_cast<std::int64_t>(record[1] - header.startMonotonic);
   message.facility = escaped(descriptors.facility(static_cast<std::uint16_t>(record[2] >> 16)));
   auto const id = static_cast<std::uint16_t>(record[2]);
   if (Site const* site = descriptors.site(id)) {
      message.level = site->level;
      message.file = escaped(site->file);
      message.line = site->line;
      message.text = textOf(*site, record);
   } else {
      message.text = fmt::format("(no text for message {}: {:#x} {:#x} {:#x} {:#x} {:#x})", id, record[3],
                                 record[4], record[5], record[6], record[7]);
   }
   return message;
}

RingContents
failure(Pelm::String error) {
   RingContents contents;
   contents.error = std::move(error);
   return contents;
}

/// An open file.
class File {
 public:
   // Without blocking, lest a pipe of that name waits for a writer.
   explicit File(Pelm::String const& path)
       : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
   ~File() {
      if (descriptor_ >= 0) {
         close(descriptor_);
      }
   }
   File(File const&) = delete;
   File& operator=(File const&) = delete;

   int descriptor() const { return descriptor_; }

   /// Reads up to `size` bytes from the beginning; the number read, or nothing with `errno` set.
   std::optional<std::size_t> read(char* to, std::size_t size) const {
      std::size_t done = 0;
      while (done < size) {
         ssize_t const now = pread(descriptor_, to + done, size - done, off_t(done));
         if (now == 0) {
            break;
         }
         if (now > 0) {
            done += std::size_t(now);
         } else if (errno != EINTR) {
            return {};
         }
      }
      return done;
   }

 private:
   int descriptor_;
};

} // namespace

RingContents
readRing(Pelm::StringView bytes) {
   if (bytes.size() < sizeof(Header)) {
      return failure(fmt::format("too short for a trace ring: {} bytes", bytes.size()));
   }
   auto const header = valueAt<Header>(bytes, 0);
   if (auto complaint = complaintAbout(header); !complaint.empty()) {
      return failure(std::move(complaint));
   }
   std::size_t const offset = recordsOffset(header);
   if (bytes.size() < offset) {
      return failure(fmt::format("cut short: {} bytes, the records would begin at {}", bytes.size(), offset));
   }
   Descriptors const descriptors(bytes.substr(sizeof(header), offset - sizeof(header)));
   auto const records = std::size_t(header.records);
   std::size_t const present = std::min(records, (bytes.size() - offset) / sizeof(Record));

   RingContents contents;
   contents.process = header.process;
   contents.start = header.startRealtime;
   for (std::size_t i = 0; i < present; ++i) {
      auto const record = valueAt<Record>(bytes, offset + i * sizeof(Record));
      if (ringfile::isWhole(record, i, records)) {
         contents.messages.push_back(messageOf(record, descriptors, header));
      } else if (record != Record{}) {
         ++contents.skipped;
      }
   }
   std::sort(contents.messages.begin(), contents.messages.end(),
             [](auto const& a, auto const& b) { return a.sequence < b.sequence; });

   std::vector<Pelm::String> remarks;
   if (present < records) {
      remarks.push_back(fmt::format("cut short: {} of {} records", present, records));
   }
   if (descriptors.damaged()) {
      remarks.emplace_back("damaged descriptors");
   }
   if (contents.skipped > 0) {
      remarks.push_back(fmt::format("{} records half-written or damaged", contents.skipped));
   }
   contents.remark = fmt::format("{}", fmt::join(remarks, "; "));
   return contents;
}

RingContents
readRingFile(Pelm::String const& path) {
   auto const failed = [&path](Pelm::StringView reason) {
      return failure(fmt::format("cannot read {}: {}", path, reason));
   };
   auto const failedAs = [&failed](int error) { return failed(std::generic_category().message(error)); };
   File const file(path);
   struct stat status;
   if (file.descriptor() < 0 || fstat(file.descriptor(), &status) != 0) {
      return failedAs(errno);
   }
   if (!S_ISREG(status.st_mode)) {
      return failed("not a regular file");
   }
   Pelm::String bytes(sizeof(Header), '\0');
   auto size = file.read(bytes.data(), bytes.size());
   if (size == sizeof(Header)) {
      auto const header = valueAt<Header>(bytes, 0);
      if (complaintAbout(header).empty()) {
         // Never more than the header's due, however large the file says it is.
         std::uint64_t const due = recordsOffset(header) + header.records * sizeof(Record);
         bytes.resize(std::size_t(std::min<std::uint64_t>(due, std::uint64_t(status.st_size))));
         size = file.read(bytes.data(), bytes.size());
         // Once more, for the descriptors of messages that came in while the records were read.
         if (size && !file.read(bytes.data(), std::min(*size, recordsOffset(header)))) {
            size.reset();
         }
      }
   }
   if (!size) {
      return failedAs(errno);
   }
   bytes.resize(*size);
   RingContents contents = readRing(bytes);
   if (!contents.error.empty()) {
      return failed(contents.error);
   }
   return contents;
}

Pelm::String
lineOf(RingMessage const& message) {
   bool const isBefore = message.time < 0;
   std::uint64_t const distance =
         isBefore ? 0 - static_cast<std::uint64_t>(message.time) : static_cast<std::uint64_t>(message.time);
   return fmt::format("{} {}{}.{:09} {}/{} {}:{} {}", message.sequence, isBefore ? '-' : '+',
                      distance / 1'000'000'000u, distance % 1'000'000'000u, message.facility, message.level,
                      message.file, message.line, message.text);
}

} // namespace Trace
