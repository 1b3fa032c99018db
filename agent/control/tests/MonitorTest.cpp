#include "agent/control/tests/ServedAgent.h"
#include "agent/control/tests/TestClient.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

std::vector<std::string>
linesOf(std::string const& text) {
   std::vector<std::string> lines;
   std::istringstream in(text);
   for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
   }
   return lines;
}

/// The last one that changes as the recording is played from one snapshot to the next.
TEST(MonitorTest, ChangesAreToldAsTheyHappen) {
   ServedAgent served;
   TestClient monitor(served.path());
   monitor.ask({"monitor"});
   EXPECT_THAT(monitor.textTo("changes follow"),
               MatchesRegex("20..-..-..T..:..:..[.]...Z 54 destinations, changes follow\n"));
   auto const before = served.inLoop([&] { return pictureOf(served.agent()); });
   served.playTo("01-swp1-down");
   auto const after = served.inLoop([&] { return pictureOf(served.agent()); });
   TestClient last(served.path());
   last.ask({"audit"});
   last.all();
   monitor.shutdownSend();
   std::string text;
   for (auto part = monitor.textTo("\n"); !part.ends_with("(the end)"); part = monitor.textTo("\n")) {
      text += part;
   }
   std::map<std::string, std::string> lastLine;
   for (auto const& line : linesOf(text)) {
      EXPECT_THAT(line, ContainsRegex(
                              "^20..-..-..T..:..:..[.]...Z [0-9a-f.:]+ (changed|new|gone): state [a-zA-Z]+"));
      auto const address = line.substr(25, line.find(' ', 25) - 25);
      lastLine[address] = line;
   }
   // Whatever differs in the end was told of, with what it came to.
   int differing = 0;
   for (auto const& [address, destination] : after.destinations) {
      auto const found = before.destinations.find(address);
      if (found == before.destinations.end() || !(found->second == destination)) {
         ++differing;
         EXPECT_THAT(lastLine[address.text()], HasSubstr("changed: state "));
         EXPECT_THAT(lastLine[address.text()], HasSubstr(blockText(destination)));
      }
   }
   EXPECT_GT(differing, 10);
}

TEST(MonitorTest, LineSaysWhatIsAnotherThanBefore) {
   Picture::Destination const before{
         .state = "success", .group = 7, .block = 3, .paths = 2, .vias = {"a", "b"}, .reason = {}};
   auto after = before;
   after.block = 9;
   after.vias = {"b", "c"};
   auto const time = WallTime(1763762645s + 7ms);
   auto const address = *IpAddress::parse("10.0.0.1");
   auto const line = [&](auto const& from, auto const& to) {
      return text(Change{.destination = address, .before = from, .after = to}, time, Paint());
   };
   using Optional = std::optional<Picture::Destination>;
   EXPECT_EQ(line(Optional(before), Optional(after)), "2025-11-21T22:04:05.007Z 10.0.0.1 changed: state "
                                                      "success, group 7, block 3 of 2 -> 9 of 2, - a, + c");
   EXPECT_EQ(line(Optional(), Optional(before)),
             "2025-11-21T22:04:05.007Z 10.0.0.1 new: state none -> success, "
             "group - -> 7, block - -> 3 of 2, + a, + b");
   EXPECT_EQ(line(Optional(before), Optional()),
             "2025-11-21T22:04:05.007Z 10.0.0.1 gone: state success -> none, "
             "group 7 -> -, block 3 of 2 -> -, - a, - b");
   after.state = "failed";
   after.reason = "no room";
   EXPECT_THAT(line(Optional(before), Optional(after)),
               AllOf(HasSubstr("state success -> failed, "), HasSubstr(", reason: no room, - a")));
   EXPECT_THAT(text(Change{.destination = address, .before = before, .after = after}, time, Paint(true)),
               HasSubstr("\x1b["));
}

TEST(MonitorTest, JsonLinesAreThoseOfShow) {
   ServedAgent served;
   TestClient monitor(served.path());
   monitor.ask({"monitor", "--json"});
   auto const start = json::parse(monitor.textTo("start"));
   EXPECT_EQ(start.at("change"), "start");
   EXPECT_EQ(start.at("destinations"), 54);
   served.playTo("01-swp1-down");
   auto const shown = json::parse(answerTo(served.path(), {"show", "destinations", "--json"}).output);
   monitor.shutdownSend();
   std::map<std::string, json> last;
   for (auto line = monitor.textTo("\n"); !line.ends_with("(the end)"); line = monitor.textTo("\n")) {
      auto const change = json::parse(line);
      EXPECT_EQ(change.at("change"), "changed");
      for (auto const* key : {"state", "reason", "group", "block"}) {
         EXPECT_TRUE(change.at("before").contains(key)) << line;
      }
      last[change.at("vtep")] = change.at("after");
   }
   EXPECT_GT(last.size(), 10U);
   for (auto const& destination : shown.at("destinations")) {
      if (auto const found = last.find(destination.at("vtep")); found != last.end()) {
         EXPECT_EQ(found->second, destination);
      }
   }
}

TEST(MonitorTest, SeveralFollowEachInItsForm) {
   ServedAgent served;
   TestClient plain(served.path());
   TestClient coloured(served.path());
   TestClient structured(served.path());
   plain.ask({"monitor"});
   coloured.send(bytesOf(Request{.words = {"monitor"}, .isColoured = true}));
   structured.ask({"monitor", "--json"});
   plain.textTo("changes follow");
   coloured.textTo("changes follow");
   structured.textTo("start");
   served.playTo("01-swp1-down");
   EXPECT_THAT(plain.textTo(" changed: "), Not(HasSubstr("\x1b[")));
   EXPECT_THAT(coloured.textTo(" changed: "), HasSubstr("\x1b["));
   EXPECT_THAT(structured.textTo("changed"), HasSubstr("{\"time\":\""));
}

TEST(MonitorTest, NothingIsToldOfWhatDidNotChange) {
   ServedAgent served;
   TestClient monitor(served.path());
   monitor.ask({"monitor"});
   monitor.textTo("changes follow");
   served.inLoop([&] {
      std::vector<IpAddress> all;
      for (auto const& [address, destination] : served.agent().fabric().destinations()) {
         all.push_back(address);
      }
      all.push_back(*IpAddress::parse("192.0.2.1"));
      served.service().changedAre(all);
   });
   monitor.shutdownSend();
   EXPECT_EQ(monitor.textTo("never"), "(the end)");
}

/// Makes one destination come and go, which is two changes each time.
void
flap(ServedAgent& served, int times) {
   auto const address = *IpAddress::parse("192.0.2.1");
   served.inLoop([&] {
      for (int count = 0; count < times; ++count) {
         served.agent().fabric().destinationIs({.address = address, .vias = {}, .reason = "a test"});
         served.agent().fabric().settle();
         served.service().changedAre({address});
         served.agent().fabric().destinationDel(address);
         served.agent().fabric().settle();
         served.service().changedAre({address});
      }
   });
}

TEST(MonitorTest, TooSlowReaderIsToldHowManyItMissed) {
   ControlService::Settings settings;
   settings.limits.mostChanges = 32 * 1024;
   ServedAgent served("mixed", settings);
   for (auto const* form : {"", "--json"}) {
      TestClient slow(served.path());
      slow.ask(*form ? std::vector<std::string>{"monitor", form} : std::vector<std::string>{"monitor"});
      slow.textTo(*form ? "start" : "changes follow");
      auto const missedBefore = served.counters().changesLeftOut;
      constexpr int times = 2000;
      flap(served, times);
      EXPECT_EQ(answerTo(served.path(), {"audit"}).exitCode, 0);
      // What it reads now says how many it missed, and goes on behind that.
      auto text = slow.textTo(*form ? "leftOut" : " left out here");
      auto const lines = linesOf(text);
      auto const missed = served.counters().changesLeftOut - missedBefore;
      EXPECT_EQ(lines.size() - 1 + missed, 2U * times);
      EXPECT_GT(missed, 1000U);
      if (*form) {
         EXPECT_EQ(json::parse(lines.back()).at("count"), missed);
      } else {
         EXPECT_THAT(lines.back(), EndsWith(" " + std::to_string(missed) +
                                            " changes were left out here: they were read too slowly"));
      }
      flap(served, 1);
      EXPECT_THAT(slow.textTo("gone"), HasSubstr("192.0.2.1"));
   }
}

TEST(MonitorTest, FollowersLeaveRoomForOthersAndAreForgottenWhenTheyGo) {
   ControlService::Settings settings;
   settings.mostMonitors = 2;
   ServedAgent served("mixed", settings);
   {
      TestClient one(served.path());
      TestClient two(served.path());
      one.ask({"monitor"});
      two.ask({"monitor"});
      one.textTo("changes follow");
      two.textTo("changes follow");
      EXPECT_EQ(served.counters().monitors, 2U);
      auto const third = answerTo(served.path(), {"monitor"});
      EXPECT_THAT(third.complaint, HasSubstr("too many clients that follow"));
      EXPECT_EQ(third.exitCode, 4);
      EXPECT_EQ(answerTo(served.path(), {"audit"}).exitCode, 0);
   }
   auto const end = std::chrono::steady_clock::now() + 10s;
   while (served.counters().monitors != 0 && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(2ms);
   }
   EXPECT_EQ(served.counters().monitors, 0U);
   flap(served, 1);
}

TEST(MonitorTest, FollowerWhoSpeaksIsSentAway) {
   ServedAgent served;
   TestClient monitor(served.path());
   monitor.ask({"monitor"});
   monitor.textTo("changes follow");
   monitor.send("more");
   EXPECT_TRUE(monitor.isClosedWithin(5s));
}

} // namespace
} // namespace L3TunnelAgent
