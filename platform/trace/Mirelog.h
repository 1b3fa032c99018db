#pragma once

#include "platform/nuv/Export.h"
#include "platform/pelm/String.h"
#include "platform/trace/Raw.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Trace {

/// A named source of messages, known to the ring by its name: two of the same name are one source. Creating
/// one takes a lock and memory the first time a name is used. Names beyond `maxName` bytes are cut.
class ZANDOR_EXPORT Facility {
 public:
   static constexpr std::size_t maxName = 100;

   explicit Facility(Pelm::String name);

   Pelm::String const& name() const { return name_; }
   /// The part of a record that says whom it is from.
   std::uint32_t origin() const { return origin_; }

 private:
   Pelm::String name_;
   std::uint32_t origin_;
};

/// How many messages the ring holds until it is told otherwise, and at most.
inline constexpr std::size_t defaultRingRecords = 8192;
inline constexpr std::size_t maxRingRecords = std::size_t(1) << 24;

/// Moves the ring to a new file of `records` messages (1 to `maxRingRecords`, rounded up to a power of two),
/// with the messages it holds, as many as fit. From here on the file has every message, whatever becomes of
/// the process. It is readable by its owner only. A file already at `path` is replaced, not written into: who
/// wants to keep the trace of an earlier process gives another path. Its space is taken at once; somebody
/// who cuts it short later brings the process down, as with any mapped file.
///
/// Returns an empty text, or else what failed with path and reason: the ring then stays where it was. One
/// thread at a time may call this and `ringFileDel`, while any number of them log; what these log during the
/// call may be missing in the new place. A forked child shares the file: it calls one of the two before it
/// logs.
[[nodiscard]] ZANDOR_EXPORT Pelm::String ringFileIs(Pelm::String const& path,
                                                    std::size_t records = defaultRingRecords);

/// Moves the ring back to memory, with the newest messages it holds. The file is left complete. Without a
/// file this does nothing.
ZANDOR_EXPORT void ringFileDel();

/// The ring as it is now, file or not, in the form of a (small) ring file for `readRing`.
ZANDOR_EXPORT Pelm::String ringImage();

/// One place in the source that logs. Made by `MIRELOG`.
class ZANDOR_EXPORT MirelogSite {
 public:
   static constexpr unsigned maxLevel = 31;
   static constexpr std::size_t maxFormat = 400;

   /// All texts must live as long as the site.
   consteval MirelogSite(char const* format, char const* file, unsigned line, unsigned level)
       : format_(format), file_(file), line_(line), level_(level) {
      if (level > maxLevel) {
         throw "a trace level is 0 to 31";
      }
   }

   /// The site's number in the ring, 0 until it is registered.
   std::uint32_t id() const { return id_.load(std::memory_order_acquire); }

   /// Makes the site known to the ring, and returns its number. Takes a lock and memory; a second call, from
   /// whatever thread, gives the same number. Sites for which there is no room share a number without text.
   std::uint32_t idNew(Kind const* kinds, std::size_t count) noexcept;

 private:
   char const* format_;
   char const* file_;
   unsigned line_;
   unsigned level_;
   std::atomic<std::uint32_t> id_{0};
};

namespace detail {

inline constexpr std::size_t payloadWords = 5;

/// How many words each text of a message has, where the other arguments have one each.
constexpr std::size_t
wordsPerText(std::size_t arguments, std::size_t texts) {
   return texts == 0 ? 0 : (payloadWords - (arguments - texts)) / texts;
}

/// How many `{}` a format has; `{{` and `}}` stand for one brace. Other braces are an error.
consteval std::size_t
placeholders(char const* format) {
   std::size_t count = 0;
   std::size_t length = 0;
   for (; format[length] != 0; ++length) {
      if (format[length] == '{' && format[length + 1] == '}') {
         ++count;
         ++length;
      } else if (format[length] == '{' || format[length] == '}') {
         if (format[length + 1] != format[length]) {
            throw "a brace in a MIRELOG format is {}, {{ or }}";
         }
         ++length;
      }
   }
   if (length > MirelogSite::maxFormat) {
      throw "the MIRELOG format is too long";
   }
   return count;
}

template <class T>
concept HasRaw = requires(T const& value) {
   rawForTrace(value);
};

template <class T>
concept IsText = std::is_convertible_v<T const&, Pelm::StringView> && !std::is_null_pointer_v<T>;

template <class T>
concept Traceable = HasRaw<T> || IsText<T> || std::is_pointer_v<T> || std::is_null_pointer_v<T> ||
      ((std::is_integral_v<T> || std::is_enum_v<T>)&&sizeof(T) <= sizeof(std::uint64_t));

template <class T>
constexpr Kind
kindOf() {
   if constexpr (HasRaw<T>) {
      using Form = decltype(rawForTrace(std::declval<T const&>()));
      if constexpr (requires { Form::kind; }) {
         return Form::kind;
      } else {
         return Kind::unsignedInteger;
      }
   } else if constexpr (std::is_enum_v<T>) {
      return kindOf<std::underlying_type_t<T>>();
   } else if constexpr (IsText<T>) {
      return Kind::text;
   } else if constexpr (std::is_pointer_v<T> || std::is_null_pointer_v<T>) {
      return Kind::address;
   } else if constexpr (std::is_same_v<T, bool>) {
      return Kind::boolean;
   } else {
      return std::is_signed_v<T> ? Kind::signedInteger : Kind::unsignedInteger;
   }
}

/// The 64 bits of an argument that is no text.
template <class T>
std::uint64_t
wordOf(T const& value) {
   if constexpr (HasRaw<T>) {
      if constexpr (requires { rawForTrace(value).value; }) {
         return rawForTrace(value).value;
      } else {
         return rawForTrace(value);
      }
   } else if constexpr (std::is_null_pointer_v<T>) {
      return 0;
   } else if constexpr (std::is_pointer_v<T>) {
      return reinterpret_cast<std::uintptr_t>(value);
   } else {
      return static_cast<std::uint64_t>(value);
   }
}

/// The bytes of a text, or as many of them as could ever matter.
template <class T>
Pelm::StringView
textOf(T const& value) {
   constexpr std::size_t enough = payloadWords * sizeof(std::uint64_t);
   if constexpr (std::is_array_v<T>) {
      return Pelm::StringView(value, strnlen(value, std::min(enough, std::extent_v<T>)));
   } else if constexpr (std::is_convertible_v<T const&, char const*>) {
      char const* const text = value;
      return text ? Pelm::StringView(text, strnlen(text, enough)) : "(null)";
   } else {
      return value;
   }
}

/// Copies a text to `words`: its length (plus 128 if it was cut) as the first byte, then its bytes.
ZANDOR_EXPORT void packText(std::uint64_t* words, std::size_t count, Pelm::StringView text) noexcept;

/// Stores one message.
ZANDOR_EXPORT void store(std::uint32_t origin, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                         std::uint64_t) noexcept;

template <std::size_t placeholderCount, class... Args>
void
mirelog(MirelogSite& site, Facility const& from, char const*, Args const&... args) {
   static_assert(placeholderCount == sizeof...(Args), "MIRELOG needs one argument for each {}");
   static_assert(sizeof...(Args) <= payloadWords, "a MIRELOG message has no room for that many arguments");
   static_assert(
         (Traceable<Args> && ...),
         "a MIRELOG argument is a bool, an integer or enum of up to 64 bits, a pointer, a text, or of "
         "a type with a rawForTrace");
   static constexpr std::array<Kind, sizeof...(Args)> kinds{kindOf<Args>()...};
   constexpr std::size_t textWords =
         wordsPerText(sizeof...(Args), (std::size_t(0) + ... + std::size_t(kindOf<Args>() == Kind::text)));

   std::uint32_t id = site.id();
   if (id == 0) [[unlikely]] {
      id = site.idNew(kinds.data(), kinds.size());
   }
   std::uint64_t words[payloadWords]{};
   [[maybe_unused]] std::size_t at = 0;
   [[maybe_unused]] auto const add = [&](auto const& arg) {
      using Arg = std::remove_cvref_t<decltype(arg)>;
      if constexpr (kindOf<Arg>() == Kind::text) {
         packText(words + at, textWords, textOf(arg));
         at += textWords;
      } else {
         words[at++] = wordOf(arg);
      }
   };
   (add(args), ...);
   store(id | from.origin(), words[0], words[1], words[2], words[3], words[4]);
}

} // namespace detail

} // namespace Trace

#define MIRELOG_FORMAT(format, ...) format

/// Ring trace: `MIRELOG(facility, level, "format with {} and {}", arguments...)` stores a message as the
/// number of this place in the source and the raw arguments, in some nanoseconds: no formatting, no memory,
/// no lock, no system call, except for the first message of a place, which registers it. May be called from
/// any thread. The newest messages overwrite the oldest.
///
/// The level is a constant from 0 to 31. Up to five arguments, each a bool, an integer or enum, a pointer, or
/// a type with a `rawForTrace`; or texts, which share the room that the others leave (39 bytes for a text
/// alone, 8 less for each other argument) and are cut, visibly, where it ends. The arguments are always
/// evaluated.
#define MIRELOG(facility, level, ...)                                                                        \
   do {                                                                                                      \
      static constinit ::Trace::MirelogSite mirelogSite{MIRELOG_FORMAT(__VA_ARGS__, ), __FILE_NAME__,        \
                                                        __LINE__, level};                                    \
      ::Trace::detail::mirelog<::Trace::detail::placeholders(MIRELOG_FORMAT(__VA_ARGS__, ))>(                \
            mirelogSite, facility, __VA_ARGS__);                                                             \
   } while (false)
