#include "chip/model/Layouts.h"

#include "platform/nuv/testing/Soak.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace ModelChip {
namespace {

constexpr unsigned rowBits = 256;
using Row = std::vector<std::uint32_t>;
using Bits = std::vector<bool>;

Bits
bitsOf(Row const& row) {
   Bits bits;
   for (auto word : row) {
      for (unsigned bit = 0; bit < 32; ++bit) {
         bits.push_back((word >> bit & 1) != 0);
      }
   }
   return bits;
}

std::uint64_t
cut(std::uint64_t value, unsigned width) {
   return width == 64 ? value : value & ((std::uint64_t(1) << width) - 1);
}

/// Packs a random value into a random row and compares with a row of single bits.
void
checkField(BitField const& field, std::mt19937_64& random) {
   Row row(rowBits / 32);
   std::generate(row.begin(), row.end(), [&] { return std::uint32_t(random()); });
   auto expected = bitsOf(row);
   auto value = random();
   for (unsigned bit = 0; bit < field.width; ++bit) {
      expected[field.offset + bit] = (value >> bit & 1) != 0;
   }
   field.pack(row, value);
   ASSERT_EQ(bitsOf(row), expected) << field.offset << ", " << field.width;
   ASSERT_EQ(field.unpack(row), cut(value, field.width)) << field.offset << ", " << field.width;
}

TEST(BitField, RandomOneIsReadAsItWasWrittenAndLeavesItsNeighboursAlone) {
   Nuv::soak(20'000, [](std::uint32_t seed, int steps) {
      std::mt19937_64 random(seed);
      for (int count = 0; count < steps; ++count) {
         auto width = unsigned(random() % 64 + 1);
         auto offset = unsigned(random() % (rowBits - width + 1));
         checkField({"field", offset, width}, random);
      }
   });
}

TEST(BitField, MayTakeWholeWordsAndCrossTwo) {
   std::mt19937_64 random(7);
   for (unsigned offset : {0u, 1u, 31u, 32u, 33u, 63u, 64u, 160u, 192u}) {
      for (unsigned width : {1u, 31u, 32u, 33u, 48u, 63u, 64u}) {
         for (int count = 0; count < 20; ++count) {
            checkField({"field", offset, width}, random);
         }
      }
   }
}

TEST(BitField, KeepsNothingOfAValueThatIsTooWide) {
   Row row(2);
   BitField{"field", 30, 4}.pack(row, ~std::uint64_t(0));
   EXPECT_EQ(row, (Row{0xC0000000, 0x3}));
}

TEST(BitField, WorksAtCompileTime) {
   constexpr auto value = [] {
      std::uint32_t row[3]{};
      BitField field{"field", 20, 48};
      field.pack(row, 0x123456789ABC);
      return field.unpack(row);
   }();
   static_assert(value == 0x123456789ABC);
}

class Layouts : public testing::TestWithParam<RowLayout const*> {};

INSTANTIATE_TEST_SUITE_P(Tables, Layouts, testing::ValuesIn(layouts),
                         [](auto const& each) { return std::string(each.param->table); });

TEST_P(Layouts, FieldsFitTheRowAndDoNotOverlap) {
   auto const& layout = *GetParam();
   ASSERT_GT(layout.wordsPerRow, 0u);
   ASSERT_LE(layout.wordsPerRow * 32, rowBits);
   std::set<unsigned> bits;
   for (auto const& field : layout.fields) {
      EXPECT_GE(field.width, 1u) << field.name;
      EXPECT_LE(field.width, 64u) << field.name;
      EXPECT_LE(field.offset + field.width, layout.wordsPerRow * 32) << field.name;
      for (unsigned bit = 0; bit < field.width; ++bit) {
         EXPECT_TRUE(bits.insert(field.offset + bit).second) << field.name;
      }
   }
}

TEST_P(Layouts, FieldsHaveNamesOfTheirOwn) {
   std::set<std::string> names;
   for (auto const& field : GetParam()->fields) {
      EXPECT_TRUE(names.insert(field.name).second) << field.name;
   }
   EXPECT_GT(GetParam()->defaultRows, 0u);
}

TEST_P(Layouts, TheFirstFieldSaysWhetherTheRowIsValid) {
   auto const& valid = GetParam()->fields.front();
   EXPECT_STREQ(valid.name, "valid");
   EXPECT_EQ(valid.width, 1u);
}

TEST_P(Layouts, EveryFieldIsReadAsItWasWritten) {
   auto const& layout = *GetParam();
   std::mt19937_64 random(11);
   Row row(layout.wordsPerRow);
   std::vector<std::uint64_t> values;
   for (auto const& field : layout.fields) {
      values.push_back(cut(random(), field.width));
      field.pack(row, values.back());
   }
   for (std::size_t at = 0; at < values.size(); ++at) {
      EXPECT_EQ(layout.fields[at].unpack(row), values[at]) << layout.fields[at].name;
   }
}

TEST(LayoutNames, AreDifferentForEveryTable) {
   std::set<std::string> tables;
   std::set<std::string> names;
   for (auto const* layout : layouts) {
      tables.insert(layout->table);
      names.insert(layout->name);
   }
   EXPECT_EQ(tables.size(), std::size(layouts));
   EXPECT_EQ(names.size(), std::size(layouts));
}

} // namespace
} // namespace ModelChip
