#include "platform/nuv/testing/Soak.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"
#include "tables/testing/NextHopTest.h"

#include <map>
#include <random>

namespace ZandorL3Tunnel {
namespace {

constexpr int stepsPerRound = 40;
constexpr int deepest = 2;

/// All tables on a small chip, changed at random, where response handlers and observers change them as well
/// while they are told. When the chip is at rest again, what each handle says is so in the chip.
class ReentryRandom : public ModelChip::ChipTest {
 protected:
   ReentryRandom()
       : ChipTest({{"IngL3NextHop2Table", 5},
                   {"EgrL3NextHop2", 5},
                   {"EgrL3Oif2", 5},
                   {"L3EcmpMember0Table", 1},
                   {"L3UnderlayEcmpMember1Table", 8},
                   {"L3EcmpGroup0Table", 4}}) {
      chip->faultsIs(faults);
      afterRow = [this] { rowsApplied.clear(); };
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      nextHops->doInit(unit, stateDatabase, chip->chipInfo());
      blocks->doInit(unit, stateDatabase, chip->chipInfo());
      groups->doInit(unit, stateDatabase, chip->chipInfo());
   }

   struct Watch final : Asic::SwTableBase::EntryHandle::Notifiee {
      explicit Watch(ReentryRandom& test) : random(test) {}
      void handleEntryState() override { random.stepPerhaps(); }
      void handleHwEntryIndex() override { random.stepPerhaps(); }
      void handleHwIndexValid() override { random.stepPerhaps(); }
      void handleSwTable() override { random.stepPerhaps(); }

      ReentryRandom& random;
   };

   unsigned draw(unsigned below) { return numbers() % below; }
   /// Values of few, so that equal ones are written often, or each another.
   unsigned value() { return valuesDiffer ? ++lastValue : draw(3); }

   Asic::Index interfaceIndex() { return 1 + draw(5); }
   L3UnderlayNextHopKey nextHopKey() {
      L3UnderlayNextHopKey key;
      key.l2If = {std::uint16_t(draw(6))};
      return key;
   }
   ZandorL3Common::L3AdjIdKey groupKey() {
      ZandorL3Common::L3AdjIdKey key;
      key.id = draw(5);
      return key;
   }

   void watch(Handle const& handle) {
      if (handle && draw(3) == 0) {
         watches.push_back(std::make_unique<Watch>(*this));
         handle->notifieeIs(*watches.back());
      }
   }

   Asic::SwTableBase::ResponseFunction handler() {
      if (draw(2)) {
         return {};
      }
      return [this](State) { stepPerhaps(); };
   }

   void stepPerhaps() {
      if (depth < deepest && draw(3) == 0) {
         ++depth;
         step();
         --depth;
      }
   }

   void writeInterface() {
      EgrL3Oif2::Entry entry;
      entry.tnlVlanTag = value() & 0xfff;
      watch(interfaces->entryCommitWithResponseHandler(interfaceIndex(), entry, handler()));
   }

   void writeNextHop() {
      auto const over = interfaceIndex();
      if (!interfaces->entryHas(over)) {
         return;
      }
      IngL3NextHop2Table::Entry ing;
      ing.destinationId = std::uint16_t(value());
      EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = interfaces->entryWeakRef(over);
      auto const mac = value();
      egr.dstMacAddress = {{2, 0, 0, 0, std::uint8_t(mac >> 8), std::uint8_t(mac)}};
      auto const type = draw(2) ? Asic::needsExplicitRemove() : Asic::AutoRemoveType::automatic;
      hold(nextHops->entryWriteWithResponseHandler(nextHopKey(), ing, egr, handler(), type), heldNextHops);
   }

   void writeBlock() {
      L3UnderlayEcmpMember1Table::EntryBlock block;
      for (unsigned size = draw(4), at = 0; at < size && !heldNextHops.empty(); ++at) {
         L3UnderlayEcmpMember1Table::Entry member;
         member.underlayEcmpNextHopIndexHandle = heldNextHops[draw(unsigned(heldNextHops.size()))];
         block.entryIs(at, member);
      }
      bool isCommit = draw(2);
      hold(isCommit ? blocks->entryBlockCommitWithResponseHandler(block, handler())
                    : blocks->entryBlockRef(block),
           heldBlocks);
      if (isCommit && draw(2)) {
         blocks->entryBlockRemove(block);
      }
   }

   void writeGroup() {
      if (!heldBlocks.empty()) {
         L3EcmpGroup0Table::Entry entry;
         entry.ecmpBlockPtrHandle = heldBlocks[draw(unsigned(heldBlocks.size()))];
         entry.lbMode = std::uint8_t(value());
         watch(groups->entryCommitWithResponseHandler(groupKey(), entry, handler()));
      }
   }

   void map() {
      auto const key = nextHopKey();
      auto const existing = nextHopKey();
      if (!(key == existing) && nextHops->entryHas(existing) && nextHops->mappedEntryHandles() < 3) {
         nextHops->entryMapToKey(key, existing, Asic::needsExplicitRemove());
      }
   }

   void hold(Handle const& handle, std::vector<Handle>& held) {
      watch(handle);
      if (draw(2)) {
         held.push_back(handle);
      }
   }

   void release(std::vector<Handle>& held) {
      if (held.empty()) {
         return;
      }
      auto const at = held.begin() + draw(unsigned(held.size()));
      // The vector is in order again before the handle ends.
      auto const last = std::move(*at);
      held.erase(at);
   }

   void step() {
      switch (draw(16)) {
      case 0:
         return writeInterface();
      case 1:
         return interfaces->entryRemove(interfaceIndex());
      case 2:
      case 3:
         return writeNextHop();
      case 4:
         return nextHops->entryRemove(nextHopKey());
      case 5:
         return release(heldNextHops);
      case 6:
      case 7:
         return writeBlock();
      case 8:
         return release(heldBlocks);
      case 9:
         return writeGroup();
      case 10:
         return groups->entryRemove(groupKey());
      case 11:
         return map();
      case 12:
         return interfaces->handleEntry(interfaceIndex());
      case 13:
         return groups->handleEntry(groupKey());
      case 14:
         return programBlockAgain();
      case 15:
         return blockRemoveAllRarely();
      }
   }

   void programBlockAgain() {
      if (!heldBlocks.empty()) {
         auto const held = heldBlocks[draw(unsigned(heldBlocks.size()))];
         auto const* handle = dynamic_cast<L3UnderlayEcmpMember1Table::EntryHandle const*>(held.get());
         blocks->handleEntryBlock(handle->key());
      }
   }

   void blockRemoveAllRarely() {
      if (depth == 0 && draw(10) == 0) {
         blocks->entryBlockRemoveAll();
      }
   }

   void runRound() {
      for (int count = 0; count < stepsPerRound; ++count) {
         step();
         for (auto turns = draw(2) ? draw(5) : 0; turns > 0; --turns) {
            loop.runOne();
         }
      }
      // Who is told is silent from here on, so that the chip comes to rest.
      depth = deepest;
      faults->stop();
      loop.runUntilIdle();
      depth = 0;
   }

   template <class Table, class Check>
   void checkEach(Table& table, Check&& check) {
      for (auto at = table.handles().iterator(); at; ++at) {
         auto& handle = **at;
         SCOPED_TRACE(Nuv::text(table.tblName(), " ", handle.key()));
         EXPECT_NE(handle.entryState(), State::inProgress);
         check(handle);
      }
   }

   void checkAtRest() {
      checkEach(*interfaces, [&](EgrL3Oif2::EntryHandle& handle) {
         EXPECT_NE(handle.entryState(), State::unresolved);
         if (handle.entryState() == State::success) {
            EXPECT_EQ(ModelChip::EgrL3Oif2::vlanTag.unpack(chip->table("EgrL3Oif2")->row(handle.key())),
                      interfaces->resolvedEntry(handle.key())->tnlVlanTag);
         }
      });
      auto& egress = *nextHops->egrL3NextHop2();
      checkEach(egress, [&](EgrL3NextHop2::EntryHandle& handle) {
         if (handle.entryState() == State::success) {
            auto const words = chip->table("EgrL3NextHop2")->row(handle.key());
            EXPECT_EQ(ModelChip::EgrL3NextHop2::dstMac.unpack(words),
                      egress.resolvedEntry(handle.key())->dstMacAddress.value());
            EXPECT_FALSE(handle.unresolvedEntry());
         }
         expectWaitingFor(handle, [](auto const& entry) { return entry.l3Oif2Handle; });
      });
      checkEach(*groups, [&](L3EcmpGroup0Table::EntryHandle& handle) {
         if (handle.entryState() == State::success) {
            auto const* rows = chip->table("L3EcmpGroup0Table");
            ASSERT_TRUE(rows->hasRow(handle.hwEntryIndex()));
            EXPECT_EQ(ModelChip::L3EcmpGroup0Table::ecmpBlock.unpack(rows->row(handle.hwEntryIndex())),
                      groups->resolvedEntry(handle.key())->ecmpBlockPtr);
            EXPECT_FALSE(handle.unresolvedEntry());
         }
         expectWaitingFor(handle, [](auto const& entry) { return entry.ecmpBlockPtrHandle; });
      });
      checkNextHops();
      checkBlocks();
   }

   template <class EntryHandle, class Needed>
   void expectWaitingFor(EntryHandle& handle, Needed&& needed) {
      if (handle.entryState() == State::unresolved) {
         ASSERT_TRUE(handle.unresolvedEntry());
         EXPECT_FALSE(needed(handle.unresolvedEntry()->value().entry)->isHwIndexValid());
      }
   }

   void checkNextHops() {
      checkEach(*nextHops, [&](L3NextHop2Table::EntryHandle& handle) {
         if (handle.entryState() == State::success) {
            EXPECT_TRUE(handle.mergedEntry());
            EXPECT_EQ(nextHops->indexAllocator()->indexForKey(Nuv::nuvType<L3UnderlayNextHopKey>(),
                                                              &handle.key()),
                      handle.hwEntryIndex());
            EXPECT_TRUE(chip->table("EgrL3NextHop2")->hasRow(handle.hwEntryIndex()));
         } else if (handle.entryState() == State::unresolved) {
            ASSERT_TRUE(handle.unresolvedMergedEntry());
            EXPECT_NE(handle.unresolvedMergedEntry()->neededEntryHandleSms(), 0u);
         }
      });
   }

   void checkBlocks() {
      checkEach(*blocks, [&](L3UnderlayEcmpMember1Table::EntryHandle& handle) {
         if (handle.entryState() == State::success) {
            EXPECT_TRUE(handle.isHwIndexValid());
         } else if (handle.entryState() == State::unresolved) {
            ASSERT_TRUE(handle.unresolvedEntry());
            EXPECT_NE(handle.unresolvedEntry()->neededEntryHandleSms(), 0u);
         }
      });
   }

   void expectNothingLeft() {
      depth = deepest;
      groups->entryRemoveAll();
      heldBlocks.clear();
      blocks->entryBlockRemoveAll();
      heldNextHops.clear();
      nextHops->entryRemoveAll();
      interfaces->entryRemoveAll();
      loop.runUntilIdle();
      depth = 0;
      watches.clear();
      EXPECT_EQ(groups->handles().size(), 0u);
      EXPECT_EQ(blocks->handles().size(), 0u);
      EXPECT_EQ(nextHops->handles().size(), 0u);
      EXPECT_EQ(interfaces->handles().size(), 0u);
      EXPECT_EQ(groups->indexAllocator()->holders(), 0u);
      EXPECT_EQ(blocks->indexAllocator()->holders(), 0u);
      EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
      EXPECT_EQ(rowsPresent(), 0u);
   }

   void run(std::uint32_t seed, int steps, bool withFaults) {
      constexpr int roundsPerRun = 6;
      numbers.seed(seed);
      for (int round = 0; round * stepsPerRound < steps && !HasFailure(); ++round) {
         valuesDiffer = draw(2);
         if (withFaults) {
            faults->random(numbers(), {100, 50, 0, 30, 200, 6});
         }
         runRound();
         checkAtRest();
         if (round % roundsPerRun == roundsPerRun - 1) {
            expectNothingLeft();
         }
      }
      expectNothingLeft();
   }

   std::mt19937 numbers;
   int depth{};
   bool valuesDiffer{};
   unsigned lastValue{};
   Nuv::Ptr<ModelChip::Faults> faults = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> nextHops = l3NextHop2TableFactory();
   Nuv::Ptr<L3UnderlayEcmpMember1Table> blocks = l3UnderlayEcmpMember1TableFactory();
   Nuv::Ptr<L3EcmpGroup0Table> groups = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
   std::vector<Handle> heldNextHops;
   std::vector<Handle> heldBlocks;
   std::vector<std::unique_ptr<Watch>> watches;
};

TEST_F(ReentryRandom, WhoIsToldMayChangeAnything) {
   Nuv::soak(2'000, [this](std::uint32_t seed, int steps) { run(seed, steps, false); });
}

TEST_F(ReentryRandom, WhoIsToldMayChangeAnythingOnAChipThatRefuses) {
   Nuv::soak(2'000, [this](std::uint32_t seed, int steps) { run(seed, steps, true); });
}

} // namespace
} // namespace ZandorL3Tunnel
