#include "platform/nuv/testing/Soak.h"
#include "types/L3UnderlayNextHopKey.h"
#include "types/SwFieldTypes.h"

#include <gmock/gmock.h>
#include <random>
#include <sstream>

namespace ZandorL3Tunnel {
namespace {

template <class R>
R
randomVia(std::mt19937& random) {
   R value;
   value.nhEntryType = Brix::NextHopEntryType(random());
   value.macAddr = Fendo::EthAddr::fromValue(std::uint64_t(random()) << 32 | random());
   value.l3Id = {std::uint16_t(random())};
   value.l2If = {std::uint16_t(random())};
   return value;
}

template <class R>
class ViaTextTest : public testing::Test {};

using ViaTypes = testing::Types<L3ViaEntry, L3UnderlayNextHopKey>;
TYPED_TEST_SUITE(ViaTextTest, ViaTypes);

/// The field that the text's error names; "(range)" when it names none.
template <class R>
Pelm::String
failingField(Pelm::String const& text) {
   try {
      Nuv::valueFromText<R>(text);
   } catch (Nuv::DeserializeException const& error) {
      return error.field();
   } catch (Nuv::RangeException const&) {
      return "(range)";
   }
   return "(read)";
}

template <class R>
Pelm::String
textWith(Pelm::String const& fields) {
   return Pelm::String("Value('") + R::typeName() + "', ** {" + fields + "})";
}

TYPED_TEST(ViaTextTest, EveryWayToPrintAndToReadIsTheSame) {
   std::mt19937 random(1);
   auto value = randomVia<TypeParam>(random);
   auto printed = valueToStrep(value);
   EXPECT_EQ(Nuv::text(value), printed);
   std::ostringstream stream;
   stream << value;
   EXPECT_EQ(stream.str(), printed);
   EXPECT_EQ(Nuv::valueFromText<TypeParam>(printed), value);
   Nuv::TextRange range(printed);
   EXPECT_EQ(TypeParam(range), value);
   EXPECT_TRUE(range.atEnd());
}

TYPED_TEST(ViaTextTest, ErrorNamesTheFieldThatCannotBeRead) {
   auto field = [](char const* fields) { return failingField<TypeParam>(textWith<TypeParam>(fields)); };
   Pelm::String const type = "'nhEntryType': 2";
   Pelm::String const mac = ", 'macAddr': 02:00:00:00:00:01";
   Pelm::String const id = ", 'l3Id': 5";
   Pelm::String const port = ", 'l2If': 7";
   EXPECT_EQ(field((type + mac + id + port).c_str()), "(read)");
   EXPECT_EQ(field(("'nhEntryType': 256" + mac + id + port).c_str()), "nhEntryType");
   EXPECT_EQ(field((type + ", 'macAddr': 02:00:00:00:00" + id + port).c_str()), "macAddr");
   EXPECT_EQ(field((type + mac + ", 'l3Id': 65536" + port).c_str()), "l3Id");
   EXPECT_EQ(field((type + mac + id + ", 'l2If': -1").c_str()), "l2If");
   // A key that is not there is missed by the field that it announces.
   EXPECT_EQ(field(("'nextHopType': 2" + mac + id + port).c_str()), "nhEntryType");
   EXPECT_EQ(field((type + id + port).c_str()), "macAddr");
   EXPECT_EQ(field((type + mac + ", 'l3id': 5" + port).c_str()), "l3Id");
   EXPECT_EQ(field((type + mac + id).c_str()), "l2If");
   EXPECT_EQ(field((type + mac + id + ", 'l2If':7").c_str()), "l2If");
}

TYPED_TEST(ViaTextTest, ErrorAroundTheFieldsIsTheRangesOwn) {
   auto printed = valueToStrep(TypeParam());
   EXPECT_EQ(failingField<TypeParam>(""), "(range)");
   EXPECT_EQ(failingField<TypeParam>("Value('ZandorL3Tunnel::Other', ** {"), "(range)");
   EXPECT_EQ(failingField<TypeParam>(printed + " "), "(range)");
   EXPECT_EQ(failingField<TypeParam>(printed.substr(0, printed.size() - 1)), "(range)");
}

TYPED_TEST(ViaTextTest, EveryTruncationIsAnError) {
   std::mt19937 random(2);
   auto printed = valueToStrep(randomVia<TypeParam>(random));
   for (std::size_t length = 0; length < printed.size(); ++length) {
      EXPECT_NE(failingField<TypeParam>(printed.substr(0, length)), "(read)") << length;
   }
}

TYPED_TEST(ViaTextTest, TextDamagedAtRandomIsAnErrorOrAnotherValue) {
   Nuv::soak(5000, [](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      for (int round = 0; round < steps; ++round) {
         auto printed = valueToStrep(randomVia<TypeParam>(random));
         printed[random() % printed.size()] = char(random());
         try {
            auto read = Nuv::valueFromText<TypeParam>(printed);
            EXPECT_EQ(Nuv::valueFromText<TypeParam>(valueToStrep(read)), read);
         } catch (Nuv::RangeException const& error) {
            EXPECT_LT(Pelm::String(error.what()).size(), 200u);
         }
      }
   });
}

TEST(FieldEnumTest, DestinationTypesAreKnownByNumberAndName) {
   for (auto type : {DestinationType::invalidDestination, DestinationType::unicast,
                     DestinationType::l2Multicast, DestinationType::l3Multicast, DestinationType::system}) {
      auto const& instance = destinationTypeInstance(unsigned(type));
      EXPECT_EQ(instance.name, stringValue(type));
      EXPECT_EQ(&destinationTypeInstance(instance.name), &instance);
      EXPECT_EQ(valueToStrep(type), instance.name);
      DestinationType read{};
      sequenceToValue(instance.name.data(), instance.name.data() + instance.name.size(), read);
      EXPECT_EQ(read, type);
      std::ostringstream stream;
      stream << type;
      EXPECT_EQ(stream.str(), instance.name);
   }
   EXPECT_EQ(unsigned(DestinationType::invalidDestination), 0u);
   EXPECT_EQ(unsigned(DestinationType::unicast), 4u);
   EXPECT_EQ(unsigned(DestinationType::system), 8u);
   EXPECT_THROW(destinationTypeInstance(3), Nuv::RangeException);
   EXPECT_THROW(destinationTypeInstance("broadcast"), Nuv::RangeException);
}

TEST(FieldEnumTest, StrengthProfilesAreNamedByTheirNumbers) {
   for (unsigned number = 0; number < 256; ++number) {
      auto name = Nuv::text(number);
      EXPECT_EQ(l3UnderlayIngNextHopStrengthProfileIndexInstance(number).name, name);
      EXPECT_EQ(l3UnderlayEgrNextHopStrengthProfileIndexInstance(name).number, number);
      auto ing = L3UnderlayIngNextHopStrengthProfileIndex(number);
      EXPECT_EQ(stringValue(ing), name);
      EXPECT_EQ(Nuv::valueFromText<L3UnderlayEgrNextHopStrengthProfileIndex>(name),
                L3UnderlayEgrNextHopStrengthProfileIndex(number));
   }
   EXPECT_THROW(l3UnderlayIngNextHopStrengthProfileIndexInstance(256), Nuv::RangeException);
   EXPECT_THROW(l3UnderlayEgrNextHopStrengthProfileIndexInstance("256"), Nuv::RangeException);
}

TEST(FieldEnumTest, EnumerationsAreKnownToTheTypeSystem) {
   for (auto const* name : {"DestinationType", "L3UnderlayIngNextHopStrengthProfileIndex",
                            "L3UnderlayEgrNextHopStrengthProfileIndex"}) {
      auto const* type = Nuv::TypeInfo::find(Pelm::String("ZandorL3Tunnel::") + name);
      ASSERT_TRUE(type) << name;
      EXPECT_EQ(type->kind(), Nuv::TypeInfo::Kind::enumeration);
      EXPECT_EQ(type->module().name(), "SwFieldTypes");
   }
}

TEST(U13TextTest, ReadsUpToItsBound) {
   EXPECT_EQ(Nuv::valueFromText<U13>("8191").value(), 0x1fff);
   try {
      Nuv::valueFromText<U13>("8192");
      FAIL() << "8192 was read";
   } catch (Nuv::RangeException const& error) {
      EXPECT_STREQ(error.what(), "U13::value < 0 or > 0x1fff not allowed");
   }
   EXPECT_THROW(Nuv::valueFromText<U13>("4294967296"), Nuv::RangeException);
}

} // namespace
} // namespace ZandorL3Tunnel
