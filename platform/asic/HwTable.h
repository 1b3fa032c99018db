#pragma once

#include "platform/asic/SwTable.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/ReactionLoop.h"

#include <deque>
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
class ZANDOR_EXPORT HwTable : public Nuv::Object, private Nuv::Reaction {
 public:
   static constexpr unsigned maxWords = 8;

   struct Shape {
      Pelm::String name;   ///< the table's name on its chip
      Pelm::String layout; ///< what the rows' bits mean: the util that serves the table knows this name
      Index minIndex{};
      Index numEntries{};
      unsigned wordsPerRow{};
   };

   /// What a row needs to be there while it is in force.
   using Hold = Nuv::Ptr<Nuv::Object const>;

   Shape const& shape() const { return shape_; }
   Index numEntries() const { return shape_.numEntries; }
   Index minIndex() const { return shape_.minIndex; }
   Index maxIndex() const { return shape_.minIndex + shape_.numEntries - 1; }
   bool contains(Index index) const { return index - shape_.minIndex < shape_.numEntries; }

   /// Writes the row at `index`, which the table must contain, for the entry of `owner`. The owner's table
   /// hears the answer, unless a later command for that row came first; it lives until then.
   void rowIs(Index index, std::span<std::uint32_t const> words, SwTable::EntryHandle& owner, Hold hold);

   /// Clears the row at `index`, if `owner` wrote it last: whoever wrote it since keeps it. `table` lives
   /// until the chip has answered; the owner itself may end at once.
   void rowDel(Index index, SwTable::EntryHandle const& owner, SwTable* table);

   /// Commands issued to the chip so far.
   std::uint64_t commandsIssued() const { return nextCommand_ - 1; }
   /// Commands that the chip has not answered.
   std::size_t unanswered() const { return commands_.size(); }

   /// Where the hardware table `name` of a chip is found among the state database's entities.
   static Pelm::String path(UnitId unit, Pelm::String const& name);

 protected:
   using Command = std::uint64_t;

   HwTable(Shape shape, Nuv::ReactionLoop& loop);
   ~HwTable() override;

   /// Queues one command to the chip; without words it clears the row. Must not answer before it returns.
   virtual void issue(Command command, Index index, std::span<std::uint32_t const> words) = 0;

   /// The chip has carried out `command`. Called from the reaction loop, once for each command, in any order.
   void answered(Command command);

   /// The chip is gone: no more answers come, nothing is held for it, and no more commands are issued.
   void abandon();

 private:
   struct Row {
      SwTable::EntryHandle* owner{};
      Command issued{};
      Command confirmed{};
      std::uint64_t equalWrite{}; ///< the newest equal write
      Hold hold;
      bool isPresent{};
   };

   struct Chunk;

   struct Unanswered {
      Index index{};
      bool isAnswered{};
      Nuv::Ptr<SwTable> table;
      Hold hold;
   };

   struct EqualWrite {
      Index index{};
      Command issued{};
      std::uint64_t number{};
      Nuv::Ptr<SwTable> table;
   };

   void react() override;
   Row& row(Index index, std::uint32_t*& words);
   Unanswered* unanswered(Command command);
   void equalRowIs(Index index, Row& row, SwTable::EntryHandle& owner, Hold hold);
   void commandIs(Row& row, Index index, std::span<std::uint32_t const> words, SwTable* table, Hold hold);
   static void confirm(Row const& row, SwTable* table);

   Shape shape_;
   Nuv::Ptr<Nuv::ReactionLoop::Link> loop_;
   std::vector<std::unique_ptr<Chunk>> chunks_;
   bool isAbandoned_{};
   Command nextCommand_{1};
   std::uint64_t equalWritesSoFar_{};
   std::deque<Unanswered> commands_;
   std::deque<EqualWrite> equalWrites_;
};

} // namespace Asic
