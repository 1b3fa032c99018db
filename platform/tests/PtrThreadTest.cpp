#include "platform/nuv/Ptr.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace Nuv {
namespace {

class Counted final : public Object {
 public:
   explicit Counted(int& ends) : ends_(ends) {}
   ~Counted() override { ++ends_; }

 private:
   int& ends_;
};

class ThreadSafePtr {
 public:
   ThreadSafePtr() { threadSafePtrIs(true); }
   ~ThreadSafePtr() { threadSafePtrIs(false); }
};

void
copyOften(Ptr<Counted> const& object) {
   for (int round = 0; round < 100000; ++round) {
      Ptr<Counted> copy(object);
      Ptr<Counted> moved(std::move(copy));
   }
}

TEST(PtrThreadTest, IsOffUntilTheProcessAsksForIt) {
   EXPECT_FALSE(threadSafePtr());
   ThreadSafePtr on;
   EXPECT_TRUE(threadSafePtr());
}

TEST(PtrThreadTest, CountsOfManyThreadsAddUp) {
   ThreadSafePtr on;
   int ends = 0;
   {
      auto object = make<Counted>(ends);
      std::vector<std::thread> threads;
      for (int number = 0; number < 4; ++number) {
         threads.emplace_back([copy = object] { copyOften(copy); });
      }
      for (auto& thread : threads) {
         thread.join();
      }
      EXPECT_EQ(object->references(), 1u);
      EXPECT_EQ(ends, 0);
   }
   EXPECT_EQ(ends, 1);
}

TEST(PtrThreadTest, CountsTheSameInBothModes) {
   for (bool isThreadSafe : {false, true}) {
      threadSafePtrIs(isThreadSafe);
      int ends = 0;
      auto object = make<Counted>(ends);
      {
         Ptr<Counted> second(object);
         EXPECT_EQ(object->references(), 2u);
      }
      EXPECT_EQ(object->references(), 1u);
      EXPECT_TRUE(object->hasNotificationActive());
      object = nullptr;
      EXPECT_EQ(ends, 1);
   }
   threadSafePtrIs(false);
}

} // namespace
} // namespace Nuv
