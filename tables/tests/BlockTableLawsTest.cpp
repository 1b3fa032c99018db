#include "swtable/testing/BlockLaws.h"
#include "tables/L3EcmpMember0Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

namespace ZandorL3Tunnel {
namespace {

L3EcmpMember0Table::Entry
member0(BlockDriver::Handle const& handle) {
   L3EcmpMember0Table::Entry entry;
   entry.nextHopEntryHandle = handle;
   return entry;
}

L3UnderlayEcmpMember1Table::Entry
member1(BlockDriver::Handle const& handle) {
   L3UnderlayEcmpMember1Table::Entry entry;
   entry.underlayEcmpNextHopIndexHandle = handle;
   return entry;
}

constexpr BlockDriverFactory level0{"L3EcmpMember0Table", []() -> std::unique_ptr<BlockDriver> {
                                       return std::make_unique<BlockTableDriver<L3EcmpMember0Table>>(member0);
                                    }};
constexpr BlockDriverFactory level1{"L3UnderlayEcmpMember1Table", []() -> std::unique_ptr<BlockDriver> {
                                       return std::make_unique<BlockTableDriver<L3UnderlayEcmpMember1Table>>(
                                             member1);
                                    }};

std::string
nameOf(testing::TestParamInfo<BlockDriverFactory> const& each) {
   return each.param.hwTable;
}

INSTANTIATE_TEST_SUITE_P(Block, BlockLaws, testing::Values(level0, level1), nameOf);
INSTANTIATE_TEST_SUITE_P(Block, LargeBlocks, testing::Values(level0, level1), nameOf);

} // namespace
} // namespace ZandorL3Tunnel
