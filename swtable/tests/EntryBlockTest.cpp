#include "swtable/EntryBlock.h"
#include "platform/asic/DontCareHandle.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

#include <gtest/gtest.h>

namespace ZandorL3Tunnel {
namespace {

using Table = L3UnderlayEcmpMember1Table;
using Block = Table::EntryBlock;

Table::Entry
memberTo(Asic::Index nextHop, std::uint8_t profile = 0) {
   Table::Entry entry;
   entry.underlayEcmpNextHopIndexHandle = SwTableWorkaround::dontCareHandle(nextHop);
   entry.strengthProfile = profile;
   return entry;
}

Block
blockOf(std::initializer_list<std::pair<Asic::Index, Asic::Index>> members) {
   Block block;
   for (auto [position, nextHop] : members) {
      block.entryIs(position, memberTo(nextHop));
   }
   return block;
}

TEST(EntryBlockTest, OrderOfFillingDoesNotShow) {
   auto forth = blockOf({{0, 1}, {1, 2}, {2, 3}});
   auto back = blockOf({{2, 3}, {1, 2}, {0, 1}});
   EXPECT_EQ(forth, back);
   EXPECT_EQ(forth.hash(5), back.hash(5));
   EXPECT_FALSE(forth < back || back < forth);
}

TEST(EntryBlockTest, PositionsHandlesAndProfilesMakeTheIdentity) {
   auto block = blockOf({{0, 1}, {1, 2}});
   EXPECT_FALSE(block == blockOf({{0, 2}, {1, 1}}));
   EXPECT_FALSE(block == blockOf({{0, 1}, {2, 2}}));
   EXPECT_FALSE(block == blockOf({{0, 1}}));
   auto otherProfile = block;
   otherProfile.entryIs(1, memberTo(2, 7));
   EXPECT_FALSE(block == otherProfile);
   EXPECT_TRUE(block < otherProfile);
}

TEST(EntryBlockTest, FilledIndicesTakeNoPartInTheIdentity) {
   auto block = blockOf({{0, 1}});
   auto filled = block;
   auto member = memberTo(1);
   member.underlayEcmpNextHopIndex = 1;
   filled.entryIs(0, member);
   EXPECT_EQ(block, filled);
   EXPECT_EQ(block.hash(5), filled.hash(5));
}

TEST(EntryBlockTest, ChangingACopyLeavesTheOriginal) {
   auto block = blockOf({{0, 1}});
   auto hash = block.hash(5);
   auto copy = block;
   copy.entryIs(1, memberTo(2));
   EXPECT_EQ(block.size(), 1u);
   EXPECT_EQ(block.hash(5), hash);
   EXPECT_EQ(copy.size(), 2u);
   EXPECT_NE(copy.hash(5), hash);
}

TEST(EntryBlockTest, SizeIsTheHighestPositionAndOne) {
   EXPECT_EQ(Block().getBlockSize(), 0);
   EXPECT_EQ(blockOf({{0, 1}, {2, 3}}).getBlockSize(), 3);
   auto far = blockOf({{65535, 1}});
   EXPECT_EQ(far.size(), 65536u);
   EXPECT_EQ(far.members().size(), 1u);
   EXPECT_THROW(far.entryIs(0xFFFFFFFF, memberTo(1)), Nuv::RangeException);
}

TEST(EntryBlockTest, AbsentMembersAreEmpty) {
   auto block = blockOf({{0, 1}, {2, 3}});
   EXPECT_EQ(block.entry(1), Table::Entry());
   EXPECT_EQ(block.entry(2), memberTo(3));
   block.entryDel(2);
   block.entryDel(2);
   EXPECT_EQ(block, blockOf({{0, 1}}));
}

TEST(EntryBlockTest, PrintsAsNone) {
   EXPECT_EQ(Nuv::text(blockOf({{0, 1}})), "None");
   EXPECT_EQ(Nuv::text(Block()), "None");
}

TEST(EntryBlockDeathTest, NoTextMakesABlock) {
   L3UnderlayEcmpMember1Table::EntryBlock block;
   Nuv::TextRange none("None");
   EXPECT_DEATH(parseText(none, block), "No String constructor for EntryBlock - has collection");
}

} // namespace
} // namespace ZandorL3Tunnel
