#pragma once

#include "platform/nuv/Exception.h"
#include "platform/nuv/Export.h"

#include <concepts>
#include <limits>

namespace Nuv {

/// Text that is being read, from the front on. What cannot be read is a `RangeException`, and leaves the
/// range where it was. The characters may be any bytes.
class ZANDOR_EXPORT TextRange {
 public:
   TextRange(char const* begin, char const* end) : rest_(begin, std::size_t(end - begin)) {}
   explicit TextRange(Pelm::StringView text) : rest_(text) {}

   bool atEnd() const { return rest_.empty(); }
   Pelm::StringView rest() const { return rest_; }

   /// Reads exactly `literal`.
   void require(Pelm::StringView literal);

   /// Reads `literal` if it comes next.
   bool skip(Pelm::StringView literal);

   /// Reads blanks, any number of them.
   void skipBlanks();

   /// Refuses text that goes on.
   void requireEnd() const;

   /// Reads a decimal number of at most `most`, without sign or blanks; leading zeros are allowed.
   unsigned long long number(unsigned long long most);

   /// Reads one hexadecimal digit.
   unsigned hexDigit();

   /// Whether one comes next.
   bool atHexDigit() const;

   /// Reads letters, digits and underscores, at least one.
   Pelm::StringView word();

   /// The error that `wanted` is not what comes next.
   RangeException expected(Pelm::StringView wanted) const;

 private:
   Pelm::StringView rest_;
};

/// Reads the text form that `appendText` writes. A type brings its own by an overload found beside it; these
/// are the plain ones.
ZANDOR_EXPORT void parseText(TextRange& range, bool& value);

template <std::unsigned_integral I>
requires(!std::same_as<I, bool>) void parseText(TextRange& range, I& value) {
   value = I(range.number(std::numeric_limits<I>::max()));
}

/// The value whose text is exactly `text`. `V` needs a default value and a `parseText`.
template <class V>
V
valueFromText(Pelm::StringView text) {
   TextRange range(text);
   V value{};
   parseText(range, value);
   range.requireEnd();
   return value;
}

} // namespace Nuv
