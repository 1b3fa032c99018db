#include "chip/model/testing/ChipTest.h"
#include "platform/asic/DontCareHandle.h"
#include "platform/nuv/testing/Soak.h"
#include "platform/nuv/testing/ValueLaws.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3EcmpMember0Table.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"
#include "types/L3UnderlayNextHopKey.h"

#include <array>
#include <limits>
#include <memory>

namespace ZandorL3Tunnel {
namespace {

using Handle = Asic::NeededHandle;

/// Random contents, mostly one of two or three.
struct Draw {
   std::mt19937& random;
   std::vector<Handle> const& handles;

   std::uint64_t bits() const { return std::uint64_t(random()) << 32 | random(); }

   template <std::unsigned_integral I>
   I number(I most) const {
      std::array<I, 4> const some{0, 1, most, I(bits() % (std::uint64_t(most) + 1))};
      return some[random() % some.size()];
   }
   template <class E>
   E enumeration() const {
      return E(number<std::uint8_t>(255));
   }

   template <std::unsigned_integral I>
   void operator()(I& value) const {
      value = number<I>(std::numeric_limits<I>::max());
   }
   void operator()(Fendo::EthAddr& value) const {
      value = Fendo::EthAddr::fromValue(
            std::array{std::uint64_t(0), std::uint64_t(1), std::uint64_t(1) << 40, bits()}[random() % 4]);
   }
   void operator()(U13& value) const { value = U13(number<std::uint16_t>(U13::max)); }
   void operator()(BrixL3Intf::L3Id& value) const { (*this)(value.value); }
   void operator()(ZandorCentral::VirtualPort& value) const { (*this)(value.value); }
   void operator()(Brix::NextHopEntryType& value) const { value = enumeration<Brix::NextHopEntryType>(); }
   void operator()(L3UnderlayIngNextHopStrengthProfileIndex& value) const {
      value = enumeration<L3UnderlayIngNextHopStrengthProfileIndex>();
   }
   void operator()(L3UnderlayEgrNextHopStrengthProfileIndex& value) const {
      value = enumeration<L3UnderlayEgrNextHopStrengthProfileIndex>();
   }
   void operator()(DestinationType& value) const {
      value = std::array{DestinationType::invalidDestination, DestinationType::l2Multicast,
                         DestinationType::l3Multicast, DestinationType::unicast,
                         DestinationType::system}[random() % 5];
   }
   void operator()(Handle& value) const { value = handles[random() % handles.size()]; }

   /// Changes a block by one member.
   template <class Sheet>
   void operator()(EntryBlock<Sheet>& block) const {
      auto position = random() % 3;
      if (random() % 3 == 0) {
         block.entryDel(position);
      } else {
         auto entry = block.entry(position);
         std::apply(
               [&](auto const&... field) { ((random() % 2 ? (*this)(entry.*field.member) : void()), ...); },
               Sheet::Entry::fieldList().fields);
         block.entryIs(position, entry);
      }
   }
};

/// A type of values, and the names of its fields that resolution fills in.
struct ValueType {
   char const* name;
   std::unique_ptr<Nuv::ValueSample> (*sample)(std::size_t, Draw const&);
   std::vector<Pelm::String> (*filledFields)();
   std::vector<Pelm::String> expectedFilledFields{};
};

template <class V, Nuv::SampleText form>
std::unique_ptr<Nuv::ValueSample>
newSample(std::size_t count, Draw const& draw) {
   return std::make_unique<Nuv::Sample<V, form>>(count, draw.random, draw);
}

template <class V>
std::vector<Pelm::String>
filledFieldsOf() {
   std::vector<Pelm::String> names;
   if constexpr (Nuv::IsRecord<V>) {
      Nuv::visitFields(V(), [&](char const* name, auto const&, bool identity) {
         if (!identity) {
            names.emplace_back(name);
         }
         return true;
      });
   }
   return names;
}

template <class V, Nuv::SampleText form = Nuv::SampleText::isRead>
ValueType
valueType(char const* name, std::vector<Pelm::String> filledFields = {}) {
   return {name, newSample<V, form>, filledFieldsOf<V>, std::move(filledFields)};
}

std::vector<ValueType>
valueTypes() {
   constexpr auto isOnlyPrinted = Nuv::SampleText::isOnlyPrinted;
   return {
         valueType<Fendo::EthAddr>("EthAddr"),
         valueType<U13>("U13"),
         valueType<BrixL3Intf::L3Id>("L3Id"),
         valueType<ZandorCentral::VirtualPort>("VirtualPort"),
         valueType<Brix::NextHopEntryType>("NextHopEntryType"),
         valueType<DestinationType>("DestinationType"),
         valueType<L3UnderlayIngNextHopStrengthProfileIndex>("IngStrengthProfile"),
         valueType<L3UnderlayEgrNextHopStrengthProfileIndex>("EgrStrengthProfile"),
         valueType<ZandorL3Common::L3AdjIdKey>("L3AdjIdKey"),
         valueType<L3ViaEntry>("L3ViaEntry"),
         valueType<L3UnderlayNextHopKey>("L3UnderlayNextHopKey"),
         valueType<EgrL3Oif2::Entry>("EgrL3Oif2Entry"),
         valueType<IngL3NextHop2Table::Entry>("IngL3NextHop2TableEntry"),
         valueType<EgrL3NextHop2::Entry>("EgrL3NextHop2Entry", {"l3Oif2"}),
         valueType<L3EcmpGroup0Table::Entry>("L3EcmpGroup0TableEntry", {"ecmpBlockPtr"}),
         valueType<L3EcmpMember0Table::Entry>("L3EcmpMember0TableEntry",
                                              {"nextHopEntry", "underlayDestination"}),
         valueType<L3UnderlayEcmpMember1Table::Entry>("L3UnderlayEcmpMember1TableEntry",
                                                      {"underlayEcmpNextHopIndex"}),
         valueType<L3EcmpMember0Table::EntryBlock, isOnlyPrinted>("L3EcmpMember0TableBlock"),
         valueType<L3UnderlayEcmpMember1Table::EntryBlock, isOnlyPrinted>("L3UnderlayEcmpMember1TableBlock"),
   };
}

class ValueLawsRandom : public ModelChip::ChipTest, public testing::WithParamInterface<ValueType> {};

INSTANTIATE_TEST_SUITE_P(Types, ValueLawsRandom, testing::ValuesIn(valueTypes()),
                         [](auto const& type) { return type.param.name; });

TEST_P(ValueLawsRandom, EqualityOrderHashAndTextAgree) {
   auto interfaces = egrL3Oif2Factory("EgrL3Oif2");
   // Handles of text are found among those that are alive.
   std::vector<Handle> const handles{nullptr, SwTableWorkaround::dontCareHandle(1),
                                     interfaces->entryRef(5, EgrL3Oif2::Entry()),
                                     interfaces->entryRef(6, EgrL3Oif2::Entry())};
   Nuv::soak(20, [&](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      for (int step = 0; step < steps && !HasFatalFailure(); ++step) {
         auto sample = GetParam().sample(40, Draw{random, handles});
         Nuv::checkValueLaws(*sample);
      }
   });
}

TEST_P(ValueLawsRandom, OnlyWhatResolutionFillsInStaysOutOfTheIdentity) {
   EXPECT_EQ(GetParam().filledFields(), GetParam().expectedFilledFields);
}

} // namespace
} // namespace ZandorL3Tunnel
