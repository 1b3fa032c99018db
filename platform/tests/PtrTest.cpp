#include "platform/nuv/Ptr.h"

#include <gtest/gtest.h>

#include <functional>
#include <utility>

namespace Nuv {
namespace {

/// What became of an object.
struct Life {
   int zeroReferences{};
   int ends{};
};

class Counted : public Object {
 public:
   explicit Counted(Life& life) : life_(life) {}
   ~Counted() override {
      ++life_.ends;
      if (atEnd) {
         atEnd(*this);
      }
   }

   std::function<void(Counted&)> atZeroReferences;
   std::function<void(Counted&)> atEnd;

 protected:
   void onZeroReferences() override {
      ++life_.zeroReferences;
      if (atZeroReferences) {
         atZeroReferences(*this);
      }
   }

 private:
   Life& life_;
};

class Derived final : public Counted {
   using Counted::Counted;
};

class Other final : public Object {};

class PtrTest : public testing::Test {
 protected:
   Life life;
};

TEST_F(PtrTest, EveryPointerCountsOnce) {
   Ptr<Counted> first = make<Counted>(life);
   EXPECT_EQ(first->references(), 1u);
   {
      Ptr<Counted> second = first;
      Ptr<Object> third = second;
      Ptr<Counted const> fourth(first.get());
      EXPECT_EQ(first->references(), 4u);
   }
   EXPECT_EQ(first->references(), 1u);
   EXPECT_EQ(life.zeroReferences, 0);
}

TEST_F(PtrTest, TheLastReferenceEndsTheObject) {
   Ptr<Counted> first = make<Counted>(life);
   Ptr<Counted> second = first;
   first = nullptr;
   EXPECT_EQ(life.ends, 0);
   second = nullptr;
   EXPECT_EQ(life.zeroReferences, 1);
   EXPECT_EQ(life.ends, 1);
}

TEST_F(PtrTest, ReferencesWithoutPointersCountToo) {
   auto* object = new Counted(life);
   object->referenceAdd();
   object->referenceAdd();
   object->referenceDel();
   EXPECT_EQ(object->references(), 1u);
   EXPECT_EQ(life.ends, 0);
   object->referenceDel();
   EXPECT_EQ(life.ends, 1);
}

TEST_F(PtrTest, AReferenceKeptAtTheEndKeepsTheObject) {
   Ptr<Counted> kept;
   Ptr<Counted> object = make<Counted>(life);
   object->atZeroReferences = [&](Counted& self) { kept = Ptr<Counted>(&self); };
   object = nullptr;
   EXPECT_EQ(life.zeroReferences, 1);
   EXPECT_EQ(life.ends, 0);
   ASSERT_TRUE(kept);
   EXPECT_EQ(kept->references(), 1u);

   kept->atZeroReferences = nullptr;
   kept = nullptr;
   EXPECT_EQ(life.zeroReferences, 2);
   EXPECT_EQ(life.ends, 1);
}

TEST_F(PtrTest, ReferencesTakenAndDroppedAtTheEndStartNoSecondOne) {
   Ptr<Counted> object = make<Counted>(life);
   object->atZeroReferences = [](Counted& self) {
      for (int round = 0; round < 3; ++round) {
         Ptr<Counted> passing(&self);
         EXPECT_EQ(self.references(), 1u);
      }
   };
   object = nullptr;
   EXPECT_EQ(life.zeroReferences, 1);
   EXPECT_EQ(life.ends, 1);
}

TEST_F(PtrTest, ReferencesTakenAndDroppedByTheDestructorStartNoSecondEnd) {
   Ptr<Counted> object = make<Counted>(life);
   object->atEnd = [](Counted& self) { Ptr<Counted> passing(&self); };
   object = nullptr;
   EXPECT_EQ(life.zeroReferences, 1);
   EXPECT_EQ(life.ends, 1);
}

// NOLINTBEGIN(bugprone-use-after-move): what a pointer is after it was moved is what this is about.
TEST_F(PtrTest, MovingTakesTheReferenceAlong) {
   Ptr<Derived> derived = make<Derived>(life);
   Ptr<Derived> moved = std::move(derived);
   EXPECT_FALSE(derived);
   EXPECT_EQ(moved->references(), 1u);
   Ptr<Counted> base = std::move(moved);
   EXPECT_FALSE(moved);
   EXPECT_EQ(base->references(), 1u);
   Ptr<Counted> assigned;
   assigned = std::move(base);
   EXPECT_FALSE(base);
   EXPECT_EQ(assigned->references(), 1u);
}
// NOLINTEND(bugprone-use-after-move)

TEST_F(PtrTest, AssigningAPointerToItselfChangesNothing) {
   Ptr<Counted> object = make<Counted>(life);
   auto& same = object;
   object = same;
   EXPECT_EQ(object->references(), 1u);
   object = std::move(same);
   ASSERT_TRUE(object);
   EXPECT_EQ(object->references(), 1u);
   EXPECT_EQ(life.zeroReferences, 0);
}

TEST_F(PtrTest, AssigningEndsTheOldObjectWhenTheNewOneIsInPlace) {
   Life newLife;
   Ptr<Counted> pointer = make<Counted>(life);
   Ptr<Counted> next = make<Counted>(newLife);
   Counted* seen = nullptr;
   pointer->atZeroReferences = [&](Counted&) { seen = pointer.get(); };
   pointer = next;
   EXPECT_EQ(seen, next.get());
   EXPECT_EQ(life.ends, 1);
   EXPECT_EQ(next->references(), 2u);
}

TEST_F(PtrTest, ADetachedReferenceIsTheCallers) {
   Ptr<Counted> pointer = make<Counted>(life);
   Counted* object = pointer.detach();
   EXPECT_FALSE(pointer);
   EXPECT_EQ(object->references(), 1u);
   object->referenceDel();
   EXPECT_EQ(life.ends, 1);
}

TEST_F(PtrTest, PointersAreEqualWhenTheyPointAtTheSameObject) {
   Ptr<Derived> derived = make<Derived>(life);
   Ptr<Counted> base = derived;
   Ptr<Counted const> constant = base;
   Ptr<Counted> another = make<Counted>(life);
   EXPECT_TRUE(base == derived);
   EXPECT_TRUE(derived == base);
   EXPECT_TRUE(constant == base);
   EXPECT_TRUE(base != another);
   EXPECT_TRUE(base != nullptr);
   EXPECT_TRUE(Ptr<Counted>() == nullptr);
   EXPECT_TRUE(Ptr<Counted>() == Ptr<Counted>(nullptr));
}

TEST_F(PtrTest, ADynamicCastToAnotherTypeIsNull) {
   Ptr<Object> object = make<Derived>(life);
   EXPECT_EQ(dynamicCast<Counted>(object).get(), object.get());
   EXPECT_EQ(object->references(), 1u);
   EXPECT_FALSE(dynamicCast<Other>(object));
   EXPECT_FALSE(dynamicCast<Other>(Ptr<Object>()));
}

TEST_F(PtrTest, NotificationsAreOffUntilTheFactorySwitchesThemOn) {
   Ptr<Counted> silent(new Counted(life));
   EXPECT_FALSE(silent->hasNotificationActive());
   EXPECT_TRUE(make<Counted>(life)->hasNotificationActive());
}

TEST_F(PtrTest, SwitchingNotificationsLeavesTheCountAlone) {
   Ptr<Counted> object = make<Counted>(life);
   Ptr<Counted> second = object;
   object->hasNotificationActiveIs(false);
   EXPECT_FALSE(object->hasNotificationActive());
   EXPECT_EQ(object->references(), 2u);
   object->hasNotificationActiveIs(true);
   EXPECT_TRUE(object->hasNotificationActive());
   second = nullptr;
   EXPECT_EQ(object->references(), 1u);
   EXPECT_EQ(life.zeroReferences, 0);
}

TEST(PtrDeathTest, GivingBackAReferenceThatNobodyHoldsStopsTheProcess) {
   EXPECT_DEATH(
         {
            Life life;
            Counted object(life);
            object.referenceDel();
         },
         "references > 0.*reference count out of range");
}

} // namespace
} // namespace Nuv
