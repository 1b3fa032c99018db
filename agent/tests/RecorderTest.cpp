#include "agent/live/Recorder.h"

#include "agent/Agent.h"
#include "agent/tests/KernelTest.h"
#include "agent/tests/StateBuilder.h"
#include "agent/tests/TemporaryFile.h"

#include <chrono>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class RecorderTest : public KernelTest {
 protected:
   void SetUp() override {
      if (!kernel_.isThere()) {
         GTEST_SKIP() << "no network namespace can be made here; RecordingWriterTest covers what is written";
      }
      kernel_.twoRoutersAre();
      kernel_.destinationsAre(3);
   }

   /// What the kernel has now.
   static std::map<IpAddress, Destination> destinationsNow() {
      std::map<IpAddress, Destination> destinations;
      withFreshAgent([&](Agent const& fresh) { destinations = fresh.derivation().destinations(); });
      return destinations;
   }

   TemporaryFile file_;
   RecordingWriter writer_{file_.path(), RecordingWriter::Existing::replaced};
};

TEST_F(RecorderTest, WritesTheStateAndThenWhatIsAnnounced) {
   auto const before = destinationsNow();
   Recorder recorder(loop_, {}, writer_);
   recorder.start();
   runUntil([&] { return recorder.hasState(); });
   kernel_.routeIs("10.255.0.2", 1);
   kernel_.upIs("b1", false);
   auto const rest = StateBuilder::ip("10.255.0.1");
   runUntil([&] { return destinationsNow().at(rest).vias.size() == 1; }); // carrier goes a moment later
   loop_.run_for(20ms);
   recorder.stop(); // what is announced by now is recorded
   auto const after = destinationsNow();
   EXPECT_NE(before, after);

   Agent agent;
   Recording recording(file_.path());
   std::map<std::string, std::map<IpAddress, Destination>> met;
   auto const playback = play(agent, recording, std::nullopt, [&](std::string const& name) {
      met[name] = agent.derivation().destinations();
   });
   EXPECT_THAT(playback.snapshots, ElementsAre("start", "end"));
   EXPECT_FALSE(playback.overrun);
   EXPECT_EQ(met["start"], before);
   EXPECT_EQ(met["end"], after);
}

TEST_F(RecorderTest, WritesTheStateFirstWhateverIsAnnouncedMeanwhile) {
   Recorder recorder(loop_, {}, writer_);
   recorder.start();
   while (!recorder.hasState()) {
      kernel_.routeIs("10.255.0.2", 1);
      kernel_.routeIs("10.255.0.2", 10);
      loop_.run_one_for(50ms);
   }
   recorder.stop();
   Recording recording(file_.path());
   std::set<std::uint8_t> tags;
   std::size_t announcements = 0;
   while (auto const frame = recording.next()) {
      if (frame->kind == FrameKind::dumpReply) {
         EXPECT_EQ(announcements, 0U);
         tags.insert(frame->tag);
      }
      announcements += frame->kind == FrameKind::datagram ? 1 : 0;
   }
   EXPECT_EQ(tags.size(), allDumps().size());
   EXPECT_GT(announcements, 0U);
   Agent agent;
   Recording again(file_.path());
   play(agent, again, std::nullopt);
   EXPECT_EQ(agent.derivation().destinations(), destinationsNow());
}

TEST_F(RecorderTest, NotesThatAnnouncementsWereLost) {
   Recorder recorder(loop_, {.netns = {}, .receiveBuffer = 1}, writer_);
   std::vector<std::string> log;
   recorder.logIs([&](LogLevel, std::string const& text) { log.push_back(text); });
   recorder.start();
   runUntil([&] { return recorder.hasState(); });
   for (int turn = 0; turn < 100; ++turn) {
      kernel_.routeIs("10.255.0.2", static_cast<std::uint32_t>(1 + turn % 2));
   }
   recorder.stop();
   EXPECT_GT(recorder.counters().overruns, 0U);
   EXPECT_FALSE(log.empty());
   Agent agent;
   Recording recording(file_.path());
   EXPECT_TRUE(play(agent, recording, std::nullopt).overrun);
}

TEST_F(RecorderTest, KeepsNoMoreThanItsBoundWhileTheStateIsRead) {
   constexpr std::size_t most = 5000;
   Recorder recorder(loop_, {.netns = {}, .mostBehind = most}, writer_);
   std::vector<std::string> log;
   recorder.logIs([&](LogLevel, std::string const& text) { log.push_back(text); });
   recorder.start();
   for (int turn = 0; turn < 200; ++turn) {
      kernel_.routeIs("10.255.0.2", static_cast<std::uint32_t>(1 + turn % 2));
   }
   runUntil([&] { return recorder.hasState(); });
   kernel_.routeIs("10.255.0.3", 1);
   recorder.stop();
   EXPECT_EQ(recorder.counters().overruns, 0U) << "the kernel lost some by itself";
   EXPECT_EQ(log.size(), 1U);

   std::size_t notes = 0;
   std::size_t before = 0;
   std::size_t after = 0;
   Recording recording(file_.path());
   while (auto const frame = recording.next()) {
      notes += frame->kind == FrameKind::note ? 1 : 0;
      if (frame->kind == FrameKind::datagram) {
         (notes == 0 ? before : after) += frame->payload.size();
      }
   }
   EXPECT_EQ(notes, 1U);
   EXPECT_LE(before, most);
   EXPECT_GT(before, 0U);
   EXPECT_GT(after, 0U); // what came when the state was there
   Agent agent;
   Recording again(file_.path());
   EXPECT_TRUE(play(agent, again, std::nullopt).overrun);
}

TEST_F(RecorderTest, EndsWhereItIsStoppedThoughTheStateIsNotWhole) {
   Recorder recorder(loop_, {}, writer_);
   std::vector<std::string> log;
   recorder.logIs([&](LogLevel, std::string const& text) { log.push_back(text); });
   recorder.start();
   recorder.stop();
   recorder.stop();
   EXPECT_EQ(log.size(), 1U);
   Agent agent;
   Recording recording(file_.path());
   EXPECT_THAT(play(agent, recording, std::nullopt).snapshots, ElementsAre("end"));
}

} // namespace
} // namespace L3TunnelAgent
