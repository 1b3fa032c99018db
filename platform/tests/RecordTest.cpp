#include "platform/nuv/Record.h"

#include "platform/asic/SwTableBase.h"
#include "platform/nuv/testing/Soak.h"
#include "platform/nuv/testing/ValueLaws.h"

#include <gmock/gmock.h>

#include <limits>
#include <random>
#include <sstream>
#include <tuple>
#include <vector>

namespace Nuv {
namespace {

enum class Colour : std::uint8_t { red, green, blue };

void
appendText(Pelm::String& out, Colour colour) {
   Nuv::appendText(out, unsigned(colour));
}

struct Small : Record<Small> {
   Colour colour{};
   std::uint32_t number{};
   bool isOpen{};
   Pelm::String name;
   std::int64_t wide{};
   std::uint32_t row{}; ///< filled in

   static constexpr auto fieldList() {
      return Nuv::fieldList("Test::Small", field("colour", &Small::colour), field("number", &Small::number),
                            field("isOpen", &Small::isOpen), field("name", &Small::name),
                            field("wide", &Small::wide), filledField("row", &Small::row));
   }
};

/// A value whose hashes from seed 0 are known to whoever chose it.
struct Chosen {
   std::uint32_t value{};

   std::uint32_t hash(unsigned seed) const { return seed == 0 ? 1 : hashOf(value, seed); }
   [[maybe_unused]] friend auto operator<=>(Chosen const&, Chosen const&) = default;
};

struct OfChosen : Record<OfChosen> {
   Chosen chosen;

   static constexpr auto fieldList() {
      return Nuv::fieldList("Test::OfChosen", field("chosen", &OfChosen::chosen));
   }
};

class Handle final : public Asic::SwTableBase::EntryHandle {};

struct Naming : Record<Naming> {
   Ptr<Asic::SwTableBase::EntryHandle const> handle;
   std::uint8_t weight{};

   static constexpr auto fieldList() {
      return Nuv::fieldList("Test::Naming", field("handle", &Naming::handle),
                            field("weight", &Naming::weight));
   }
};

Naming
naming(Ptr<Asic::SwTableBase::EntryHandle const> const& handle, std::uint8_t weight) {
   Naming record;
   record.handle = handle;
   record.weight = weight;
   return record;
}

/// Few contents for each field, so that equal records meet.
struct Draw {
   std::mt19937& random;
   std::vector<Ptr<Handle>> const& handles;

   void operator()(Colour& value) const { value = Colour(random() % 2); }
   void operator()(bool& value) const { value = random() % 2 != 0; }
   void operator()(std::uint8_t& value) const { value = std::uint8_t(random() % 3); }
   void operator()(std::uint32_t& value) const { value = random() % 2 * 0x80000000u; }
   void operator()(std::int64_t& value) const { value = std::int64_t(random() % 3) - 1; }
   void operator()(Pelm::String& value) const { value = random() % 2 ? "" : "name"; }
   void operator()(Ptr<Asic::SwTableBase::EntryHandle const>& value) const {
      value = handles[random() % handles.size()];
   }
};

TEST(Record, EqualFieldsMakeEqualRecords) {
   Small a;
   Small b;
   EXPECT_EQ(a, b);
   b.name = "b";
   EXPECT_NE(a, b);
   a.name = "b";
   EXPECT_EQ(a, b);
}

TEST(Record, EveryIdentityFieldCounts) {
   Small const base;
   std::vector<Small> others(6, base);
   others[0].colour = Colour::blue;
   others[1].number = 1;
   others[2].isOpen = true;
   others[3].name = "x";
   others[4].wide = -1;
   others[5].wide = std::int64_t(1) << 32;
   for (auto const& other : others) {
      EXPECT_NE(base, other);
      EXPECT_NE(base.hash(7), other.hash(7)) << other;
      EXPECT_NE(base < other, other < base);
   }
}

TEST(Record, AFilledFieldTakesNoPartInIdentity) {
   Small a;
   Small b;
   b.row = 9;
   EXPECT_EQ(a, b);
   EXPECT_FALSE(a < b);
   EXPECT_FALSE(b < a);
   EXPECT_EQ(a.hash(3), b.hash(3));
   EXPECT_NE(text(a), text(b));
}

TEST(Record, IsOrderedByItsFieldsInTurn) {
   Small a;
   Small b;
   a.colour = Colour::red;
   b.colour = Colour::green;
   a.number = 2;
   b.number = 1;
   EXPECT_LT(a, b);
   b.colour = Colour::red;
   EXPECT_LT(b, a);
   b.number = 2;
   b.wide = -5;
   EXPECT_LT(b, a);
}

TEST(Record, HashDependsOnTheSeed) {
   Small record;
   EXPECT_NE(record.hash(1), record.hash(2));
   EXPECT_EQ(record.hash(1), record.hash(1));
}

TEST(Record, FieldsAreHashedFromTheSeedToo) {
   OfChosen one;
   OfChosen other;
   other.chosen.value = 1;
   EXPECT_NE(one.hash(7), other.hash(7));
}

TEST(Record, PrintsItsTypeAndFieldsInTurn) {
   Small record;
   record.colour = Colour::blue;
   record.number = 4000000000u;
   record.isOpen = true;
   record.name = "door";
   record.wide = std::numeric_limits<std::int64_t>::min();
   record.row = 17;
   Pelm::String const expected =
         "Value('Test::Small', ** {'colour': 2, 'number': 4000000000, 'isOpen': True, "
         "'name': door, 'wide': -9223372036854775808, 'row': 17})";
   EXPECT_EQ(text(record), expected);
   EXPECT_EQ(valueToStrep(record), expected);
   std::ostringstream stream;
   stream << record;
   EXPECT_EQ(stream.str(), expected);
   EXPECT_STREQ(Small::typeName(), "Test::Small");
}

TEST(Record, VisitsFieldsUntilToldToStop) {
   std::vector<Pelm::String> names;
   std::vector<bool> identities;
   EXPECT_TRUE(visitFields(Small(), [&](char const* name, auto const&, bool identity) {
      names.emplace_back(name);
      identities.push_back(identity);
      return true;
   }));
   EXPECT_THAT(names, testing::ElementsAre("colour", "number", "isOpen", "name", "wide", "row"));
   EXPECT_THAT(identities, testing::ElementsAre(true, true, true, true, true, false));

   int visits = 0;
   EXPECT_FALSE(visitFields(Small(), [&](char const*, auto const&, bool) { return ++visits < 2; }));
   EXPECT_EQ(visits, 2);
}

TEST(Record, NamesHandlesByIdentity) {
   Ptr<Handle> first = make<Handle>();
   Ptr<Handle> second = make<Handle>();
   EXPECT_EQ(naming(first, 1), naming(first, 1));
   EXPECT_NE(naming(first, 1), naming(second, 1));
   EXPECT_NE(naming(first, 1), naming(nullptr, 1));
   EXPECT_NE(naming(first, 1).hash(1), naming(second, 1).hash(1));
   EXPECT_NE(naming(first, 1).hash(1), naming(nullptr, 1).hash(1));
   EXPECT_EQ(text(naming(nullptr, 3)), "Value('Test::Naming', ** {'handle': 0x0, 'weight': 3})");
}

TEST(Record, OrdersHandlesByTheirCreation) {
   std::vector<Ptr<Handle>> handles;
   for (int count = 0; count < 50; ++count) {
      handles.push_back(make<Handle>());
   }
   for (std::size_t at = 1; at < handles.size(); ++at) {
      EXPECT_LT(naming(handles[at - 1], 9), naming(handles[at], 1));
      EXPECT_FALSE(naming(handles[at], 1) < naming(handles[at - 1], 9));
   }
   EXPECT_LT(naming(nullptr, 9), naming(handles[0], 1));
}

TEST(Record, RandomRecordsKeepTheLawsOfValues) {
   soak(5, [](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      std::vector<Ptr<Handle>> const handles{nullptr, make<Handle>(), make<Handle>()};
      for (int step = 0; step < steps && !testing::Test::HasFatalFailure(); ++step) {
         Sample<Small, SampleText::isOnlyPrinted> records(60, random, Draw{random, handles});
         checkValueLaws(records);
         Sample<Naming, SampleText::isOnlyPrinted> namings(60, random, Draw{random, handles});
         checkValueLaws(namings);
      }
   });
}

TEST(Record, RandomRecordsAreEqualAndLessAsTheirFieldsAreInTurn) {
   soak(20, [](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      auto identity = [](Small const& each) {
         return std::tie(each.colour, each.number, each.isOpen, each.name, each.wide);
      };
      for (int step = 0; step < steps; ++step) {
         Sample<Small, SampleText::isOnlyPrinted> const records(60, random, Draw{random, {}});
         for (auto const& a : records.values()) {
            for (auto const& b : records.values()) {
               ASSERT_EQ(a == b, identity(a) == identity(b));
               ASSERT_EQ(a < b, identity(a) < identity(b));
            }
         }
      }
   });
}

} // namespace
} // namespace Nuv
