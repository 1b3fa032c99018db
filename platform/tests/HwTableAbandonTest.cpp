#include "platform/asic/HwTable.h"
#include "platform/asic/testing/TinyTable.h"

#include <gtest/gtest.h>

namespace Asic {
namespace {

/// A hardware table whose chip never answers, and then goes.
class LostHwTable final : public HwTable {
 public:
   LostHwTable(Index rows, Nuv::ReactionLoop& loop) : HwTable({"Lost", "Lost", 0, rows, 1}, loop) {}

   using HwTable::abandon;

 private:
   void issue(Command, Index, std::span<std::uint32_t const>) override {}
};

class HwTableAbandonTest : public testing::Test {
 protected:
   /// A handle whose row is written and is being cleared.
   Nuv::Ptr<TinyHandle> cleared(Index index) {
      auto handle = Nuv::make<TinyHandle>(table.get());
      std::uint32_t words[] = {index + 1};
      rows->rowIs(index, words, *handle, nullptr);
      EXPECT_TRUE(rows->awaitedRowDel(index, *handle, table.get()));
      return handle;
   }

   static constexpr Index count = 3000;

   Nuv::ReactionLoop loop;
   Nuv::Ptr<TinyTable> table = Nuv::make<TinyTable>();
   Nuv::Ptr<LostHwTable> rows = Nuv::make<LostHwTable>(count, loop);
   std::vector<Nuv::Ptr<TinyHandle>> handles;
};

TEST_F(HwTableAbandonTest, TellsEachThatWaitsAtACostThatDoesNotGrowWithTheOthers) {
   for (Index index = 0; index < count; ++index) {
      handles.push_back(cleared(index));
      // As handles do when they end.
      handles.back()->onRowDeleted = [this, index] { rows->ownerDel(index, *handles[index]); };
   }
   auto before = rows->commandsLookedAt();
   rows->abandon();
   for (auto const& handle : handles) {
      ASSERT_EQ(handle->deletions, 1);
   }
   EXPECT_LE(rows->commandsLookedAt() - before, 4 * count);
   EXPECT_EQ(rows->unanswered(), 0u);
}

TEST_F(HwTableAbandonTest, WhoEndsWhileAnotherIsToldIsNotTold) {
   handles = {cleared(0), cleared(1), cleared(2)};
   handles[0]->onRowDeleted = [this] { rows->ownerDel(2, *handles[2]); };
   EXPECT_TRUE(rows->isRowDelAwaited(2, *handles[2]));
   handles[1]->onRowDeleted = [this] { EXPECT_FALSE(rows->isRowDelAwaited(2, *handles[2])); };
   rows->abandon();
   EXPECT_EQ(handles[0]->deletions, 1);
   EXPECT_EQ(handles[1]->deletions, 1);
   EXPECT_EQ(handles[2]->deletions, 0);
}

TEST_F(HwTableAbandonTest, WhoIsToldFindsTheOthersStillWaiting) {
   handles = {cleared(0), cleared(1)};
   bool wasAwaited = false;
   handles[0]->onRowDeleted = [&] { wasAwaited = rows->isRowDelAwaited(1, *handles[1]); };
   rows->abandon();
   EXPECT_TRUE(wasAwaited);
   EXPECT_FALSE(rows->isRowDelAwaited(1, *handles[1]));
}

} // namespace
} // namespace Asic
