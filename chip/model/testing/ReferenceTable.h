#pragma once

#include "platform/asic/testing/TinyTable.h"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <vector>

namespace ModelChip {

/// What a hardware table should do, said as plainly as can be: a list of unanswered commands for each row,
/// told of what is asked of the table and of every answer, before the table itself.
class ReferenceTable {
 public:
   using Owner = Asic::TinyHandle*;

   /// `hold` counts whether the hold that goes with the write lives.
   void write(Asic::Index index, std::uint32_t word, Owner owner, int const* hold) {
      auto& row = rows_[index];
      waitDel(row, owner);
      row.owner = owner;
      row.isRecovered = false;
      row.due = Due::nothing;
      auto& newest = row.newest();
      if (newest.word == word) {
         newest.hold = hold;
         newest.owner = owner;
         row.isEqualDue = row.unanswered.empty();
         row.isUntold = row.isUntold && !row.isEqualDue;
      } else {
         issue(row, word, hold, owner);
      }
   }

   void clear(Asic::Index index, Owner owner) {
      auto& row = rows_[index];
      bool isOwner = row.owner == owner;
      disown(row, owner);
      if (isOwner && row.newest().word) {
         issue(row, std::nullopt, nullptr, nullptr);
      }
   }

   bool awaitedClear(Asic::Index index, Owner owner) {
      auto& row = rows_[index];
      if (row.owner != owner) {
         disown(row, owner);
         return false;
      }
      if (row.newest().word) {
         issue(row, std::nullopt, nullptr, row.newest().owner);
      }
      auto& newest = row.newest();
      if (row.unanswered.empty() || (newest.waiting && newest.waiting != owner)) {
         disown(row, owner);
         return false;
      }
      newest.waiting = owner;
      return true;
   }

   void ownerDel(Asic::Index index, Owner owner) {
      auto& row = rows_[index];
      if (row.owner == owner) {
         row.due = Due::nothing;
         row.isEqualDue = false;
      }
      disown(row, owner);
      waitDel(row, owner);
   }

   /// The chip has a row that nobody here wrote.
   void recovered(Asic::Index index, std::uint32_t word) {
      rows_[index].inForce.word = word;
      rows_[index].isRecovered = true;
   }

   Asic::Index purge() {
      Asic::Index purged = 0;
      for (auto& [index, row] : rows_) {
         if (row.isRecovered) {
            issue(row, std::nullopt, nullptr, nullptr);
            ++purged;
         }
      }
      return purged;
   }

   void answer(Asic::Index index, std::uint64_t number, bool isAccepted) {
      auto& row = rows_[index];
      auto found = std::find_if(row.unanswered.begin(), row.unanswered.end(),
                                [&](Command const& command) { return command.number == number; });
      if (found == row.unanswered.end()) {
         return;
      }
      bool isNewest = found + 1 == row.unanswered.end();
      auto command = *found;
      if (isAccepted) {
         for (auto each = row.unanswered.begin(); each <= found; ++each) {
            deletionIsDue(*each);
         }
         row.inForce = command;
         row.inForce.waiting = nullptr;
         row.unanswered.erase(row.unanswered.begin(), found + 1);
         row.isUntold = command.word.has_value();
         if (isNewest && command.waiting == row.owner) {
            row.owner = nullptr;
         }
         row.due = isNewest && row.isToBeTold() ? Due::confirmation : Due::nothing;
      } else if (isNewest && !command.word) {
         found->number = ++issued_;
      } else {
         row.unanswered.erase(found);
         if (isNewest) {
            refuse(row, command);
         } else {
            deletionIsDue(command);
         }
      }
   }

   /// The chip goes: who waits for a row to be cleared hears of it, in the order of issue.
   void chipGone() {
      std::map<std::uint64_t, Command> all;
      for (auto& [index, row] : rows_) {
         row.due = Due::nothing;
         row.isEqualDue = false;
         for (auto const& command : row.unanswered) {
            all.emplace(command.number, command);
         }
      }
      for (auto const& [number, command] : all) {
         deletionIsDue(command);
      }
   }

   // What an owner hears; false when it should not.
   bool confirmed(Asic::Index index, Owner owner) {
      auto& row = rows_[index];
      if (row.owner != owner) {
         return false;
      }
      if (row.due == Due::confirmation) {
         row.due = Due::nothing;
         row.isUntold = false;
         return true;
      }
      return std::exchange(row.isEqualDue, false);
   }
   bool refused(Asic::Index index, Owner owner) {
      auto& row = rows_[index];
      bool isExpected = row.due == Due::refusal && row.refusedOwner == owner;
      row.due = row.isToBeTold() ? Due::confirmation : Due::nothing;
      return isExpected;
   }
   bool deleted(Owner owner) {
      bool isExpected = !deletionsDue_.empty() && deletionsDue_.front() == owner;
      if (isExpected) {
         deletionsDue_.pop_front();
      }
      return isExpected;
   }

   /// Whether everybody has heard what the answers so far lead to.
   bool nothingIsDue() const {
      return deletionsDue_.empty() && std::all_of(rows_.begin(), rows_.end(), [](auto const& row) {
                return row.second.due == Due::nothing;
             });
   }
   bool equalWriteIsDue() const {
      return std::any_of(rows_.begin(), rows_.end(), [](auto const& row) { return row.second.isEqualDue; });
   }

   std::uint64_t commandsIssued() const { return issued_; }

   std::vector<Asic::Index> unansweredRows() const {
      std::vector<Asic::Index> found;
      for (auto const& [index, row] : rows_) {
         if (!row.unanswered.empty()) {
            found.push_back(index);
         }
      }
      return found;
   }

   std::size_t unanswered() const {
      std::size_t count = 0;
      for (auto const& [index, row] : rows_) {
         count += row.unanswered.size();
      }
      return count;
   }

   /// Whether the chip may have `word` at `index`, or no row: what is in force there or what was issued
   /// since.
   bool mayBeThere(Asic::Index index, std::optional<std::uint32_t> word) {
      auto const& row = rows_[index];
      return row.inForce.word == word ||
             std::any_of(row.unanswered.begin(), row.unanswered.end(),
                         [&](Command const& command) { return command.word == word; });
   }

   /// Whether all lives that may be needed at `index`.
   bool holdsLive(Asic::Index index) {
      auto const& row = rows_[index];
      auto lives = [](Command const& command) { return !command.hold || *command.hold == 1; };
      return lives(row.inForce) && std::all_of(row.unanswered.begin(), row.unanswered.end(), lives);
   }

   /// How much may be needed.
   int holds() const {
      int count = 0;
      for (auto const& [index, row] : rows_) {
         count += row.inForce.hold != nullptr;
         for (auto const& command : row.unanswered) {
            count += command.hold != nullptr;
         }
      }
      return count;
   }

 private:
   struct Command {
      std::uint64_t number{};
      std::optional<std::uint32_t> word; ///< none: the row is cleared
      int const* hold{};
      Owner owner{}; ///< whose the row is behind this command
      Owner waiting{};
   };

   enum class Due { nothing, confirmation, refusal };

   struct Row {
      Command& newest() { return unanswered.empty() ? inForce : unanswered.back(); }

      /// Whether the owner of the row in force is still to hear that the chip has it.
      bool isToBeTold() const {
         return unanswered.empty() && isUntold && inForce.word && owner && inForce.owner == owner;
      }

      Command inForce;
      std::vector<Command> unanswered;
      Owner owner{};
      Owner refusedOwner{};
      bool isUntold{};
      bool isRecovered{};
      bool isEqualDue{};
      Due due{};
   };

   void issue(Row& row, std::optional<std::uint32_t> word, int const* hold, Owner owner) {
      row.unanswered.push_back({++issued_, word, hold, owner, nullptr});
      row.isRecovered = false;
      row.isUntold = row.isUntold || row.isEqualDue;
      row.isEqualDue = false;
      row.due = Due::nothing;
   }

   /// The newest write was refused: its owner hears that, and the row is its former owner's again, who may
   /// be still to hear of it.
   static void refuse(Row& row, Command const& command) {
      row.refusedOwner = command.owner == row.owner ? row.owner : nullptr;
      if (row.newest().owner) {
         row.owner = row.newest().owner;
      }
      row.due = row.refusedOwner ? Due::refusal : row.isToBeTold() ? Due::confirmation : Due::nothing;
   }

   /// Nothing at the row is the owner's any more.
   static void disown(Row& row, Owner owner) {
      row.owner = row.owner == owner ? nullptr : row.owner;
      row.inForce.owner = row.inForce.owner == owner ? nullptr : row.inForce.owner;
      for (auto& command : row.unanswered) {
         command.owner = command.owner == owner ? nullptr : command.owner;
      }
   }

   void waitDel(Row& row, Owner owner) {
      for (auto& command : row.unanswered) {
         if (command.waiting == owner) {
            command.waiting = nullptr;
         }
      }
      std::erase(deletionsDue_, owner);
   }

   void deletionIsDue(Command const& command) {
      if (command.waiting) {
         deletionsDue_.push_back(command.waiting);
      }
   }

   std::map<Asic::Index, Row> rows_;
   std::deque<Owner> deletionsDue_;
   std::uint64_t issued_{};
};

} // namespace ModelChip
