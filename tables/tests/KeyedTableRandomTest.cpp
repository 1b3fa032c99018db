#include "chip/model/Faults.h"
#include "chip/model/testing/ChipTest.h"
#include "platform/nuv/testing/Soak.h"
#include "tables/EgrL3Oif2.h"

#include <deque>
#include <random>

namespace ZandorL3Tunnel {
namespace {

using State = Asic::SwTableBase::EntryState;
using Type = EgrL3Oif2::EntryHandle::EntryType;
using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;

constexpr Asic::Index rowCount = 24;
constexpr Asic::Index keyCount = rowCount + 2; // the last two lie outside the hardware table

EgrL3Oif2::Entry
interfaceOf(unsigned value) {
   EgrL3Oif2::Entry entry;
   entry.srcMacAddress = {{2, 0, 0, 0, 0, std::uint8_t(value)}};
   return entry;
}

/// What one key of the table should be like, told in the plainest way.
struct Key {
   struct Command {
      std::uint64_t number{};
      std::optional<unsigned> value; ///< none: the row is cleared
      std::optional<unsigned> before;
   };

   bool isThere{};
   Type type{Type::unset};
   std::vector<Handle> users;
   std::optional<unsigned> value; ///< wanted in hardware
   State state{State::unresolved};
   bool isRefused{};
   bool isEqualWriteDue{}; ///< answered by the loop alone
   bool isOwner{};
   std::optional<unsigned> issued;
   std::deque<Command> unanswered;
};

/// A table of interfaces over a faulty chip, and the plain model beside it.
class Pair {
 public:
   Pair(std::uint32_t seed) : random_(seed) {
      chip_->publish(*stateDatabase_, 0);
      chip_->faultsIs(faults_);
      faults_->answerObserverIs([this](ModelChip::Answer const& answer) { answered(answer); });
      chip_->rowObserverIs(
            [this](ModelChip::Table const& table, Asic::Index index) { applied(table, index); });
      table_->doInit(0, stateDatabase_, chip_->chipInfo());
      ModelChip::Faults::Probabilities probabilities;
      probabilities.refuseWrite = 150;
      probabilities.refuseDelete = 150;
      probabilities.lose = 50;
      probabilities.repeat = 50;
      probabilities.delay = 300;
      faults_->random(seed, probabilities);
   }

   void step() {
      Asic::Index index = draw(keyCount);
      switch (draw(9)) {
      case 0:
      case 1:
         write(index, draw(4), true);
         break;
      case 2:
      case 3:
         write(index, draw(4), false);
         break;
      case 4:
         remove(index);
         break;
      case 5:
         drop(index);
         break;
      default:
         for (auto turns = draw(4); turns > 0; --turns) {
            loop_.runOne();
         }
         if (loop_.idle()) {
            equalWritesAnswered();
         }
         checkAll();
         return;
      }
      check(index);
   }

   void checkAll() {
      for (Asic::Index index = 0; index < keyCount; ++index) {
         check(index);
      }
   }

   /// Without faults and users everything ends. A delete whose answer was lost ends with the next write.
   void finish() {
      faults_->stop();
      for (auto& key : keys_) {
         key.users.clear();
      }
      loop_.runUntilIdle();
      for (Asic::Index index = 0; index < keyCount; ++index) {
         table_->entryCommit(index, interfaceOf(200));
         table_->entryCommit(index, interfaceOf(201));
      }
      loop_.runUntilIdle();
      table_->entryRemoveAll();
      loop_.runUntilIdle();
      EXPECT_EQ(table_->handles().size(), 0u);
      EXPECT_EQ(hardware().rowsPresent(), 0u);
      EXPECT_EQ(hardware().unanswered(), 0u);
   }

 private:
   unsigned draw(unsigned below) { return random_() % below; }
   ModelChip::Table& hardware() const { return *chip_->table("EgrL3Oif2"); }

   void issue(Key& key, std::optional<unsigned> value) {
      key.unanswered.push_back({++commands_, value, key.issued});
      key.issued = value;
      key.isEqualWriteDue = false;
   }

   void write(Asic::Index index, unsigned value, bool isCommit) {
      auto handle = isCommit ? table_->entryCommit(index, interfaceOf(value))
                             : table_->entryRef(index, interfaceOf(value));
      auto& key = keys_[index];
      key.isThere = true;
      if (isCommit) {
         key.type = Type::committed;
      } else if (key.type != Type::committed) {
         key.type = Type::referenceOnly;
      }
      if (isCommit ? draw(2) == 0 : true) {
         key.users.push_back(handle);
      }
      handle = nullptr;
      if (key.value == value) {
         return;
      }
      key.value = value;
      key.isRefused = false;
      if (index >= rowCount) {
         key.state = State::failed;
         return;
      }
      key.state = State::inProgress;
      key.isOwner = true;
      if (key.issued != value) {
         issue(key, value);
      } else if (key.unanswered.empty()) {
         key.isEqualWriteDue = true;
      }
   }

   void equalWritesAnswered() {
      for (auto& key : keys_) {
         if (std::exchange(key.isEqualWriteDue, false)) {
            key.state = State::success;
         }
      }
   }

   // Nobody holds the key any more: its row goes, and it stays until that is confirmed.
   void release(Key& key) {
      key.value.reset();
      key.isEqualWriteDue = false;
      if (key.isOwner && key.issued) {
         key.type = Type::inDeletion;
         key.state = State::inProgress;
         issue(key, std::nullopt);
      } else {
         end(key);
      }
   }

   static void end(Key& key) {
      key.isThere = false;
      key.isOwner = false;
      key.type = Type::unset;
      key.state = State::unresolved;
   }

   void remove(Asic::Index index) {
      table_->entryRemove(index);
      auto& key = keys_[index];
      if (key.isThere && key.type == Type::committed) {
         key.type = Type::referenceOnly;
         if (key.users.empty()) {
            release(key);
         }
      }
   }

   void drop(Asic::Index index) {
      auto& key = keys_[index];
      if (key.users.empty()) {
         return;
      }
      key.users.pop_back();
      if (key.users.empty() && key.type == Type::referenceOnly) {
         release(key);
      }
   }

   void answered(ModelChip::Answer const& answer) {
      auto& key = keys_[answer.index];
      auto& waiting = key.unanswered;
      auto found = std::find_if(waiting.begin(), waiting.end(),
                                [&](auto const& command) { return command.number == answer.command; });
      if (found == waiting.end()) {
         return;
      }
      bool isNewest = found + 1 == waiting.end();
      auto command = *found;
      if (answer.isAccepted) {
         waiting.erase(waiting.begin(), found + 1);
         if (isNewest) {
            confirmed(key, command);
         }
      } else if (isNewest && !command.value) {
         // Issued again, or later: under a new number in any case.
         waiting.back().number = ++commands_;
      } else {
         if (isNewest) {
            key.issued = command.before;
         } else {
            (found + 1)->before = command.before;
         }
         waiting.erase(found);
         if (isNewest && key.value) {
            key.isRefused = true;
            key.state = key.state == State::inProgress ? State::failed : key.state;
         }
      }
   }

   static void confirmed(Key& key, Key::Command const& command) {
      if (command.value && key.value && !key.isRefused) {
         key.state = State::success;
      } else if (!command.value && key.type == Type::inDeletion) {
         end(key);
      } else if (!command.value) {
         key.isOwner = false;
      }
   }

   void applied(ModelChip::Table const& table, Asic::Index index) {
      EXPECT_EQ(table.shape().name, "EgrL3Oif2");
      EXPECT_LT(index, rowCount);
   }

   // Behind all of its commands, the chip's row is the one that stands in the model.
   void checkRow(Asic::Index index, Key const& key) {
      if (!key.unanswered.empty()) {
         return;
      }
      ASSERT_EQ(hardware().hasRow(index), key.issued.has_value());
      if (key.issued) {
         auto mac = ModelChip::EgrL3Oif2::srcMac.unpack(hardware().row(index));
         ASSERT_EQ(mac & 0xFF, *key.issued);
      }
   }

   void check(Asic::Index index) {
      auto const& key = keys_[index];
      SCOPED_TRACE(index);
      auto handle = table_->entryHandle(index);
      ASSERT_EQ(bool(handle), key.isThere);
      ASSERT_EQ(hardware().commandsIssued(), commands_);
      if (index < rowCount) {
         checkRow(index, key);
      }
      if (!handle) {
         return;
      }
      ASSERT_EQ(handle->entryType(), key.type);
      auto tableHeld = key.type == Type::referenceOnly ? 0u : 1u;
      ASSERT_EQ(handle->references() - 1, key.users.size() + tableHeld);
      auto value = key.value ? std::optional(interfaceOf(*key.value)) : std::nullopt;
      ASSERT_EQ(table_->entry(index), value);
      ASSERT_EQ(table_->resolvedEntry(index), value);
      if (!key.isEqualWriteDue) {
         ASSERT_EQ(handle->entryState(), key.state);
      }
   }

   std::mt19937 random_;
   Nuv::ReactionLoop loop_;
   Nuv::Ptr<ModelChip::Chip> chip_ =
         Nuv::make<ModelChip::Chip>(loop_, ModelChip::Chip::Sizes{{"EgrL3Oif2", rowCount}});
   Nuv::Ptr<ModelChip::Faults> faults_ = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<Kallo::EntityManager> stateDatabase_ = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<EgrL3Oif2> table_ = egrL3Oif2Factory("EgrL3Oif2");
   Key keys_[keyCount];
   std::uint64_t commands_{};
};

TEST(KeyedTableRandom, BehavesAsThePlainModelOverAFaultyChip) {
   Nuv::soak(50'000, [](std::uint32_t seed, int steps) {
      Pair pair(seed);
      for (int step = 0; step < steps && !testing::Test::HasFatalFailure(); ++step) {
         SCOPED_TRACE(step);
         pair.step();
         if (step % 64 == 0) {
            pair.checkAll();
         }
      }
      pair.finish();
   });
}

} // namespace
} // namespace ZandorL3Tunnel
