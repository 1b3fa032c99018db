#include "platform/nuv/testing/Soak.h"
#include "tables/testing/NextHopTest.h"

#include <map>
#include <random>

namespace ZandorL3Tunnel {
namespace {

constexpr Asic::Index interfaceRows = 8;
constexpr Asic::Index nextHopRows = 12;
constexpr std::uint16_t ports = 16; // more than there are indices

/// Next hops over interfaces on a small chip, changed at random. After every row that the chip accepts, no
/// row points at one that is not there, and both halves of a key are at its own index.
class NextHopRandom : public NextHopTest {
 protected:
   struct NextHop {
      std::vector<Handle> users;
      bool isCommitted{};
      Asic::Index interface {};
      std::uint8_t value{};

      bool isHeld() const { return isCommitted || !users.empty(); }
   };

   NextHopRandom() : NextHopTest(nextHopRows, interfaceRows) {
      afterRow = [this] {
         rowsApplied.clear();
         ASSERT_FALSE(chip->table("IngL3NextHop2Table")->hasRow(0));
         ASSERT_FALSE(chip->table("EgrL3NextHop2")->hasRow(0));
         checkIndices();
      };
   }

   void begin(std::uint32_t seed) { random.seed(seed); }

   unsigned draw(unsigned below) { return random() % below; }

   void writeInterface(Asic::Index index, std::uint16_t value) {
      EgrL3Oif2::Entry entry;
      entry.tnlVlanTag = value;
      interfaces->entryCommit(index, entry);
      interfaceValues[index] = value;
   }

   void removeInterface(Asic::Index index) {
      interfaces->entryRemove(index);
      interfaceValues.erase(index);
   }

   void write(std::uint16_t port, Asic::Index interface, std::uint8_t value, bool isCommit) {
      auto& nextHop = nextHopsAt[port];
      auto handle = isCommit ? nextHops->entryCommit(keyOf(port), ing(value), egr(value, interface))
                             : nextHops->entryRef(keyOf(port), ing(value), egr(value, interface));
      nextHop.interface = interface;
      nextHop.value = value;
      if (isCommit) {
         nextHop.isCommitted = true;
      } else {
         nextHop.users.push_back(handle);
      }
   }

   void release(std::uint16_t port) {
      auto& nextHop = nextHopsAt[port];
      if (!nextHop.users.empty()) {
         nextHop.users.pop_back();
      } else if (nextHop.isCommitted) {
         nextHop.isCommitted = false;
         nextHops->entryRemove(keyOf(port));
      }
   }

   std::optional<Asic::Index> anyInterface() {
      if (interfaceValues.empty()) {
         return std::nullopt;
      }
      return std::next(interfaceValues.begin(), draw(unsigned(interfaceValues.size())))->first;
   }

   void step() {
      auto port = std::uint16_t(draw(ports));
      switch (draw(10)) {
      case 0:
         // The last one lies outside the interface table: who needs it fails.
         writeInterface(1 + draw(interfaceRows), std::uint16_t(draw(3)));
         break;
      case 1:
         removeInterface(1 + draw(interfaceRows));
         break;
      case 2:
      case 3:
      case 4:
         if (auto interface = anyInterface()) {
            write(port, *interface, std::uint8_t(draw(3)), draw(3) == 0);
         }
         break;
      case 5:
      case 6:
         release(port);
         break;
      default:
         for (auto turns = draw(6); turns > 0; --turns) {
            loop.runOne();
         }
         break;
      }
   }

   void checkIndices() {
      auto const& allocator = *nextHops->indexAllocator();
      for (Asic::Index index = 1; index < nextHopRows; ++index) {
         auto holder = allocator.keyForIndex(index);
         if (!holder.type) {
            continue;
         }
         auto const& key = *static_cast<L3UnderlayNextHopKey const*>(holder.value);
         auto handle = nextHops->entryHandle(key);
         if (handle && handle->hwEntryIndex() != Asic::invalidIndex) {
            ASSERT_EQ(handle->hwEntryIndex(), index);
         }
      }
   }

   // Idle and without faults, the table says and the chip has exactly what was asked for, as far as there was
   // room when it was.
   void checkIdle() {
      loop.runUntilIdle();
      Asic::Index present = 0;
      for (auto const& [port, nextHop] : nextHopsAt) {
         SCOPED_TRACE(port);
         auto handle = nextHops->entryHandle(keyOf(port));
         ASSERT_EQ(bool(handle), nextHop.isHeld());
         if (!handle) {
            continue;
         }
         auto index =
               nextHops->indexAllocator()->indexForKey(Nuv::nuvType<L3UnderlayNextHopKey>(), &handle->key());
         if (index == Asic::invalidIndex) {
            ASSERT_EQ(handle->entryState(), State::failed);
            continue;
         }
         ++present;
         checkHalves(*handle, index, nextHop);
      }
      ASSERT_EQ(nextHops->indexAllocator()->holders(), present);
      ASSERT_EQ(chip->table("IngL3NextHop2Table")->rowsPresent(), present);
   }

   void checkHalves(L3NextHop2Table::EntryHandle const& handle, Asic::Index index, NextHop const& nextHop) {
      auto ingRow = chip->table("IngL3NextHop2Table")->row(index);
      ASSERT_EQ(ModelChip::IngL3NextHop2Table::destinationId.unpack(ingRow), nextHop.value);
      if (nextHop.interface >= interfaceRows) {
         ASSERT_EQ(handle.entryState(), State::failedNeededEntry);
         return;
      }
      ASSERT_EQ(handle.entryState(), State::success);
      ASSERT_TRUE(handle.isHwIndexValid());
      ASSERT_EQ(handle.hwEntryIndex(), index);
      auto egrRow = chip->table("EgrL3NextHop2")->row(index);
      ASSERT_EQ(ModelChip::EgrL3NextHop2::l3Oif.unpack(egrRow), nextHop.interface);
      ASSERT_EQ(ModelChip::EgrL3NextHop2::dstMac.unpack(egrRow) & 0xFF, nextHop.value);
      ASSERT_TRUE(chip->table("EgrL3Oif2")->hasRow(nextHop.interface));
   }

   /// After any faults: everything is written anew, and then as it was asked for.
   void recover() {
      faults->stop();
      loop.runUntilIdle();
      for (auto& [port, nextHop] : nextHopsAt) {
         while (nextHop.isHeld()) {
            release(port);
         }
      }
      loop.runUntilIdle();
      for (std::uint16_t value : {100, 101}) {
         for (Asic::Index index = 1; index < interfaceRows; ++index) {
            writeInterface(index, value);
         }
         for (std::uint16_t port = 1; port < nextHopRows; ++port) {
            write(port, port % (interfaceRows - 1) + 1, std::uint8_t(value), true);
         }
         checkIdle();
      }
   }

   void finish() {
      for (auto& [port, nextHop] : nextHopsAt) {
         while (nextHop.isHeld()) {
            release(port);
         }
      }
      interfaceValues.clear();
      expectNothingLeft();
   }

   std::mt19937 random;
   std::map<Asic::Index, std::uint16_t> interfaceValues;
   std::map<std::uint16_t, NextHop> nextHopsAt;
};

TEST_F(NextHopRandom, HasExactlyWhatWasAskedFor) {
   Nuv::soak(25'000, [this](std::uint32_t seed, int steps) {
      begin(seed);
      for (int at = 0; at < steps && !HasFatalFailure(); ++at) {
         SCOPED_TRACE(at);
         step();
         if (at % 16 == 0) {
            checkIdle();
         }
      }
      finish();
   });
}

TEST_F(NextHopRandom, NeverPointsAtWhatIsNotThereWhateverTheChipDoes) {
   Nuv::soak(25'000, [this](std::uint32_t seed, int steps) {
      begin(seed);
      for (int at = 0; at < steps && !HasFatalFailure(); ++at) {
         SCOPED_TRACE(at);
         if (at % 1000 == 0) {
            ModelChip::Faults::Probabilities probabilities;
            probabilities.refuseWrite = 100;
            probabilities.refuseDelete = 100;
            probabilities.lose = at % 2000 == 0 ? 20 : 0;
            probabilities.repeat = 50;
            probabilities.delay = 300;
            faults->random(seed + unsigned(at), probabilities);
         }
         step();
         if (at % 1000 == 999) {
            recover();
         }
      }
      recover();
      finish();
   });
}

} // namespace
} // namespace ZandorL3Tunnel
