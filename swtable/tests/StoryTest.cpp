#include "chip/model/testing/ChipTest.h"
#include "tables/EgrL3Oif2.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Type = EgrL3Oif2::EntryHandle::EntryType;

EgrL3Oif2::Entry
taggedWith(std::uint16_t vlan) {
   EgrL3Oif2::Entry entry;
   entry.isUnderlayL2HdrTagged = true;
   entry.tnlVlanTag = vlan;
   return entry;
}

// The life of one entry as the folder's README tells it, line by line.
class StoryTest : public ModelChip::ChipTest {
 protected:
   StoryTest() { table->doInit(unit, stateDatabase, chip->chipInfo()); }

   Type type() const { return table->entryHandle(7)->entryType(); }

   Nuv::Ptr<EgrL3Oif2> table = egrL3Oif2Factory("EgrL3Oif2");
   std::vector<State> heard;
};

TEST_F(StoryTest, OneEntrysLife) {
   auto writeDown = [this](State state) { heard.push_back(state); };

   // 1
   auto handle = table->entryCommitWithResponseHandler(7, taggedWith(100), writeDown);
   EXPECT_EQ(type(), Type::committed);
   EXPECT_EQ(handle->references(), 2u);

   // 2
   EXPECT_EQ(table->resolvedEntry(7), taggedWith(100));
   EXPECT_EQ(handle->entryState(), State::inProgress);
   EXPECT_EQ(handle->hwEntryIndex(), 7u);
   EXPECT_FALSE(handle->isHwIndexValid());
   EXPECT_EQ(commandsIssued(), 1u);
   EXPECT_THAT(heard, ElementsAre(State::inProgress));

   // 3
   ASSERT_TRUE(loop.runOne());
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3Oif2 written 7"));
   EXPECT_EQ(handle->entryState(), State::inProgress);

   // 4
   loop.runUntilIdle();
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_THAT(heard, ElementsAre(State::inProgress, State::success));

   // 5
   ModelChip::StateWatch watch(*handle);
   table->entryCommit(7, taggedWith(100));
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, IsEmpty());
   EXPECT_EQ(commandsIssued(), 1u);

   // 6
   table->entryCommit(7, taggedWith(200));
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_THAT(watch.states, ElementsAre(State::unresolved, State::inProgress));
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::unresolved, State::inProgress, State::success));
   EXPECT_EQ(commandsIssued(), 2u);

   // 7
   auto user = table->entryRef(7, taggedWith(200));
   EXPECT_EQ(type(), Type::committed);
   EXPECT_EQ(handle->references(), 3u);

   // 8
   table->entryRemove(7);
   EXPECT_EQ(type(), Type::referenceOnly);
   EXPECT_EQ(handle->references(), 2u);
   handle = nullptr;
   EXPECT_EQ(user->entryState(), State::success);
   EXPECT_TRUE(watch.isListed());

   // 9
   auto number = user->creationNumber();
   user = nullptr;
   EXPECT_EQ(type(), Type::inDeletion);
   EXPECT_EQ(table->entryHandle(7)->references(), 2u); // one is the look-up's
   EXPECT_FALSE(watch.isListed());
   EXPECT_FALSE(table->entryHandle(7)->isHwIndexValid());
   EXPECT_EQ(commandsIssued(), 3u);

   // 10
   user = table->entryRef(7, taggedWith(300));
   EXPECT_EQ(user->creationNumber(), number);
   EXPECT_EQ(type(), Type::referenceOnly);
   loop.runUntilIdle();
   EXPECT_EQ(user->entryState(), State::success);

   // 11
   user = nullptr;
   loop.runUntilIdle();
   EXPECT_FALSE(table->entryHas(7));
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3Oif2 written 7", "EgrL3Oif2 written 7", "EgrL3Oif2 cleared 7",
                                        "EgrL3Oif2 written 7", "EgrL3Oif2 cleared 7"));
   EXPECT_EQ(rowsPresent(), 0u);
}

} // namespace
} // namespace ZandorL3Tunnel
