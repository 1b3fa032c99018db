#pragma once

#include "platform/nuv/Hash.h"
#include "platform/nuv/Text.h"
#include "platform/nuv/TextRange.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <tuple>
#include <vector>

/// What must hold between the values of any one type, checked on a sample of them: `checkValueLaws`.
namespace Nuv {

/// Values of one type, by number, for checks that do not know the type.
class ValueSample {
 public:
   virtual ~ValueSample() = default;

   virtual std::size_t size() const = 0;
   virtual bool equal(std::size_t a, std::size_t b) const = 0;
   virtual bool less(std::size_t a, std::size_t b) const = 0;
   virtual std::uint32_t hash(std::size_t at, std::uint32_t seed) const = 0;
   virtual Pelm::String text(std::size_t at) const = 0;

   /// Whether two records agree in every field, or in those that make their identity. Two values that are no
   /// records agree when they are equal.
   virtual bool agree(std::size_t a, std::size_t b, bool inIdentityOnly) const = 0;

   /// Adds the value that `text` reads as, where the type can be read.
   virtual bool canRead() const = 0;
   virtual std::size_t add(Pelm::StringView text) = 0;
};

template <class V>
concept IsRecord = requires {
   V::fieldList();
};

/// How a sample's values come about and whether their text can be read.
enum class SampleText : bool { isRead, isOnlyPrinted };

/// A sample of `V`. `draw(value)` gives the fields of a record, or another value, a random content: one of a
/// few mostly, so that equal ones meet. Records are made from each other by a change of one field, so that
/// they differ in as little as they can.
template <class V, SampleText form = SampleText::isRead>
class Sample final : public ValueSample {
 public:
   template <class Draw>
   Sample(std::size_t count, std::mt19937& random, Draw draw) {
      while (values_.size() < count) {
         V next = values_.empty() ? V() : values_[random() % values_.size()];
         if constexpr (IsRecord<V>) {
            std::apply([&](auto const&... each) { changeOne(next, random, draw, each...); },
                       V::fieldList().fields);
         } else {
            draw(next);
         }
         values_.push_back(std::move(next));
      }
   }

   std::vector<V> const& values() const { return values_; }

   std::size_t size() const override { return values_.size(); }
   bool equal(std::size_t a, std::size_t b) const override { return values_[a] == values_[b]; }
   bool less(std::size_t a, std::size_t b) const override { return values_[a] < values_[b]; }
   std::uint32_t hash(std::size_t at, std::uint32_t seed) const override { return hashOf(values_[at], seed); }
   Pelm::String text(std::size_t at) const override { return Nuv::text(values_[at]); }

   bool agree(std::size_t a, std::size_t b, bool inIdentityOnly) const override {
      if constexpr (IsRecord<V>) {
         auto agrees = [&](auto const& field) {
            return (inIdentityOnly && !field.identity) ||
                   values_[a].*field.member == values_[b].*field.member;
         };
         return std::apply([&](auto const&... each) { return (agrees(each) && ...); }, V::fieldList().fields);
      } else {
         return equal(a, b);
      }
   }

   bool canRead() const override { return form == SampleText::isRead; }
   std::size_t add([[maybe_unused]] Pelm::StringView text) override {
      if constexpr (form == SampleText::isRead) {
         values_.push_back(valueFromText<V>(text));
      }
      return values_.size() - 1;
   }

 private:
   /// Changes one field, or now and then none.
   template <class Draw, class... Fields>
   static void changeOne(V& value, std::mt19937& random, Draw& draw, Fields const&... fields) {
      std::size_t chosen = random() % (sizeof...(Fields) + 1);
      ((chosen-- == 0 ? draw(value.*fields.member) : void()), ...);
   }

   std::vector<V> values_;
};

/// Of any two values, one is less or they are equal; and equal ones are those whose identity agrees.
inline void
checkComparison(ValueSample const& sample) {
   for (std::size_t a = 0; a < sample.size(); ++a) {
      for (std::size_t b = 0; b < sample.size(); ++b) {
         ASSERT_EQ(sample.less(a, b) + sample.equal(a, b) + sample.less(b, a), 1)
               << sample.text(a) << " and " << sample.text(b);
         ASSERT_EQ(sample.equal(a, b), sample.agree(a, b, true))
               << sample.text(a) << " and " << sample.text(b);
      }
   }
}

/// Less and equal are transitive: sorted, the values stand in one row, equal ones beside each other.
inline void
checkOrder(ValueSample const& sample) {
   std::vector<std::size_t> sorted(sample.size());
   std::iota(sorted.begin(), sorted.end(), std::size_t(0));
   std::sort(sorted.begin(), sorted.end(), [&](auto a, auto b) { return sample.less(a, b); });
   for (std::size_t low = 0; low < sorted.size(); ++low) {
      bool isEqual = true;
      for (std::size_t high = low; high < sorted.size(); ++high) {
         ASSERT_FALSE(sample.less(sorted[high], sorted[low]))
               << sample.text(sorted[low]) << " and " << sample.text(sorted[high]);
         isEqual = isEqual && sample.equal(sorted[high - (high > low)], sorted[high]);
         ASSERT_EQ(sample.equal(sorted[low], sorted[high]), isEqual)
               << sample.text(sorted[low]) << " and " << sample.text(sorted[high]);
      }
   }
}

/// Equal values hash alike from every seed; others do not, but for a chance of one in billions.
inline void
checkHash(ValueSample const& sample) {
   for (std::uint32_t seed : {0u, 1u, 0xffffffffu}) {
      std::set<std::uint32_t> hashes;
      std::size_t different = 0;
      for (std::size_t a = 0; a < sample.size(); ++a) {
         hashes.insert(sample.hash(a, seed));
         bool isFirst = true;
         for (std::size_t b = 0; b < a; ++b) {
            if (sample.equal(a, b)) {
               isFirst = false;
               ASSERT_EQ(sample.hash(a, seed), sample.hash(b, seed))
                     << sample.text(a) << " and " << sample.text(b);
            }
         }
         different += isFirst;
      }
      ASSERT_GE(hashes.size() + 1, different) << "from seed " << seed;
   }
}

/// What is printed reads as an equal value that prints alike, and tells values apart that differ in any
/// field.
inline void
checkText(ValueSample& sample) {
   if (!sample.canRead()) {
      return;
   }
   std::size_t const count = sample.size();
   for (std::size_t a = 0; a < count; ++a) {
      auto text = sample.text(a);
      auto read = sample.add(text);
      ASSERT_TRUE(sample.equal(a, read)) << text;
      ASSERT_TRUE(sample.agree(a, read, false)) << text;
      ASSERT_EQ(sample.text(read), text);
      for (std::size_t b = 0; b < a; ++b) {
         ASSERT_EQ(sample.text(b) == text, sample.agree(a, b, false)) << text;
      }
   }
}

inline void
checkValueLaws(ValueSample& sample) {
   ASSERT_NO_FATAL_FAILURE(checkComparison(sample));
   ASSERT_NO_FATAL_FAILURE(checkOrder(sample));
   ASSERT_NO_FATAL_FAILURE(checkHash(sample));
   ASSERT_NO_FATAL_FAILURE(checkText(sample));
}

} // namespace Nuv
