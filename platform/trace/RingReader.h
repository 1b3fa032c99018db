#pragma once

#include "platform/nuv/Export.h"
#include "platform/pelm/String.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Trace {

/// One message of a ring, as it is printed.
struct ZANDOR_EXPORT RingMessage {
   /// Counts the process's messages from 1; a number that is not there was overwritten or lost.
   std::uint64_t sequence{};
   /// Nanoseconds since the process began to trace, as coarse as the clock's tick (1 to 10 ms).
   std::int64_t time{};
   Pelm::String facility;
   unsigned level{};
   /// Source file, without folder, and line. Empty and 0 if the ring does not know the message's place.
   Pelm::String file;
   unsigned line{};
   /// Without control characters: those, and the backslash, are escaped.
   Pelm::String text;
};

/// What a ring holds.
struct ZANDOR_EXPORT RingContents {
   /// Why nothing could be read; then all else is empty.
   Pelm::String error;
   /// What of it could not be read; empty if there is nothing to say.
   Pelm::String remark;
   /// Records that were being written, or are damaged.
   std::size_t skipped{};
   /// The process that traced.
   std::uint32_t process{};
   /// When it began, in nanoseconds since 1970, UTC.
   std::uint64_t start{};
   /// By rising sequence.
   std::vector<RingMessage> messages;
};

/// Reads a ring file's bytes, of whatever origin: cut or damaged ones give fewer messages or an error.
ZANDOR_EXPORT RingContents readRing(Pelm::StringView bytes);

/// Reads a ring file, also of a process that is running. Errors name path and reason.
ZANDOR_EXPORT RingContents readRingFile(Pelm::String const& path);

/// `sequence +seconds.nanoseconds facility/level file:line text`.
ZANDOR_EXPORT Pelm::String lineOf(RingMessage const&);

/// The form of the file: a header, descriptors in `descriptorRoom` bytes, then the records. All numbers are
/// little endian and of the same place and size on every machine.
namespace ringfile {

inline constexpr std::array<char, 8> magic{'M', 'i', 'r', 'e', 'l', 'o', 'g', '\n'};
inline constexpr std::uint32_t version = 1;

struct ZANDOR_EXPORT Header {
   std::array<char, 8> magic;
   std::uint32_t version;
   std::uint32_t recordBytes;
   /// A power of two.
   std::uint64_t records;
   /// A multiple of 64.
   std::uint64_t descriptorRoom;
   /// Of the monotonic clock that the records' times are of, in nanoseconds.
   std::uint64_t startMonotonic;
   /// The same moment, in nanoseconds since 1970.
   std::uint64_t startRealtime;
   std::uint32_t process;
   std::array<std::uint8_t, 76> reserved;
};
static_assert(sizeof(Header) == 128);

enum class ZANDOR_EXPORT DescriptorType : std::uint8_t { site = 1, facility = 2 };

/// Followed by `fileLength` bytes of a file name and `textLength` bytes of a format or facility name, and by
/// zeros up to a multiple of 8.
struct ZANDOR_EXPORT Descriptor {
   /// Of all of it. Written last; 0 where the descriptors end.
   std::uint32_t bytes;
   std::uint16_t id;
   DescriptorType type;
   std::uint8_t level;
   std::uint32_t line;
   std::uint8_t arguments;
   std::array<std::uint8_t, 5> kinds;
   std::uint16_t fileLength;
   std::uint16_t textLength;
   std::uint16_t reserved;
};
static_assert(sizeof(Descriptor) == 24);

inline constexpr std::size_t maxDescriptorRoom = std::size_t(1) << 24;
inline constexpr std::size_t maxFile = 100;
/// The number of all sites, or facilities, for which there is no room: it has no descriptor.
inline constexpr std::uint32_t noRoom = 0xffff;

/// Words of 64 bits: sequence (0 while the record is being written), time, the site in the low 16 bits with
/// the facility in the next 16 and the check in the upper 32, and the arguments. Message n is record n modulo
/// the number of records.
using Record = std::array<std::uint64_t, 8>;

/// A check over all but itself: two writers of one record, one a whole ring behind the other, leave a mix
/// that no sequence number gives away.
constexpr std::uint32_t
checkOf(std::uint64_t sequence, std::uint64_t time, std::uint32_t origin, std::uint64_t a, std::uint64_t b,
        std::uint64_t c, std::uint64_t d, std::uint64_t e) {
   std::uint64_t const all =
         ((sequence ^ std::rotl(time, 9)) ^ (std::rotl(a, 17) ^ std::rotl(b, 25))) ^
         ((std::rotl(c, 34) ^ std::rotl(d, 42)) ^ (std::rotl(e, 51) ^ std::rotl(std::uint64_t(origin), 5)));
   return static_cast<std::uint32_t>(all * 0x9e3779b97f4a7c15u >> 32);
}

/// Whether a record is whole, and stands where its sequence belongs.
constexpr bool
isWhole(Record const& record, std::size_t index, std::size_t records) {
   return record[0] != 0 && (record[0] & (records - 1)) == index &&
          static_cast<std::uint32_t>(record[2] >> 32) ==
                checkOf(record[0], record[1], static_cast<std::uint32_t>(record[2]), record[3], record[4],
                        record[5], record[6], record[7]);
}

} // namespace ringfile

} // namespace Trace
