#include "platform/trace/Duolog.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace Trace {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TraceTest : public testing::Test {
 protected:
   TraceTest() {
      sinkIs([this](TraceHandle const& from, unsigned level, Pelm::StringView text) {
         lines.push_back(Nuv::text(from.name(), " ", level, " ", text));
      });
   }
   ~TraceTest() override { sinkIs({}); }

   unsigned evaluated() { return ++evaluations; }

   TraceHandle handle{"Test"};
   std::vector<Pelm::String> lines;
   unsigned evaluations{};
};

TEST_F(TraceTest, AllLevelsAreClosedAtFirst) {
   for (unsigned level = 0; level <= TraceHandle::maxLevel; ++level) {
      EXPECT_FALSE(handle.isOpen(level));
   }
}

TEST_F(TraceTest, LevelsBeyondTheLastAreClosedForGood) {
   handle.levelsAre(~0u);
   for (unsigned level : {32u, 33u, 64u, 0xffffffffu}) {
      EXPECT_FALSE(handle.isOpen(level)) << level;
   }
}

TEST_F(TraceTest, AHandleIsFoundByItsName) {
   auto& first = handleOf("TraceTest first");
   first.levelsAre(1u << 5);
   EXPECT_EQ(first.name(), "TraceTest first");
   EXPECT_EQ(&handleOf("TraceTest first"), &first);
   EXPECT_TRUE(handleOf("TraceTest first").isOpen(5));
   EXPECT_FALSE(handleOf("TraceTest second").isOpen(5));
}

TEST_F(TraceTest, LevelsOpenAndCloseTogether) {
   handle.levelsAre(1u << 5 | 1u << 31);
   EXPECT_TRUE(handle.isOpen(5));
   EXPECT_TRUE(handle.isOpen(31));
   EXPECT_FALSE(handle.isOpen(4));
   handle.levelsAre(1u << 4);
   EXPECT_TRUE(handle.isOpen(4));
   EXPECT_FALSE(handle.isOpen(5));
}

TEST_F(TraceTest, AClosedLevelEvaluatesNothing) {
   handle.levelsAre(~(1u << 5));
   DUOLOG(handle, 5, "value ", evaluated());
   EXPECT_EQ(evaluations, 0u);
   EXPECT_THAT(lines, IsEmpty());
}

TEST_F(TraceTest, TheLineOfAnOpenLevelReachesTheSink) {
   handle.levelsAre(1u << 5);
   DUOLOG(handle, 5, "value ", evaluated(), ", ", true);
   DUOLOG(handle, 4, "value ", evaluated());
   DUOLOG(handle, 5, "end");
   EXPECT_EQ(evaluations, 1u);
   EXPECT_THAT(lines, ElementsAre("Test 5 value 1, True", "Test 5 end"));
}

TEST_F(TraceTest, TheHandleIsAskedForOnce) {
   handle.levelsAre(~0u);
   auto asked = [this]() -> TraceHandle const& {
      ++evaluations;
      return handle;
   };
   DUOLOG(asked(), 1, "text");
   EXPECT_EQ(evaluations, 1u);
   EXPECT_THAT(lines, ElementsAre("Test 1 text"));
}

TEST_F(TraceTest, WithoutASinkLinesGoToStandardError) {
   handle.levelsAre(~0u);
   sinkIs({});
   testing::internal::CaptureStderr();
   DUOLOG(handle, 7, "to standard error ", 42);
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "Test/7 to standard error 42\n");
   EXPECT_THAT(lines, IsEmpty());
}

/// Logs when static objects are destroyed, after every one that was made later than it.
struct Late {
   ~Late() { DUOLOG(*handle, 5, "logged late"); }

   TraceHandle* handle{};
};

TEST(TraceDeathTest, DestructorsOfStaticObjectsMayLog) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
         {
            static Late late;
            late.handle = &handleOf("a handle with a name of some length");
            late.handle->levelsAre(~0u);
            sinkIs([prefix = Pelm::String("a sink that has something on the heap: ")](
                         TraceHandle const& from, unsigned, Pelm::StringView text) {
               std::fprintf(stderr, "%s\n", Nuv::text(prefix, from.name(), ", ", text).c_str());
            });
            std::exit(0);
         },
         testing::ExitedWithCode(0), "on the heap: a handle with a name of some length, logged late");
}

} // namespace
} // namespace Trace
