#pragma once

#include "platform/nuv/Export.h"
#include "platform/pelm/String.h"

#include <concepts>
#include <iosfwd>

namespace Nuv {

/// Appends the text form of a value. A type brings its own by an overload found beside it; these are the
/// plain ones: `True`/`False`, decimal integers, text as it is, pointers as an address.
ZANDOR_EXPORT void appendText(Pelm::String& out, bool value);
ZANDOR_EXPORT void appendText(Pelm::String& out, unsigned long long value);
ZANDOR_EXPORT void appendText(Pelm::String& out, long long value);
ZANDOR_EXPORT void appendText(Pelm::String& out, void const* value);
inline void
appendText(Pelm::String& out, Pelm::StringView value) {
   out.append(value);
}
inline void
appendText(Pelm::String& out, char const* value) {
   out.append(value);
}

template <std::integral I>
requires(!std::same_as<I, bool>) void appendText(Pelm::String& out, I value) {
   if constexpr (std::unsigned_integral<I>) {
      appendText(out, static_cast<unsigned long long>(value));
   } else {
      appendText(out, static_cast<long long>(value));
   }
}

/// The values' text forms, one after the other.
template <class... Values>
Pelm::String
text(Values const&... values) {
   Pelm::String out;
   (appendText(out, values), ...);
   return out;
}

/// A value that may have to be printed: costs nothing until it is. The value must outlive it.
class ZANDOR_EXPORT TextRef {
 public:
   template <class V>
   requires(!std::same_as<V, TextRef>) TextRef(V const& value)
       : value_(&value)
       , append_([](Pelm::String& out, void const* at) { appendText(out, *static_cast<V const*>(at)); }) {}

   friend void appendText(Pelm::String& out, TextRef const& ref) { ref.append_(out, ref.value_); }

 private:
   void const* value_;
   void (*append_)(Pelm::String&, void const*);
};

/// Writes text to a stream, for value types' `operator<<`.
ZANDOR_EXPORT std::ostream& writeText(std::ostream&, Pelm::String const&);

} // namespace Nuv
