#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Hash.h"
#include "platform/nuv/Ptr.h"
#include "platform/nuv/Text.h"
#include "platform/nuv/TextRange.h"

#include <tuple>
#include <utility>

namespace Nuv {

/// What text may stand between a field's key and its value: exactly one blank, or any number of them.
enum class ZANDOR_EXPORT KeySpelling : std::uint8_t { oneBlank, anyBlanks };

/// One field of a record: its name, where it is, whether it takes part in what the record is (equality, order
/// and hash) or only follows from what does, and how its key is spelt in text.
template <class R, class M>
struct ZANDOR_EXPORT Field {
   char const* name;
   M R::*member;
   bool identity;
   KeySpelling spelling{KeySpelling::oneBlank};

   /// The same field with a key behind which blanks do not count.
   constexpr Field withAnyBlanks() const { return {name, member, identity, KeySpelling::anyBlanks}; }
};

template <class R, class M>
constexpr Field<R, M>
field(char const* name, M R::*member) {
   return {name, member, true, KeySpelling::oneBlank};
}

/// A field that resolution fills in: printed, never compared.
template <class R, class M>
constexpr Field<R, M>
filledField(char const* name, M R::*member) {
   return {name, member, false, KeySpelling::oneBlank};
}

/// A record's one list of fields, under its full type name.
template <class... Fields>
struct ZANDOR_EXPORT FieldList {
   char const* typeName;
   std::tuple<Fields...> fields;
   bool isHashedPacked{};

   /// The same list of a record whose fields enter its hash side by side, as many as 64 bits take, which is
   /// quick: numbers, and what holds one number as its `value`.
   constexpr FieldList hashedPacked() const { return {typeName, fields, true}; }
};

template <class... Fields>
constexpr FieldList<Fields...>
fieldList(char const* typeName, Fields... fields) {
   return {typeName, {fields...}, false};
}

/// Calls `visit(name, value, identity)` for each field of `record` in turn, until one call answers false.
template <class R, class Visit>
constexpr bool
visitFields(R const& record, Visit&& visit) {
   return std::apply(
         [&](auto const&... each) { return (visit(each.name, record.*each.member, each.identity) && ...); },
         R::fieldList().fields);
}

/// How a field's value enters its record's hash. Numbers enter as they are, whatever hashes itself by its
/// hash: from the record's seed, since values of one hash could be chosen if that were known.
template <class M>
void
mixField(HashAccumulator& accumulator, M const& value, unsigned seed) {
   if constexpr (std::integral<M> && sizeof(M) > sizeof(std::uint32_t)) {
      accumulator.mix64(static_cast<std::uint64_t>(value));
   } else if constexpr (std::integral<M> || std::is_enum_v<M>) {
      accumulator.mix32(static_cast<std::uint32_t>(value));
   } else {
      accumulator.mix32(hashOf(value, seed));
   }
}

/// A field's value as a number of as many bits as the field has.
template <class M>
constexpr std::uint64_t
packedField(M const& value) {
   if constexpr (requires { value.value(); }) {
      return value.value();
   } else if constexpr (requires { value.value; }) {
      return value.value;
   } else {
      return static_cast<std::uint64_t>(value);
   }
}

/// Handles and other counted objects enter by a number of their own, never by their address.
template <class T>
std::uint32_t
hashOf(Ptr<T> const& object, std::uint32_t seed) {
   return hashOf(object ? object->creationNumber() : std::uint64_t(0), seed);
}

template <class M>
bool
fieldLess(M const& a, M const& b) {
   return a < b;
}

template <class T>
bool
fieldLess(Ptr<T> const& a, Ptr<T> const& b) {
   return (a ? a->creationNumber() : 0) < (b ? b->creationNumber() : 0);
}

template <class T>
void
appendText(Pelm::String& out, Ptr<T> const& object) {
   appendText(out, static_cast<void const*>(object.get()));
}

/// Base of a record `R`: equality, order, hash and text form, all from `R::fieldList()`.
template <class R>
class ZANDOR_EXPORT Record {
 public:
   static constexpr char const* typeName() { return R::fieldList().typeName; }

   std::uint32_t hash(unsigned seed) const {
      HashAccumulator accumulator(seed);
      if constexpr (R::fieldList().isHashedPacked) {
         mixPacked(accumulator);
      } else {
         visitFields(self(), [&](char const*, auto const& value, bool identity) {
            if (identity) {
               mixField(accumulator, value, seed);
            }
            return true;
         });
      }
      return accumulator.result();
   }

   friend bool operator==(R const& a, R const& b) {
      auto agrees = [&](auto const& each) { return !each.identity || a.*each.member == b.*each.member; };
      return std::apply([&](auto const&... each) { return (agrees(each) && ...); }, R::fieldList().fields);
   }
   friend bool operator<(R const& a, R const& b) { return a.compare(b) < 0; }

   /// Reads the text form. What cannot be read is a `DeserializeException` that names the field, or, around
   /// the fields, a `RangeException`; there is no partial record.
   static R fromRange(TextRange& range);

   friend void appendText(Pelm::String& out, R const& record) { record.append(out); }
   friend void parseText(TextRange& range, R& record) { record = fromRange(range); }
   friend Pelm::String valueToStrep(R const& record) { return text(record); }
   friend std::ostream& operator<<(std::ostream& stream, R const& record) {
      return writeText(stream, text(record));
   }

 private:
   R const& self() const { return static_cast<R const&>(*this); }

   void mixPacked(HashAccumulator& accumulator) const {
      std::uint64_t word = 0;
      std::size_t bits = 0;
      visitFields(self(), [&](char const*, auto const& value, bool identity) {
         static_assert(sizeof value <= sizeof word, "a packed field is a number");
         if (identity) {
            if (bits + 8 * sizeof value > 64) {
               accumulator.mix64(std::exchange(word, 0));
               bits = 0;
            }
            word |= packedField(value) << bits;
            bits += 8 * sizeof value;
         }
         return true;
      });
      accumulator.mix64(word);
   }

   int compare(R const& other) const {
      int result = 0;
      auto differs = [&](auto const& each) {
         if (each.identity) {
            result = compareField(self().*each.member, other.*each.member);
         }
         return result != 0;
      };
      std::apply([&](auto const&... each) { return (differs(each) || ...); }, R::fieldList().fields);
      return result;
   }

   template <class M>
   static void parseField(TextRange& range, R& record, Field<R, M> const& field, bool isFirst);

   template <class M>
   static int compareField(M const& a, M const& b) {
      return a == b ? 0 : fieldLess(a, b) ? -1 : 1;
   }

   void append(Pelm::String& out) const {
      out.append("Value('").append(R::fieldList().typeName).append("', ** {");
      char const* separator = "'";
      visitFields(self(), [&](char const* name, auto const& value, bool) {
         out.append(separator).append(name).append("': ");
         appendText(out, value);
         separator = ", '";
         return true;
      });
      out.append("})");
   }
};

template <class R>
R
Record<R>::fromRange(TextRange& range) {
   R record;
   range.require(Pelm::String("Value('") + R::fieldList().typeName + "', ** {");
   bool isFirst = true;
   std::apply(
         [&](auto const&... each) { ((parseField(range, record, each, isFirst), isFirst = false), ...); },
         R::fieldList().fields);
   range.require("})");
   return record;
}

template <class R>
template <class M>
void
Record<R>::parseField(TextRange& range, R& record, Field<R, M> const& field, bool isFirst) {
   try {
      range.require(Pelm::String(isFirst ? "'" : ", '") + field.name +
                    (field.spelling == KeySpelling::oneBlank ? "': " : "':"));
      if (field.spelling == KeySpelling::anyBlanks) {
         range.skipBlanks();
      }
      parseText(range, record.*field.member);
   } catch (RangeException const& error) {
      throw DeserializeException(field.name, error.what());
   }
}

} // namespace Nuv
