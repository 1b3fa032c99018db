#include "swtable/testing/InterfaceTest.h"

#include <set>

namespace ZandorL3Tunnel {
namespace {

class EntryIteratorTest : public InterfaceTest {
 protected:
   EntryIteratorTest() {
      for (Asic::Index index = 1; index <= 50; ++index) {
         table->entryCommit(index, interfaceOf(std::uint8_t(index)));
      }
   }

   std::vector<Asic::Index> keysFrom(EgrL3Oif2::EntryIterator at) const {
      std::vector<Asic::Index> keys;
      for (; at; ++at) {
         EXPECT_EQ(at.entry(), interfaceOf(std::uint8_t(at.key())));
         keys.push_back(at.key());
      }
      return keys;
   }
};

TEST_F(EntryIteratorTest, MeetsEveryEntryOnce) {
   auto keys = keysFrom(table->entryIteratorConst());
   EXPECT_EQ(keys.size(), 50u);
   EXPECT_EQ(std::set(keys.begin(), keys.end()).size(), 50u);
}

TEST_F(EntryIteratorTest, FromAKeyGoesOnInTheSameOrder) {
   auto keys = keysFrom(table->entryIteratorConst());
   auto from = keysFrom(table->entryIteratorConst(keys[20]));
   EXPECT_EQ(from, std::vector(keys.begin() + 20, keys.end()));
}

TEST_F(EntryIteratorTest, FromAKeyThatIsNotThereIsAtTheEnd) {
   EXPECT_FALSE(table->entryIteratorConst(51));
   EXPECT_FALSE(egrL3Oif2Factory("empty")->entryIteratorConst());
}

TEST_F(EntryIteratorTest, PassesOverEntriesInDeletion) {
   loop.runUntilIdle();
   table->entryRemove(7);
   ASSERT_TRUE(table->entryHas(7));
   auto keys = keysFrom(table->entryIteratorConst());
   EXPECT_EQ(keys.size(), 49u);
   EXPECT_FALSE(std::count(keys.begin(), keys.end(), 7u));
}

TEST_F(EntryIteratorTest, GoesOnWhateverIsRemovedAndWrittenMeanwhile) {
   loop.runUntilIdle();
   std::set<Asic::Index> met;
   for (auto at = table->entryIteratorConst(); at; ++at) {
      auto key = at.key();
      EXPECT_TRUE(met.insert(key).second);
      table->entryRemove(key);
      loop.runUntilIdle();
      if (key <= 50) {
         table->entryCommit(100 + key, interfaceOf(std::uint8_t(100 + key)));
      }
   }
   for (Asic::Index index = 1; index <= 50; ++index) {
      EXPECT_TRUE(met.count(index));
   }
}

} // namespace
} // namespace ZandorL3Tunnel
