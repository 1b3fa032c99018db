#pragma once

#include "platform/asic/SwTable.h"
#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/ReactionLoop.h"
#include "platform/nuv/Ring.h"

#include <array>
#include <map>
#include <memory>
#include <span>
#include <vector>

namespace Asic {

/// One hardware table of a chip: rows of fixed words, written and cleared by queued commands whose answers
/// come later, through the reaction loop.
///
/// It issues only what differs from the row last issued; an equal write is answered with success, behind an
/// unanswered equal one with that one's answer. What the row in force needs is held until the chip has
/// confirmed its successor or its removal, and what an issued row needs from the moment of issue, so nothing
/// that a row points at ends while the row can still be used.
///
/// Several tables may write one row: it belongs to who wrote it last, and when he clears it, it goes back to
/// who wrote it before and wants it still. Only the last one's clearing clears it.
///
/// A refused write leaves its predecessor in force, and its predecessor's owner the owner. A refused delete
/// is issued again; after several refusals in a row it waits until the table has something else to do with
/// its chip.
class ZANDOR_EXPORT HwTable : public Nuv::Object, private Nuv::Reaction {
 public:
   static constexpr unsigned maxWords = 8;

   struct Shape {
      Pelm::String name;   ///< the table's name on its chip
      Pelm::String layout; ///< what the rows' bits mean: the util that serves the table knows this name
      Index minIndex{};
      Index numEntries{};
      unsigned wordsPerRow{};

      friend bool operator==(Shape const&, Shape const&) = default;
   };

   static constexpr char const* typeName() { return "Asic::HwTable"; }

   /// What a row needs to be there while it is in force.
   using Hold = Nuv::Ptr<Nuv::Object const>;

   Shape const& shape() const { return shape_; }
   Index numEntries() const { return shape_.numEntries; }
   Index minIndex() const { return shape_.minIndex; }
   /// The highest index; that of a table without rows is its lowest.
   Index maxIndex() const { return shape_.minIndex + (shape_.numEntries ? shape_.numEntries - 1 : 0); }
   bool contains(Index index) const { return index - shape_.minIndex < shape_.numEntries; }

   /// Writes the row at `index`, which the table must contain, for the entry of `owner`. The owner's table
   /// hears the answer, unless a later command for that row came first; it lives until then. After a refusal
   /// the owner of the row that is left in force hears of that one, if the chip has confirmed it and nobody
   /// has said so yet.
   void rowIs(Index index, std::span<std::uint32_t const> words, SwTable::EntryHandle& owner, Hold hold);

   /// Clears the row at `index`, if `owner` wrote it last and nobody who wrote it before wants it: whoever
   /// does has it then. `table` lives until the chip has answered; the owner itself may end at once.
   void rowDel(Index index, SwTable::EntryHandle const& owner, SwTable* table);

   /// The same for an owner that waits for the answer: it hears `handleRowDeleted`, also when somebody else
   /// writes the row meanwhile, unless it writes the row again itself. It must not end before that without
   /// `ownerDel`. False, with nothing to wait for, when there is no row of the owner's to clear.
   bool awaitedRowDel(Index index, SwTable::EntryHandle& owner, SwTable* table);

   /// Whether `owner` has asked so at `index` and waits still.
   bool isRowDelAwaited(Index index, SwTable::EntryHandle const& owner);

   /// The row at `index` stays as it is, and `owner` hears of it no more.
   void ownerDel(Index index, SwTable::EntryHandle const& owner);

   /// Takes the rows that the chip has into the store of rows issued, as nobody's: who writes an equal one
   /// issues nothing. Rows that were written here before are left alone.
   void recover();

   /// Clears every recovered row that nobody has written since. Returns how many there were.
   Index purge();

   /// Commands issued to the chip so far.
   std::uint64_t commandsIssued() const { return nextCommand_ - 1; }
   /// Commands that the chip has not answered.
   std::size_t unanswered() const { return commands_.size() - answeredInLine_ + stragglers_.size(); }

   /// Commands that were gone through so far to find those of one owner: what his end costs beyond his rows.
   std::uint64_t commandsLookedAt() const { return commandsLookedAt_; }

   /// Asks the memory for what a command for the row at `index` will read, and does not wait for it.
   void prefetch(Index index) const;

   /// Where the hardware table `name` of a chip is found among the state database's entities.
   static Pelm::String path(UnitId unit, Pelm::String const& name);

   /// Mounts the hardware table `name` of the chip `unit`, and returns it; null when there is none.
   static Nuv::Ptr<HwTable> mounted(Kallo::EntityManager const& stateDatabase, UnitId unit,
                                    Pelm::String const& name);

 protected:
   using Command = std::uint64_t;
   static constexpr Command noCommand = ~Command(0);

   HwTable(Shape shape, Nuv::ReactionLoop& loop);
   ~HwTable() override;

   /// Queues one command to the chip; without words it clears the row. Must not answer before it returns.
   virtual void issue(Command command, Index index, std::span<std::uint32_t const> words) = 0;

   /// Copies the row that the chip has at `index` to `words`; false, with `words` untouched, when it has
   /// none. A chip whose rows do not outlive the process has none to tell.
   virtual bool chipRow(Index, std::span<std::uint32_t>) const { return false; }

   /// The chip has carried out `command`, or has refused it. Called from the reaction loop, in any order, for
   /// any command; an answer that comes again, or after that of a later command for the same row, is ignored.
   void answered(Command command, bool isAccepted = true);

   /// The chip is gone: no more answers come, nothing is held for it, and no more commands are issued. Who
   /// waits for a row to be cleared waits no longer.
   void abandon();

 private:
   struct Row {
      SwTable::EntryHandle* owner{};
      Command issued{}; ///< the newest command that was not refused
      Hold hold;
      std::uint32_t equalWrite{}; ///< the newest equal write
      bool isPresent{};           ///< as of `issued`
      bool isOwners{};            ///< as of `issued`, the row is the one that `owner` wrote
      bool isUntold{}; ///< the chip has confirmed the row in force, its owner has not heard of that
      bool isRecovered{};
   };

   struct Chunk;

   struct Unanswered {
      Index index{};
      bool isAnswered{};
      bool isWrite{};
      bool wasPresent{};
      std::uint8_t refusals{};
      Command previous{};     ///< the unanswered one before it for the same row, or 0
      Command issuedBefore{}; ///< the newest one before it, answered or not, whose words it replaces
      Nuv::Ptr<SwTable> table;
      Hold hold;
      SwTable::EntryHandle* deleted{};              ///< who waits for the row to be cleared
      SwTable::EntryHandle* ownerBefore{};          ///< whose the row is again when it is refused
      std::array<std::uint32_t, maxWords> before{}; ///< the words that it replaces
   };

   struct EqualWrite {
      Index index{};
      Command issued{};
      std::uint32_t number{};
      Nuv::Ptr<SwTable> table;
   };

   /// Who wrote a row before its owner, and wants it still.
   struct Former {
      SwTable::EntryHandle* owner{};
      Command wrote{}; ///< his words are those of this command
      bool isUntold{}; ///< he has not heard what became of them
   };

   /// Who has waited for a row to be cleared, and is still to be told.
   struct Cleared {
      Index index{};
      SwTable::EntryHandle* owner{};
   };

   void react() override;
   Row& row(Index index, std::uint32_t*& words);
   Row& row(Index index) {
      std::uint32_t* words{};
      return row(index, words);
   }
   Row* rowIfAny(Index index, std::uint32_t*& words);
   Row* rowIfAny(Index index) {
      std::uint32_t* words{};
      return rowIfAny(index, words);
   }
   Unanswered* unanswered(Command command) {
      bool hasLeftTheLine = command < nextCommand_ - commands_.size();
      return hasLeftTheLine && stragglers_.empty() ? nullptr : unansweredIfAny(command);
   }
   Unanswered* unansweredIfAny(Command command);
   void finished(Command command, Unanswered& entry);
   void trimLine();
   void equalRowIs(Index index, Row& row, SwTable::EntryHandle& owner, Hold hold);
   Unanswered& commandIs(Index index, Row& at, std::uint32_t* issued, std::span<std::uint32_t const> words,
                         SwTable* table, Hold hold);
   void accepted(Command command, Unanswered& entry);
   std::vector<Unanswered> supersededBy(Command command, Unanswered const& entry, Row const& at);
   void tellConfirmed(Index index, Command command, SwTable::EntryHandle* owner, SwTable* table);
   void refused(Command command, Unanswered& entry);
   void retry(Command refused, Unanswered& entry);
   void issueParked();
   void ownerIs(Index index, Row& at, SwTable::EntryHandle& owner);
   void formerDel(Index index, SwTable::EntryHandle const& owner) {
      if (!formers_.empty()) [[unlikely]] {
         formerDelIfAny(index, owner);
      }
   }
   void formerDelIfAny(Index index, SwTable::EntryHandle const& owner);
   void ownerBeforeDel(Row const& at, SwTable::EntryHandle const& owner);
   bool returnRow(Index index, Row& at) { return !formers_.empty() && returnRowIfAny(index, at); }
   bool returnRowIfAny(Index index, Row& at);
   void tellFormers(Index index, Command command, RowAnswer answer, Nuv::AllSteps& steps);
   void waitDel(Index index, Row const& at, SwTable::EntryHandle const& owner) {
      if (!cleared_.empty() || unanswered(at.issued)) {
         waitDelIfAny(index, at, owner);
      }
   }
   void waitDelIfAny(Index index, Row const& at, SwTable::EntryHandle const& owner);
   void clearedIs(Unanswered const& entry) {
      if (entry.deleted) {
         cleared_.push_back({entry.index, entry.deleted});
      }
   }
   void tellCleared(Nuv::AllSteps& steps);
   void unlink(Row& at, std::uint32_t* words, Command command, Unanswered const& entry);
   void tellUncovered(Index index);
   static void tell(SwTable::EntryHandle* owner, SwTable* table, RowAnswer answer);

   Shape shape_;
   Nuv::Ptr<Nuv::ReactionLoop::Link> loop_;
   std::vector<std::unique_ptr<Chunk>> chunks_;
   bool isAbandoned_{};
   Command nextCommand_{1};
   std::uint32_t equalWritesSoFar_{}; ///< begins anew at 1 when there were too many to count
   std::uint64_t commandsLookedAt_{};
   Nuv::Ring<Unanswered> commands_; ///< in line, the newest is the last one issued
   std::size_t answeredInLine_{};
   std::map<Command, Unanswered> stragglers_; ///< unanswered for so long that they left the line
   Nuv::Ring<EqualWrite> equalWrites_;
   std::multimap<Index, Former> formers_; ///< the latest of a row last
   Nuv::Ring<Cleared> cleared_;
   std::vector<Command> parked_; ///< deletes that were refused too often to be issued again at once
};

} // namespace Asic
