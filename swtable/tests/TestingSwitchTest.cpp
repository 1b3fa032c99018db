#include "chip/model/testing/ChipTest.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

#include <cstdlib>

namespace ZandorL3Tunnel {
namespace {

// The switch is read once in the life of a process, so each setting is tried in a process of its own.
class TestingSwitchDeathTest : public ModelChip::ChipTest {
 protected:
   TestingSwitchDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

   static void set(char const* value) {
      if (value) {
         setenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE", value, 1);
      } else {
         unsetenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE");
      }
   }

   /// What becomes of an entry with a chip, of one without, of one outside the chip's table, and of a block;
   /// each right after its write, and once everything was answered. Ends the process.
   [[noreturn]] void tell() {
      EgrL3Oif2::Entry entry;
      auto withChip = egrL3Oif2Factory("EgrL3Oif2");
      withChip->doInit(unit, stateDatabase, chip->chipInfo());
      auto withoutChip = egrL3Oif2Factory("plain");
      auto members = l3UnderlayEcmpMember1TableFactory();
      members->doInit(unit, stateDatabase, chip->chipInfo());
      L3UnderlayEcmpMember1Table::EntryBlock block;
      block.entryIs(0, {});
      Handle handles[] = {withChip->entryCommit(3, entry), withoutChip->entryCommit(3, entry),
                          withChip->entryCommit(withChip->maxIndex() + 1, entry),
                          withoutChip->entryCommit(Asic::invalidIndex, entry), members->entryBlockRef(block)};
      Pelm::String told;
      for (int round = 0; round < 2; ++round) {
         for (auto const& handle : handles) {
            Nuv::appendText(told, Nuv::text(handle->entryState(), handle->isHwIndexValid() ? "+ " : "- "));
         }
         loop.runUntilIdle();
      }
      withChip->entryRemove(3);
      handles[0] = nullptr;
      told += withChip->entryHas(3) ? "dance" : "gone";
      std::fprintf(stderr, "%s\n", told.c_str());
      std::_Exit(0);
   }
};

constexpr char const* awaited = "inProgress- inProgress- failed- inProgress- success- "
                                "success\\+ inProgress- failed- inProgress- success\\+ dance";
constexpr char const* published = "success\\+ success- failed- failed- success\\+ "
                                  "success\\+ success- failed- failed- success\\+ gone";

TEST_F(TestingSwitchDeathTest, UnsetHandlesWaitForTheChip) {
   EXPECT_EXIT((set(nullptr), tell()), testing::ExitedWithCode(0), awaited);
}

TEST_F(TestingSwitchDeathTest, ZeroHandlesWaitForTheChip) {
   EXPECT_EXIT((set("0"), tell()), testing::ExitedWithCode(0), awaited);
}

TEST_F(TestingSwitchDeathTest, ATextThatIsNoNumberIsZero) {
   EXPECT_EXIT((set("yes"), tell()), testing::ExitedWithCode(0), awaited);
}

TEST_F(TestingSwitchDeathTest, OneHandlesCompleteWithTheWrite) {
   EXPECT_EXIT((set("1"), tell()), testing::ExitedWithCode(0), published);
}

TEST_F(TestingSwitchDeathTest, ASwitchThatIsThrownLaterChangesNothing) {
   auto late = [this] {
      set("0");
      auto table = egrL3Oif2Factory("EgrL3Oif2");
      table->entryCommit(1, {});
      set("1");
      tell();
   };
   EXPECT_EXIT(late(), testing::ExitedWithCode(0), awaited);
}

} // namespace
} // namespace ZandorL3Tunnel
