#include "chip/model/Faults.h"

#include "chip/model/Chip.h"
#include "platform/nuv/Assert.h"

#include <algorithm>

namespace ModelChip {

void
Faults::orderIs(Order order) {
   if (order.count != 0) {
      orders_.push_back(std::move(order));
   }
}

void
Faults::refuse(Commands commands, std::uint32_t count) {
   orderIs({Kind::refuse, std::move(commands), count, 0});
}

void
Faults::hold(Commands commands, std::uint32_t count) {
   orderIs({Kind::hold, std::move(commands), count, 0});
}

void
Faults::holdAnswers() {
   nextNumber_ = 0;
   hold({});
}

void
Faults::delay(Commands commands, std::uint32_t turns, std::uint32_t count) {
   orderIs({Kind::delay, std::move(commands), turns == 0 ? 0 : count, turns});
}

void
Faults::lose(Commands commands, std::uint32_t count) {
   orderIs({Kind::lose, std::move(commands), count, 0});
}

void
Faults::repeat(Commands commands, std::uint32_t count) {
   orderIs({Kind::repeat, std::move(commands), count, 0});
}

void
Faults::random(std::uint32_t seed, Probabilities const& probabilities) {
   NUV_ASSERT(probabilities.maxTurns >= 1, "a late answer is late by a turn at least");
   random_.seed(seed);
   probabilities_ = probabilities;
}

bool
Faults::releaseAnswer(std::uint32_t number) {
   auto found =
         std::find_if(kept_.begin(), kept_.end(), [&](Kept const& kept) { return kept.number == number; });
   if (found == kept_.end()) {
      return false;
   }
   auto answer = found->answer;
   kept_.erase(found);
   release(answer);
   return true;
}

void
Faults::releaseAll() {
   auto kept = std::move(kept_);
   kept_.clear();
   for (auto const& each : kept) {
      release(each.answer);
   }
}

void
Faults::stop() {
   orders_.clear();
   probabilities_ = {};
   releaseAll();
}

// What is here when the chip goes is never answered.
void
Faults::chipIs(Chip* chip) {
   NUV_ASSERT(!chip || !chip_, "faults serve one chip at a time");
   chip_ = chip;
   kept_.clear();
}

bool
Faults::accepts(Answer const& command) {
   bool isRefused = orderFor(command, true).has_value() ||
                    happens(command.isWrite ? probabilities_.refuseWrite : probabilities_.refuseDelete);
   counts_.refused += isRefused;
   return !isRefused;
}

bool
Faults::takes(Answer const& answer) {
   auto order = orderFor(answer, false);
   auto [kind, commands, count, turns] = order ? std::move(*order) : drawn();
   switch (kind) {
   case Kind::none:
   case Kind::refuse:
      return false;
   case Kind::hold:
      ++counts_.held;
      keep(answer, 0);
      return true;
   case Kind::delay:
      ++counts_.delayed;
      keep(answer, turns);
      return true;
   case Kind::lose:
      ++counts_.lost;
      return true;
   case Kind::repeat:
      ++counts_.repeated;
      if (turns == 0) {
         release(answer);
      } else {
         keep(answer, turns);
      }
      return false;
   }
   return false;
}

void
Faults::answering(Answer const& answer) const {
   if (answerObserver_) {
      answerObserver_(answer);
   }
}

std::optional<Faults::Order>
Faults::orderFor(Answer const& answer, bool isRefusal) {
   auto found = std::find_if(orders_.begin(), orders_.end(), [&](Order const& order) {
      auto const& [table, index, isWrite] = order.commands;
      return (order.kind == Kind::refuse) == isRefusal &&
             (table.empty() || table == answer.table->shape().name) &&
             index.value_or(answer.index) == answer.index &&
             isWrite.value_or(answer.isWrite) == answer.isWrite;
   });
   if (found == orders_.end()) {
      return std::nullopt;
   }
   auto order = *found;
   if (found->count != every && --found->count == 0) {
      orders_.erase(found);
   }
   return order;
}

Faults::Order
Faults::drawn() {
   Order order{Kind::none, {}, 1, 0};
   auto late = [&] { return 1 + std::uint32_t(random_() % probabilities_.maxTurns); };
   if (happens(probabilities_.lose)) {
      order.kind = Kind::lose;
   } else if (happens(probabilities_.repeat)) {
      order.kind = Kind::repeat;
      order.turns = late();
   } else if (happens(probabilities_.delay)) {
      order.kind = Kind::delay;
      order.turns = late();
   }
   return order;
}

void
Faults::keep(Answer const& answer, std::uint32_t turns) {
   kept_.push_back({nextNumber_++, turns, answer});
   if (turns != 0) {
      chip_->loop_->schedule(*this);
   }
}

void
Faults::release(Answer const& answer) {
   if (chip_) {
      chip_->answerIs(answer);
   }
}

// One turn of the loop has passed.
void
Faults::react() {
   bool anyLate = false;
   auto kept = std::move(kept_);
   kept_.clear();
   for (auto& each : kept) {
      if (each.turns == 1) {
         release(each.answer);
         continue;
      }
      each.turns -= each.turns != 0;
      anyLate |= each.turns != 0;
      kept_.push_back(each);
   }
   if (anyLate) {
      chip_->loop_->schedule(*this);
   }
}

} // namespace ModelChip
