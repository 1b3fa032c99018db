#include "platform/trace/Mirelog.h"

#include "platform/trace/RingReader.h"

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <fcntl.h>
#include <fmt/format.h>
#include <limits>
#include <mutex>
#include <sys/mman.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>
#include <unordered_map>

namespace Trace {

static_assert(std::endian::native == std::endian::little, "the ring file is written in the machine's order");

namespace {

using ringfile::Descriptor;
using ringfile::DescriptorType;
using ringfile::Header;
using ringfile::Record;

constexpr std::size_t wordsPerRecord = std::tuple_size_v<Record>;
static_assert(sizeof(Record) == 64);

/// Header and descriptors together, so that the records begin with a page.
constexpr std::size_t recordsOffset = std::size_t(1) << 20;
constexpr std::size_t descriptorRoom = recordsOffset - sizeof(Header);

struct Ring {
   std::uint64_t* words;
   std::size_t mask;

   std::size_t records() const { return mask + 1; }
   std::uint64_t* record(std::size_t index) const { return words + index * wordsPerRecord; }
};

// Everything that a message needs exists from the start: there may be messages before any constructor ran.
alignas(64) constinit std::uint64_t memoryWords[defaultRingRecords * wordsPerRecord]{};
constinit Ring const memoryRing{memoryWords, defaultRingRecords - 1};
constinit std::atomic<Ring const*> currentRing{&memoryRing};

// Numbers go on from ring to ring and stay out of the file: nobody who writes to it can mislead the process.
alignas(64) constinit std::atomic<std::uint64_t> lastSequence{0};

std::uint64_t
nanoseconds(clockid_t clock) {
   timespec now;
   clock_gettime(clock, &now);
   return std::uint64_t(now.tv_sec) * 1'000'000'000u + std::uint64_t(now.tv_nsec);
}

// The coarse clock costs half of what reading the processor's counter does, never enters the kernel, and
// needs no calibration. What it lacks in resolution, the sequence has in order.
constexpr clockid_t messageClock = CLOCK_MONOTONIC_COARSE;

void
put(std::uint64_t& word, std::uint64_t value) {
   std::atomic_ref(word).store(value, std::memory_order_relaxed);
}

[[gnu::always_inline]] inline void
write(std::uint64_t* record, std::uint64_t sequence, std::uint64_t time, std::uint32_t origin,
      std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t d, std::uint64_t e) {
   std::uint64_t const check = ringfile::checkOf(sequence, time, origin, a, b, c, d, e);
   put(record[0], 0);
   std::atomic_thread_fence(std::memory_order_release);
   put(record[1], time);
   put(record[2], check << 32 | origin);
   put(record[3], a);
   put(record[4], b);
   put(record[5], c);
   put(record[6], d);
   put(record[7], e);
   std::atomic_ref(record[0]).store(sequence, std::memory_order_release);
}

Record
read(std::uint64_t* record) {
   Record copy;
   for (std::size_t i = 0; i < copy.size(); ++i) {
      copy[i] = std::atomic_ref(record[i]).load(std::memory_order_acquire);
   }
   return copy;
}

/// Puts the whole records of one ring into another, the newest where there is not room for all.
void
copyRecords(Ring const& from, Ring const& to) {
   for (std::size_t i = 0; i < from.records(); ++i) {
      Record const record = read(from.record(i));
      if (ringfile::isWhole(record, i, from.records())) {
         std::uint64_t* const place = to.record(std::size_t(record[0]) & to.mask);
         if (std::atomic_ref(*place).load(std::memory_order_relaxed) < record[0]) {
            write(place, record[0], record[1], std::uint32_t(record[2]), record[3], record[4], record[5],
                  record[6], record[7]);
         }
      }
   }
}

/// A file's ring. The memory stays mapped for good, and is used again for the next file of its size: some
/// thread may be about to store a message there at any time.
struct Mapping {
   std::byte* base;
   std::size_t bytes;
   Ring ring;

   std::byte* descriptors() const { return base + sizeof(Header); }
};

/// A new file that disappears unless it is kept.
class NewFile {
 public:
   explicit NewFile(Pelm::String const& path) : name_(path + ".XXXXXX") {
      descriptor_ = mkostemp(name_.data(), O_CLOEXEC);
   }
   ~NewFile() {
      if (descriptor_ >= 0) {
         close(descriptor_);
         if (!kept_) {
            unlink(name_.c_str());
         }
      }
   }
   NewFile(NewFile const&) = delete;
   NewFile& operator=(NewFile const&) = delete;

   int descriptor() const { return descriptor_; }

   /// Gives the file its name; 0, or an error number.
   int keep(Pelm::String const& path) {
      kept_ = rename(name_.c_str(), path.c_str()) == 0;
      return kept_ ? 0 : errno;
   }

 private:
   Pelm::String name_;
   int descriptor_;
   bool kept_{};
};

/// Takes the file's space, so that a full disk is an error here and not a signal later.
int
allocate(int file, std::size_t bytes) {
   rlimit limit;
   if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < bytes) {
      return EFBIG; // asking for more would bring a signal
   }
   int error;
   do {
      error = posix_fallocate(file, 0, off_t(bytes));
   } while (error == EINTR);
   return error;
}

/// What the process has told the ring, and where the ring is. All of it under one lock.
class Registry {
 public:
   /// Lives to the end: destructors of static objects may log.
   static Registry& instance() {
      static Registry& registry = *new Registry;
      return registry;
   }

   std::uint32_t siteNew(char const* format, char const* file, unsigned line, unsigned level,
                         Kind const* kinds, std::size_t count) {
      Descriptor site{};
      site.type = DescriptorType::site;
      site.level = std::uint8_t(level);
      site.line = line;
      site.arguments = std::uint8_t(count);
      for (std::size_t i = 0; i < count; ++i) {
         site.kinds[i] = std::uint8_t(kinds[i]);
      }
      return idNew(site, Pelm::StringView(file).substr(0, ringfile::maxFile), format, lastSite_);
   }

   std::uint32_t facilityNew(Pelm::StringView name) {
      Descriptor facility{};
      facility.type = DescriptorType::facility;
      return idNew(facility, {}, name.substr(0, Facility::maxName), lastFacility_);
   }

   Pelm::String fileIs(Pelm::String const& path, std::size_t records) {
      std::lock_guard const lock(mutex_);
      auto const failed = [&path](int error) {
         return fmt::format("cannot trace to {}: {}", path, std::generic_category().message(error));
      };
      NewFile file(path);
      if (file.descriptor() < 0) {
         return failed(errno);
      }
      std::size_t const bytes = recordsOffset + records * sizeof(Record);
      if (int const error = allocate(file.descriptor(), bytes)) {
         return failed(error);
      }
      void* const base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor(), 0);
      if (base == MAP_FAILED) {
         return failed(errno);
      }
      Mapping made{static_cast<std::byte*>(base), bytes, ringOf(base, records)};
      Header const head = header(records, descriptorRoom);
      std::memcpy(made.base, &head, sizeof(head));
      std::memcpy(made.descriptors(), descriptors_.data(), descriptors_.size());
      copyRecords(*currentRing.load(), made.ring);
      if (int const error = file.keep(path)) {
         munmap(base, bytes);
         return failed(error);
      }
      Mapping const* const old = current_;
      current_ = &placed(made);
      currentRing.store(&current_->ring, std::memory_order_release);
      retire(old);
      return {};
   }

   void fileDel() {
      std::lock_guard const lock(mutex_);
      if (!current_) {
         return;
      }
      for (std::uint64_t& word : memoryWords) {
         put(word, 0);
      }
      copyRecords(current_->ring, memoryRing);
      currentRing.store(&memoryRing, std::memory_order_release);
      retire(current_);
      current_ = nullptr;
   }

   Pelm::String image() {
      std::lock_guard const lock(mutex_);
      Ring const& ring = *currentRing.load();
      std::size_t const room = (descriptors_.size() + 63) / 64 * 64;
      Header const head = header(ring.records(), room);
      Pelm::String all(reinterpret_cast<char const*>(&head), sizeof(head));
      all += descriptors_;
      all.resize(sizeof(head) + room);
      for (std::size_t i = 0; i < ring.records(); ++i) {
         Record const record = read(ring.record(i));
         all.append(reinterpret_cast<char const*>(record.data()), sizeof(record));
      }
      return all;
   }

 private:
   Registry()
       : startMonotonic_(nanoseconds(messageClock)), startRealtime_(nanoseconds(CLOCK_REALTIME_COARSE)) {}

   static Ring ringOf(void* base, std::size_t records) {
      void* const words = static_cast<std::byte*>(base) + recordsOffset;
      return {static_cast<std::uint64_t*>(words), records - 1};
   }

   Header header(std::size_t records, std::size_t room) const {
      return {ringfile::magic, ringfile::version, sizeof(Record),          records, room,
              startMonotonic_, startRealtime_,    std::uint32_t(getpid()), {}};
   }

   /// The number of a descriptor: a new one, unless an equal one came before (in another library, or before
   /// its library was loaded again).
   std::uint32_t idNew(Descriptor head, Pelm::StringView file, Pelm::StringView text, std::uint16_t& last) {
      std::lock_guard const lock(mutex_);
      std::size_t const bytes = (sizeof(head) + file.size() + text.size() + 7) / 8 * 8;
      head.bytes = std::uint32_t(bytes);
      head.fileLength = std::uint16_t(file.size());
      head.textLength = std::uint16_t(text.size());
      Pelm::String entry(reinterpret_cast<char const*>(&head), sizeof(head));
      entry.append(file).append(text).resize(bytes);
      auto const [at, isNew] = ids_.try_emplace(entry, ringfile::noRoom);
      if (isNew && last + 1u < ringfile::noRoom && descriptors_.size() + bytes <= descriptorRoom) {
         head.id = std::uint16_t(last + 1u);
         std::memcpy(entry.data(), &head, sizeof(head));
         descriptors_ += entry;
         if (current_) {
            publish(current_->descriptors() + descriptors_.size() - bytes, entry);
         }
         at->second = ++last;
      }
      return at->second;
   }

   /// Adds a descriptor to a file that somebody may be reading: its size comes last.
   static void publish(std::byte* place, Pelm::StringView entry) {
      std::uint32_t size;
      std::memcpy(&size, entry.data(), sizeof(size));
      std::memcpy(place + sizeof(size), entry.data() + sizeof(size), entry.size() - sizeof(size));
      void* const sizePlace = place;
      std::atomic_ref(*static_cast<std::uint32_t*>(sizePlace)).store(size, std::memory_order_release);
   }

   /// Moves a new mapping to where one of its size was before, if there is such a place.
   Mapping const& placed(Mapping const& made) {
      for (std::size_t i = 0; i < retired_.size(); ++i) {
         Mapping const& place = *retired_[i];
         if (place.bytes == made.bytes && mremap(made.base, made.bytes, made.bytes,
                                                 MREMAP_MAYMOVE | MREMAP_FIXED, place.base) != MAP_FAILED) {
            retired_[i] = retired_.back();
            retired_.pop_back();
            return place;
         }
      }
      return mappings_.emplace_back(made);
   }

   /// Lets go of a mapping's file, but not of its addresses. Should that fail, both stay as they are.
   void retire(Mapping const* old) {
      if (old && mmap(old->base, old->bytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED | MAP_NORESERVE, -1, 0) != MAP_FAILED) {
         retired_.push_back(old);
      }
   }

   std::mutex mutex_;
   std::uint64_t startMonotonic_;
   std::uint64_t startRealtime_;
   Pelm::String descriptors_;
   std::unordered_map<Pelm::String, std::uint32_t> ids_;
   std::uint16_t lastSite_{};
   std::uint16_t lastFacility_{};
   std::deque<Mapping> mappings_;
   std::deque<Mapping const*> retired_;
   Mapping const* current_{};
};

} // namespace

Facility::Facility(Pelm::String name)
    : name_(std::move(name)), origin_(Registry::instance().facilityNew(name_) << 16) {}

std::uint32_t
MirelogSite::idNew(Kind const* kinds, std::size_t count) noexcept {
   std::uint32_t id = ringfile::noRoom;
   try {
      id = Registry::instance().siteNew(format_, file_, line_, level_, kinds, count);
   } catch (...) {
      // Without memory for the text there still is the message.
   }
   id_.store(id, std::memory_order_release);
   return id;
}

Pelm::String
ringFileIs(Pelm::String const& path, std::size_t records) {
   if (records == 0 || records > maxRingRecords) {
      return fmt::format("cannot trace to {}: a ring has 1 to {} messages, not {}", path, maxRingRecords,
                         records);
   }
   return Registry::instance().fileIs(path, std::bit_ceil(records));
}

void
ringFileDel() {
   Registry::instance().fileDel();
}

Pelm::String
ringImage() {
   return Registry::instance().image();
}

namespace detail {

namespace {

template <class Part>
std::uint64_t
partAt(char const* bytes) {
   Part part;
   std::memcpy(&part, bytes, sizeof(part));
   return part;
}

/// Up to eight bytes, as the low bytes of a word.
std::uint64_t
firstBytes(char const* bytes, std::size_t count) {
   if (count == 8) {
      return partAt<std::uint64_t>(bytes);
   }
   if (count >= 4) {
      return partAt<std::uint32_t>(bytes) | partAt<std::uint32_t>(bytes + count - 4) << 8 * (count - 4);
   }
   if (count >= 2) {
      return partAt<std::uint16_t>(bytes) | partAt<std::uint16_t>(bytes + count - 2) << 8 * (count - 2);
   }
   return count == 1 ? partAt<std::uint8_t>(bytes) : 0;
}

} // namespace

void
packText(std::uint64_t* words, std::size_t count, Pelm::StringView text) noexcept {
   std::size_t const room = count * sizeof(*words) - 1;
   std::size_t const length = std::min(room, text.size());
   // The length is the first word's first byte; whole words are built because stored bytes that are read
   // back as words would wait for each other.
   std::size_t at = std::min<std::size_t>(length, 7);
   words[0] = firstBytes(text.data(), at) << 8 | length | (length < text.size() ? 0x80 : 0);
   for (; at < length; at += sizeof(*words)) {
      *++words = firstBytes(text.data() + at, std::min(length - at, sizeof(*words)));
   }
}

void
store(std::uint32_t origin, std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t d,
      std::uint64_t e) noexcept {
   std::uint64_t const time = nanoseconds(messageClock);
   std::uint64_t const sequence = lastSequence.fetch_add(1, std::memory_order_relaxed) + 1;
   Ring const& ring = *currentRing.load(std::memory_order_acquire);
   write(ring.record(std::size_t(sequence) & ring.mask), sequence, time, origin, a, b, c, d, e);
}

} // namespace detail

} // namespace Trace
