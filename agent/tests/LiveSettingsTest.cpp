#include "agent/live/Recorder.h"
#include "agent/tests/TemporaryFile.h"
#include "agent/tests/TwoWaysTest.h"

#include <fstream>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;

/// A kernel's settings, which it tells in messages of their own.
class LiveSettingsTest : public TwoWaysTest {
 protected:
   void SetUp() override {
      TwoWaysTest::SetUp();
      if (kernel_.isThere()) {
         waysAre("vx", "10.255.0.1", both);
      }
   }

   /// @return whether settings can be changed here.
   static bool set(char const* device, char value) {
      std::string const file =
            std::string("/proc/sys/net/ipv4/conf/") + device + "/ignore_routes_with_linkdown";
      std::ofstream(file) << value;
      return std::ifstream(file).get() == value;
   }

   std::vector<std::string> const both{"10.1.0.1", "10.2.0.1"};
   std::vector<std::string> const second{"10.2.0.1"};
};

constexpr auto cannotBeSet = "settings cannot be changed here; SettingMessagesTest covers what follows";

TEST_F(LiveSettingsTest, TheOneForAllDevicesIsReadAndFollowed) {
   if (!set("all", '1')) {
      GTEST_SKIP() << cannotBeSet;
   }
   start();
   runUntilWaysAre(both);
   kernel_.upIs("a1", false);
   runUntilDerived([&] { return !live_->agent().kernel().link(kernel_.index("a0"))->hasCarrier(); });
   EXPECT_EQ(ways(live_->agent()), second) << "before the routes are read again, which say so too";
   set("all", '0');
   runUntilWaysAre(both);
   set("all", '1');
   runUntilWaysAre(second);
   kernel_.upIs("a1", true);
   runUntilWaysAre(both);
}

TEST_F(LiveSettingsTest, TheOneForAllDevicesIsInRecordings) {
   if (!set("all", '1')) {
      GTEST_SKIP() << cannotBeSet;
   }
   TemporaryFile file;
   RecordingWriter writer(file.path(), RecordingWriter::Existing::replaced);
   Recorder recorder(loop_, {}, writer);
   recorder.start();
   runUntil([&] { return recorder.hasState(); });
   kernel_.upIs("a1", false);
   runUntil([&] { return waysNow() == second; });
   loop_.run_for(20ms);
   recorder.stop();

   std::map<std::string, std::vector<std::string>> met;
   Agent agent;
   Recording recording(file.path());
   play(agent, recording, std::nullopt, [&](std::string const& name) { met[name] = ways(agent); });
   EXPECT_EQ(met["start"], both);
   EXPECT_EQ(met["end"], second);
}

TEST_F(LiveSettingsTest, ADevicesOwnIsFollowed) {
   start();
   runUntilWaysAre(both);
   if (!set("a0", '1')) {
      GTEST_SKIP() << cannotBeSet;
   }
   auto const isIgnored = [&] { return live_->agent().kernel().link(kernel_.index("a0"))->ignoreLinkdown; };
   EXPECT_FALSE(isIgnored());
   runUntil(isIgnored);
}

TEST_F(LiveSettingsTest, TheOneForDevicesMadeLaterHasTheStateReadAgain) {
   start();
   runUntilWaysAre(both);
   if (!set("default", '1')) {
      GTEST_SKIP() << cannotBeSet;
   }
   // It is also that of devices that never had an address, of which the kernel says nothing.
   runUntil([&] { return live_->agent().kernel().link(kernel_.index("a1"))->ignoreLinkdown; });
   EXPECT_FALSE(live_->agent().kernel().link(kernel_.index("a0"))->ignoreLinkdown);
}

TEST_F(LiveSettingsTest, OneThatChangesWhileTheStateIsReadFirstIsHeeded) {
   start();
   while (live_->counters().dumps < 3) { // settings, links and bridge ports
      ASSERT_NE(loop_.run_one_for(20s), 0U);
   }
   if (!set("a0", '1')) {
      GTEST_SKIP() << cannotBeSet;
   }
   runUntil([&] {
      auto const* const link = live_->agent().kernel().link(kernel_.index("a0"));
      return link && link->ignoreLinkdown;
   });
}

} // namespace
} // namespace L3TunnelAgent
