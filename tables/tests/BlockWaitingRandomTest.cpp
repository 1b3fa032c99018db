#include "platform/nuv/testing/Soak.h"
#include "tables/L3EcmpMember0Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"
#include "tables/testing/NextHopTest.h"

#include <map>
#include <random>

namespace ZandorL3Tunnel {
namespace {

/// How a block table's member names its next hop, and how its row does.
struct Level0 {
   using Table = L3EcmpMember0Table;
   static Nuv::Ptr<Table> make() { return l3EcmpMember0TableFactory(); }
   static Table::Entry member(Asic::NeededHandle const& hop) {
      Table::Entry entry;
      entry.nextHopEntryHandle = hop;
      return entry;
   }
   static auto nextHopOf(auto const& row) { return ModelChip::L3EcmpMember0Table::nextHop.unpack(row); }
};

struct Level1 {
   using Table = L3UnderlayEcmpMember1Table;
   static Nuv::Ptr<Table> make() { return l3UnderlayEcmpMember1TableFactory(); }
   static Table::Entry member(Asic::NeededHandle const& hop) {
      Table::Entry entry;
      entry.underlayEcmpNextHopIndexHandle = hop;
      return entry;
   }
   static auto nextHopOf(auto const& row) {
      return ModelChip::L3UnderlayEcmpMember1Table::nextHop.unpack(row);
   }
};

/// Blocks over next hops that come and go, fail and recover while the blocks wait for them. After every row
/// of the chip no member row points at a next hop that is not there.
template <class Level>
class BlockWaitingRandom : public ModelChip::ChipTest {
 protected:
   using Table = typename Level::Table;
   using Block = typename Table::EntryBlock;
   using Numbers = std::vector<std::uint16_t>;

   static constexpr std::uint16_t nextHopCount = 5;
   static constexpr std::size_t mostBlocks = 6;
   static constexpr Asic::Index goodInterface = 1;
   static constexpr Asic::Index noInterface = 9; // beyond the hardware table: it has failed

   BlockWaitingRandom()
       : ChipTest({{"L3UnderlayEcmpMember1Table", 64},
                   {"L3EcmpMember0Table", 64},
                   {"EgrL3Oif2", 4},
                   {"EgrL3NextHop2", 2 * nextHopCount},
                   {"IngL3NextHop2Table", 2 * nextHopCount},
                   {"L3EcmpGroup0Table", 1}}) {
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      nextHops->doInit(unit, stateDatabase, chip->chipInfo());
      blocks->doInit(unit, stateDatabase, chip->chipInfo());
      interfaces->entryCommit(goodInterface, {});
      interfaces->entryCommit(noInterface, {});
      loop.runUntilIdle();
      afterRow = [this] { rowsApplied.clear(); };
   }

   unsigned draw(unsigned below) { return random() % below; }

   Handle writeHop(std::uint16_t number, Asic::Index over) {
      L3UnderlayNextHopKey key;
      key.l2If = {number};
      IngL3NextHop2Table::Entry ing;
      ing.destinationId = std::uint16_t(draw(3));
      EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = interfaces->entryWeakRef(over);
      return nextHops->entryRef(key, ing, egr);
   }

   void writeBlock() {
      Numbers numbers(1 + draw(4));
      Block block;
      std::vector<Handle> hops;
      for (Asic::Index position = 0; position < numbers.size(); ++position) {
         auto const number = numbers[position] = std::uint16_t(draw(nextHopCount));
         auto& hop = asked[number];
         if (!hop) {
            hop = writeHop(number, draw(4) ? goodInterface : noInterface);
         }
         block.entryIs(position, Level::member(hop));
      }
      held.insert_or_assign(numbers, blocks->entryBlockRef(block));
   }

   void step() {
      auto const number = std::uint16_t(draw(nextHopCount));
      switch (draw(5)) {
      case 0:
         asked[number] = writeHop(number, draw(3) ? goodInterface : noInterface);
         break;
      case 1:
         asked[number] = nullptr; // blocks may hold it still
         break;
      case 2:
         if (held.size() < mostBlocks) {
            writeBlock();
         }
         break;
      case 3:
         if (!held.empty()) {
            held.erase(std::next(held.begin(), draw(unsigned(held.size()))));
         }
         break;
      default:
         for (auto turns = draw(8); turns > 0; --turns) {
            loop.runOne();
         }
         break;
      }
   }

   Nuv::Ptr<L3NextHop2Table::EntryHandle const> hopOf(std::uint16_t number) const {
      L3UnderlayNextHopKey key;
      key.l2If = {number};
      return nextHops->entryHandle(key);
   }

   // A block that was in the chip already stays there when a next hop of it fails later.
   void checkIdle() {
      loop.runUntilIdle();
      for (auto const& [numbers, block] : held) {
         bool const areAllThere = std::ranges::all_of(
               numbers, [this](auto number) { return hopOf(number)->entryState() == State::success; });
         if (block->entryState() == State::success) {
            ++succeeded;
            checkRows(numbers, *block);
         } else {
            ++failed;
            ASSERT_EQ(block->entryState(), State::failedNeededEntry);
            ASSERT_FALSE(areAllThere);
         }
      }
   }

   void checkRows(Numbers const& numbers, Asic::SwTableBase::EntryHandle const& block) const {
      auto const& hardware = *chip->table(Table::Sheet::hwTableName());
      for (Asic::Index position = 0; position < numbers.size(); ++position) {
         ASSERT_EQ(Level::nextHopOf(hardware.row(block.hwEntryIndex() + position)),
                   hopOf(numbers[position])->hwEntryIndex());
      }
   }

   void run(std::uint32_t seed, int steps) {
      random.seed(seed);
      for (int at = 0; at < steps && !HasFatalFailure(); ++at) {
         SCOPED_TRACE(at);
         step();
         if (at % 8 == 0) {
            checkIdle();
         }
      }
      held.clear();
      std::ranges::fill(asked, nullptr);
      loop.runUntilIdle();
      EXPECT_EQ(blocks->handles().size(), 0u);
      EXPECT_EQ(nextHops->handles().size(), 0u);
      EXPECT_EQ(rowsPresent(), 1u) << "the interface";
      EXPECT_GT(succeeded, failed / 100) << "seldom did one succeed";
      EXPECT_GT(failed, succeeded / 100) << "seldom did one fail";
   }

   static bool HasFatalFailure() { return testing::Test::HasFatalFailure(); }

   std::mt19937 random;
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> nextHops = l3NextHop2TableFactory();
   Nuv::Ptr<Table> blocks = Level::make();
   Handle asked[nextHopCount];
   std::map<Numbers, Handle> held;
   std::uint64_t succeeded{};
   std::uint64_t failed{};
};

using Levels = testing::Types<Level0, Level1>;
TYPED_TEST_SUITE(BlockWaitingRandom, Levels);

TYPED_TEST(BlockWaitingRandom, FollowsItsNextHopsAndNeverPointsAtWhatIsNotThere) {
   Nuv::soak(20'000, [this](std::uint32_t seed, int steps) { this->run(seed, steps); });
}

} // namespace
} // namespace ZandorL3Tunnel
