#pragma once

#include "platform/asic/HwTable.h"

#include <algorithm>
#include <deque>
#include <map>

namespace Asic {

/// A hardware table whose chip is a map of rows, which may be there before the table is. Every command is
/// carried out at once and answered by the loop.
class MemoryHwTable final : public HwTable {
 public:
   using Rows = std::map<Index, std::vector<std::uint32_t>>;

   MemoryHwTable(Shape shape, Rows& rows, Nuv::ReactionLoop& loop)
       : HwTable(std::move(shape), loop), rows_(rows), link_(loop.link()) {}

 private:
   class Answer final : public Nuv::Reaction {
    public:
      explicit Answer(MemoryHwTable& table) : table_(table) {}

      std::deque<Command> commands;

    private:
      void react() override {
         while (!commands.empty()) {
            auto command = commands.front();
            commands.pop_front();
            table_.answered(command);
         }
      }

      MemoryHwTable& table_;
   };

   void issue(Command command, Index index, std::span<std::uint32_t const> words) override {
      if (words.empty()) {
         rows_.erase(index);
      } else {
         rows_[index].assign(words.begin(), words.end());
      }
      answer_.commands.push_back(command);
      link_->schedule(answer_);
   }

   bool chipRow(Index index, std::span<std::uint32_t> words) const override {
      auto found = rows_.find(index);
      if (found == rows_.end()) {
         return false;
      }
      std::ranges::copy(found->second, words.begin());
      return true;
   }

   Rows& rows_;
   Nuv::Ptr<Nuv::ReactionLoop::Link> link_;
   Answer answer_{*this};
};

} // namespace Asic
