#pragma once

#include "platform/asic/Index.h"
#include "platform/nuv/Ptr.h"
#include "platform/nuv/ReactionLoop.h"
#include "platform/pelm/String.h"

#include <functional>
#include <limits>
#include <optional>
#include <random>
#include <vector>

namespace ModelChip {

class Chip;
class Table;

/// What the chip says to one command of `table`.
struct Answer {
   Table* table{};
   std::uint64_t command{};
   Asic::Index index{};
   bool isWrite{};
   bool isAccepted{};
};

/// What goes wrong in a chip, as a test asks for it: commands that are refused, and answers that are held,
/// late, lost, or come twice. Commands are carried out in the order of issue all the same.
///
/// It serves one chip at a time (`Chip::faultsIs`). Orders are tried in the order in which they were given:
/// the first one that concerns a command decides whether it is refused, and the first of the others what
/// becomes of its answer. What no order concerns is left to the probabilities.
class Faults final : public Nuv::Object, private Nuv::Reaction {
 public:
   /// Which commands an order concerns; what is left out concerns all.
   struct Commands {
      Pelm::String table;               ///< the hardware table's name
      std::optional<Asic::Index> index; ///< the row
      std::optional<bool> isWrite;      ///< writes or deletes
   };

   /// As a count: without end.
   static constexpr std::uint32_t every = std::numeric_limits<std::uint32_t>::max();

   /// The next `count` such commands are refused: their rows stay as they are.
   void refuse(Commands commands, std::uint32_t count = every);

   /// The answers of the next `count` such commands stay here until they are released.
   void hold(Commands commands, std::uint32_t count = every);
   /// The same for all answers from here on; their numbers begin anew at 0.
   void holdAnswers();

   /// They are late by `turns` turns of the loop, in each of which all that was queued before it runs.
   void delay(Commands commands, std::uint32_t turns, std::uint32_t count = every);
   void lose(Commands commands, std::uint32_t count = every);
   /// They come twice.
   void repeat(Commands commands, std::uint32_t count = every);

   /// Parts of 1000, each drawn for itself.
   struct Probabilities {
      unsigned refuseWrite{};
      unsigned refuseDelete{};
      unsigned lose{};
      unsigned repeat{};
      unsigned delay{};
      unsigned maxTurns{8}; ///< how late an answer is at the most, at least 1
   };

   /// From here on faults are also drawn, the same ones for the same seed and commands. A repeated answer
   /// comes again late.
   void random(std::uint32_t seed, Probabilities const& probabilities);

   /// How many answers are held or late.
   std::size_t answersHere() const { return kept_.size(); }

   /// Releases the answer that was held or delayed as number `number`, from 0; false when it is not here.
   /// The loop delivers released answers in the order of their release.
   bool releaseAnswer(std::uint32_t number);
   /// Releases all that are here, in the order of their numbers. Later ones are held as before.
   void releaseAll();

   /// No more faults: orders and probabilities are forgotten, and all answers that are here are released.
   void stop();

   /// What has gone wrong so far.
   struct Counts {
      std::uint64_t refused{};
      std::uint64_t held{};
      std::uint64_t delayed{};
      std::uint64_t lost{};
      std::uint64_t repeated{};
   };
   Counts const& counts() const { return counts_; }

   /// Called with each answer just before its table hears it, lost ones never.
   using AnswerObserver = std::function<void(Answer const&)>;
   void answerObserverIs(AnswerObserver observer) { answerObserver_ = std::move(observer); }

 private:
   friend class Chip;

   enum class Kind : std::uint8_t { none, refuse, hold, delay, lose, repeat };

   struct Order {
      Kind kind;
      Commands commands;
      std::uint32_t count;
      std::uint32_t turns;
   };

   struct Kept {
      std::uint32_t number;
      std::uint32_t turns; ///< 0: until released
      Answer answer;
   };

   void chipIs(Chip* chip);
   bool accepts(Answer const& command);
   /// Whether the answer is not to be delivered now.
   bool takes(Answer const& answer);
   void answering(Answer const& answer) const;

   void react() override;
   void orderIs(Order order);
   std::optional<Order> orderFor(Answer const& answer, bool isRefusal);
   Order drawn();
   bool happens(unsigned probability) { return random_() % 1000 < probability; }
   void keep(Answer const& answer, std::uint32_t turns);
   void release(Answer const& answer);

   Chip* chip_{};
   std::vector<Order> orders_;
   Probabilities probabilities_;
   std::mt19937 random_;
   std::vector<Kept> kept_;
   std::uint32_t nextNumber_{};
   Counts counts_;
   AnswerObserver answerObserver_;
};

} // namespace ModelChip
