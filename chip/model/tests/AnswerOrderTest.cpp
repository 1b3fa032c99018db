#include "chip/model/testing/RowsTest.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <string>

namespace ModelChip {
namespace {

using testing::Each;

/// Up to four unanswered writes, some of them refused, whose answers come in every order; or only the first
/// few of them, and the others are lost.
struct Case {
   std::vector<std::uint32_t> order;
   unsigned refused; ///< a bit for each write
   std::size_t answered;

   bool isRefused(std::uint32_t write) const { return (refused >> write & 1) != 0; }
};

std::vector<Case>
cases(bool mayBeLost) {
   std::vector<Case> all;
   for (std::uint32_t writes = 1; writes <= 4; ++writes) {
      std::vector<std::uint32_t> order(writes);
      std::iota(order.begin(), order.end(), 0u);
      do {
         for (unsigned refused = 0; refused < 1u << writes; ++refused) {
            for (std::size_t answered = mayBeLost ? 0 : writes; answered <= writes; ++answered) {
               all.push_back({order, refused, answered});
            }
         }
      } while (std::next_permutation(order.begin(), order.end()));
   }
   return all;
}

class AnswerOrderTest : public FaultyRowsTest {
 protected:
   struct Listener {
      Owner owner;
      std::string heard; ///< c: confirmed, r: refused
   };

   void begin(Case const& each) {
      faults->holdAnswers();
      listeners.clear();
      listeners.resize(each.order.size());
      for (auto& listener : listeners) {
         listener.owner = writer.newOwner();
         listener.owner->onRowConfirmed = [&] { listener.heard += 'c'; };
         listener.owner->onRowRefused = [&] { listener.heard += 'r'; };
      }
   }

   /// One of the writes; the chip has come to it.
   void writeOf(Case const& each, std::uint32_t write, Asic::Index index) {
      faults->refuse(writes(), each.isRefused(write) ? 1 : 0);
      this->write(index, write, listeners[write].owner, Nuv::make<Needed>(living[write]));
      loop.runUntilIdle();
   }

   void answer(std::uint32_t write) {
      ASSERT_TRUE(faults->releaseAnswer(write));
      loop.runUntilIdle();
   }

   static Pelm::String text(Case const& each) {
      Pelm::String text = "answers";
      for (std::size_t position = 0; position < each.answered; ++position) {
         auto write = each.order[position];
         text += Nuv::text(" ", write, each.isRefused(write) ? " (refused)" : "");
      }
      return text;
   }

   std::vector<Listener> listeners;
};

/// What the owner of each write at one row hears: that it was refused, when it was the newest that stands;
/// and that it is in force, once nothing waits behind it.
std::vector<std::string>
heardByEach(Case const& each) {
   std::vector<std::string> heard(each.order.size());
   std::vector<std::uint32_t> standing(each.order.size());
   std::iota(standing.begin(), standing.end(), 0u);
   std::optional<std::uint32_t> untold;
   for (std::size_t position = 0; position < each.answered; ++position) {
      auto write = each.order[position];
      auto found = std::find(standing.begin(), standing.end(), write);
      if (found == standing.end()) {
         continue;
      }
      if (!each.isRefused(write)) {
         untold = write;
      } else if (write == standing.back()) {
         heard[write] += 'r';
      }
      standing.erase(each.isRefused(write) ? found : standing.begin(), found + 1);
      if (untold && standing.empty()) {
         heard[*std::exchange(untold, std::nullopt)] += 'c';
      }
   }
   return heard;
}

TEST_F(AnswerOrderTest, OfWritesAtOneRowTheLastThatWasNotRefusedCounts) {
   for (auto const& each : cases(true)) {
      SCOPED_TRACE(text(each));
      rowInForce(5, 100);
      begin(each);
      Words inForce(3, 100);
      int const* holdInForce = &neededLiving;
      for (std::uint32_t write = 0; write < each.order.size(); ++write) {
         writeOf(each, write, 5);
         if (!each.isRefused(write)) {
            inForce = Words(3, write);
            holdInForce = &living[write];
         }
      }
      for (std::size_t position = 0; position < each.answered; ++position) {
         answer(each.order[position]);
         ASSERT_EQ(*holdInForce, 1);
      }
      ASSERT_EQ(rowAt(5), inForce);
      auto heard = heardByEach(each);
      for (std::size_t write = 0; write < listeners.size(); ++write) {
         EXPECT_EQ(listeners[write].heard, heard[write]);
      }
      if (each.answered == each.order.size()) {
         EXPECT_EQ(interfaces().unanswered(), 0u);
         EXPECT_EQ(std::accumulate(std::begin(living), std::end(living), neededLiving), 1);
         EXPECT_EQ(listeners.back().heard.front(), each.isRefused(listeners.size() - 1) ? 'r' : 'c');
      }
      for (auto const& listener : listeners) {
         listener.owner->onRowConfirmed = nullptr;
         listener.owner->onRowRefused = nullptr;
      }

      // One more makes up for all that were lost.
      faults->stop();
      write(5, 200, other, Nuv::make<Needed>(successorLiving));
      loop.runUntilIdle();
      EXPECT_THAT(living, Each(0));
      EXPECT_EQ(successorLiving, 1);
      EXPECT_EQ(interfaces().unanswered(), 0u);
      if (HasFailure()) {
         return;
      }
   }
}

TEST_F(AnswerOrderTest, WritesAtDifferentRowsAreAnsweredEachForItself) {
   for (auto const& each : cases(false)) {
      SCOPED_TRACE(text(each));
      for (std::uint32_t write = 0; write < each.order.size(); ++write) {
         rowInForce(write, 100);
      }
      begin(each);
      for (std::uint32_t write = 0; write < each.order.size(); ++write) {
         writeOf(each, write, write);
      }
      for (auto write : each.order) {
         EXPECT_EQ(listeners[write].heard, "");
         answer(write);
         EXPECT_EQ(listeners[write].heard, each.isRefused(write) ? "r" : "c");
         EXPECT_EQ(living[write], each.isRefused(write) ? 0 : 1);
         EXPECT_EQ(rowAt(write), Words(3, each.isRefused(write) ? 100 : write));
      }
      EXPECT_EQ(interfaces().unanswered(), 0u);
      faults->stop();
      if (HasFailure()) {
         return;
      }
   }
}

} // namespace
} // namespace ModelChip
