#include "swtable/Sheet.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

#include <gtest/gtest.h>

namespace ZandorL3Tunnel {
namespace {

struct Plain {
   int number{};
};

struct NoRecord : EgrL3Oif2Sheet {
   using Entry = Plain;
};

struct NoSource : EgrL3Oif2Sheet {
   using Source = int;
};

struct IndexThatIsNoNumber : EgrL3Oif2Sheet {
   using Index = Pelm::String;
};

struct NoRuns : L3UnderlayEcmpMember1TableSheet {
   using Source = OwnAllocator<Asic::FirstFreeIndexAllocator>;
};

struct NoName {
   using Entry = EgrL3Oif2::Entry;
   using Source = KeyIsIndex;
   using Index = Asic::Index;
};

TEST(SheetTest, TellsAtCompileTimeWhatIsNoDataSheet) {
   EXPECT_TRUE(KeyedTableSheet<EgrL3Oif2Sheet>);
   EXPECT_TRUE(KeyedTableSheet<L3EcmpGroup0TableSheet>);
   EXPECT_TRUE(BlockTableSheet<L3UnderlayEcmpMember1TableSheet>);
   EXPECT_FALSE(KeyedTableSheet<NoRecord>);
   EXPECT_FALSE(KeyedTableSheet<NoSource>);
   EXPECT_FALSE(KeyedTableSheet<IndexThatIsNoNumber>);
   EXPECT_FALSE(KeyedTableSheet<NoName>);
   EXPECT_FALSE(BlockTableSheet<NoRuns>);
   EXPECT_FALSE(BlockTableSheet<EgrL3Oif2Sheet>);
}

} // namespace
} // namespace ZandorL3Tunnel
