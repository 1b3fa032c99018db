#include "agent/RoundReader.h"
#include "agent/MessageReader.h"
#include "agent/tests/Expected.h"
#include "agent/tests/MessageBuilder.h"
#include "agent/tests/RecordingBuilder.h"
#include "agent/tests/TemporaryFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace L3TunnelAgent {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr auto dumpReply = FrameKind::dumpReply;
constexpr auto datagram = FrameKind::datagram;
constexpr auto marker = FrameKind::marker;
constexpr auto note = FrameKind::note;

/// @return each round in one word: payloads in a row, the snapshot's name in angle brackets, or "overrun".
std::vector<std::string>
roundsOf(RecordingBuilder const& builder) {
   TemporaryFile file;
   file.write(builder.bytes());
   Recording recording(file.path());
   RoundReader reader(recording);
   std::vector<std::string> result;
   std::string taken;
   auto const take = [&](Frame const& frame) {
      taken.append(reinterpret_cast<char const*>(frame.payload.data()), frame.payload.size());
   };
   while (auto const round = reader.next(take)) {
      EXPECT_EQ(round->frames, taken.size()) << "each has one letter";
      EXPECT_FALSE(round->frames != 0 && (round->snapshot || round->overrun));
      result.push_back(round->snapshot  ? "<" + *round->snapshot + ">"
                       : round->overrun ? "overrun"
                                        : std::exchange(taken, {}));
   }
   EXPECT_FALSE(reader.next(take)) << "the end stays the end";
   return result;
}

RecordingBuilder
recordingOf(std::string_view markerText) {
   return RecordingBuilder().frame(datagram, 1, "a").frame(marker, 2, markerText);
}

std::vector<std::byte>
neighbourMessage() {
   MessageBuilder message(RTM_NEWNEIGH,
                          ndmsg{.ndm_family = AF_INET, .ndm_ifindex = 3, .ndm_state = NUD_STALE});
   return message.ip(NDA_DST, "10.0.0.1").mac(NDA_LLADDR, "02:00:00:00:00:01").datagram();
}

} // namespace

TEST(RoundReader, DumpRepliesAreOneRoundWheneverTheyCame) {
   EXPECT_THAT(roundsOf(RecordingBuilder()
                              .frame(marker, 1, R"({"marker": "start"})")
                              .frame(dumpReply, 2, "a")
                              .frame(dumpReply, 5'000'000, "b")
                              .frame(marker, 6'000'000, R"({"marker": "dump-end"})")
                              .frame(datagram, 6'000'001, "c")),
               ElementsAre("ab", "c"));
   EXPECT_THAT(roundsOf(RecordingBuilder().frame(dumpReply, 2, "a").frame(datagram, 2, "b")),
               ElementsAre("a", "b"));
   EXPECT_THAT(roundsOf(RecordingBuilder().frame(datagram, 2, "a").frame(dumpReply, 2, "b")),
               ElementsAre("a", "b"));
}

TEST(RoundReader, AnnouncementsOfOneMillisecondAreOneRound) {
   EXPECT_THAT(roundsOf(RecordingBuilder()
                              .frame(datagram, 7'000'000, "a")
                              .frame(datagram, 7'999'999, "b")
                              .frame(datagram, 8'000'000, "c")
                              .frame(datagram, 9'000'000, "d")),
               ElementsAre("ab", "c", "d"));
}

TEST(RoundReader, MarkerEndsARoundAndASnapshotIsReported) {
   EXPECT_THAT(roundsOf(RecordingBuilder()
                              .frame(datagram, 7, "a")
                              .frame(marker, 8, R"({"marker": "event", "op": "x"})")
                              .frame(datagram, 9, "b")
                              .frame(marker, 10, R"({"marker": "snapshot", "dir": "01-down"})")
                              .frame(marker, 11, R"({"marker": "snapshot", "dir": "02-up"})")
                              .frame(datagram, 12, "c")),
               ElementsAre("a", "b", "<01-down>", "<02-up>", "c"));
}

TEST(RoundReader, LostAnnouncementsAreReportedWhereTheyWereLost) {
   EXPECT_THAT(roundsOf(RecordingBuilder()
                              .frame(datagram, 7, "a")
                              .frame(note, 7, "ENOBUFS")
                              .frame(datagram, 7, "b")
                              .frame(note, 8, "something else")),
               ElementsAre("a", "overrun", "b"));
}

TEST(RoundReader, DumpThatWasInterruptedIsReportedWithItsFrames) {
   auto const reply = [](std::uint16_t flags) {
      return MessageBuilder(NLMSG_DONE, 0, static_cast<std::uint16_t>(NLM_F_MULTI | flags)).datagram();
   };
   auto whole = reply(0);
   auto const cut = reply(NLM_F_DUMP_INTR);
   auto const isReported = [](FrameKind kind, std::vector<std::byte> const& payload) {
      TemporaryFile file;
      file.write(RecordingBuilder().frame(kind, 1, payload).bytes());
      Recording recording(file.path());
      KernelState state;
      auto const round = RoundReader(recording).next(state);
      return round && round->frames == 1 && round->overrun;
   };
   EXPECT_FALSE(isReported(dumpReply, whole));
   EXPECT_TRUE(isReported(dumpReply, cut));
   EXPECT_FALSE(isReported(datagram, cut)) << "the flag is one of replies";
   whole.insert(whole.end(), cut.begin(), cut.end());
   EXPECT_TRUE(isReported(dumpReply, whole)) << "whichever message says so";
}

TEST(RoundReader, NothingIsNoRound) {
   EXPECT_THAT(roundsOf(RecordingBuilder()), testing::IsEmpty());
}

TEST(RoundReader, MarkerThatIsNoneIsAnErrorAfterTheRoundBeforeIt) {
   for (auto const* const text : {"", "{", "[1]", "7", "\"snapshot\"", "\xff\xfe"}) {
      EXPECT_THAT([&] { roundsOf(recordingOf(text)); },
                  ThrowsMessage<RecordingError>(HasSubstr("frame 2: the marker is no JSON object")))
            << text;
   }
   for (auto const* const text : {R"({"marker": "snapshot"})", R"({"marker": "snapshot", "dir": 1})"}) {
      EXPECT_THAT([&] { roundsOf(recordingOf(text)); },
                  ThrowsMessage<RecordingError>(HasSubstr("frame 2: the snapshot marker has no name")))
            << text;
   }
   EXPECT_THAT(roundsOf(recordingOf("{}")), ElementsAre("a"));
   EXPECT_THAT(roundsOf(recordingOf(R"({"marker": 7})")), ElementsAre("a"));
}

TEST(RoundReader, FramesOfARoundAreTakenAsTheyAreReadAndNoneIsKept) {
   TemporaryFile file;
   auto bytes = RecordingBuilder().frame(dumpReply, 1, "a").frame(dumpReply, 2, "b").bytes();
   bytes.resize(bytes.size() + 1); // the next frame is cut off
   file.write(bytes);
   Recording recording(file.path());
   RoundReader reader(recording);
   std::size_t taken = 0;
   EXPECT_THROW(reader.next([&](auto) { ++taken; }), RecordingError);
   EXPECT_EQ(taken, 2U);
}

TEST(RoundReader, RoundHasTheTimeOfItsFirstFrame) {
   TemporaryFile file;
   file.write(RecordingBuilder().frame(dumpReply, 3, "a").frame(dumpReply, 5'000'000, "b").bytes());
   Recording recording(file.path());
   auto const round = RoundReader(recording).next([](auto) {});
   ASSERT_TRUE(round);
   EXPECT_EQ(round->nanoseconds, 3U);
   EXPECT_EQ(round->kind, dumpReply);
}

TEST(RoundReader, RoundThatIsReadIsInTheStateAndAnErrorNamesItsFrame) {
   auto message = neighbourMessage();
   RecordingBuilder builder;
   builder.frame(datagram, 1, message);
   message.resize(message.size() - 4);
   builder.frame(datagram, 2, message);
   TemporaryFile file;
   file.write(builder.bytes());
   Recording recording(file.path());
   RoundReader reader(recording);
   KernelState state;
   EXPECT_THAT([&] { reader.next(state); },
               ThrowsMessage<RecordingError>(HasSubstr(file.path().string() + ": frame 2: RTM_NEWNEIGH")));
   EXPECT_EQ(state.neighbours().size(), 1U);
}

TEST(RoundReader, StandardInputIsReadPlainAndCompressed) {
   int const kept = dup(STDIN_FILENO);
   for (auto const& path : {recordedFile("small", "dump.rnl.gz"), recordedEvents("small")}) {
      int const input = open(path.c_str(), O_RDONLY);
      ASSERT_GE(input, 0);
      dup2(input, STDIN_FILENO);
      close(input);
      Recording recording("-");
      RoundReader reader(recording);
      KernelState state;
      while (reader.next(state)) {
      }
      EXPECT_GT(state.links().size(), 2U);
   }
   TemporaryFile empty;
   int const input = open(empty.path().c_str(), O_RDONLY);
   dup2(input, STDIN_FILENO);
   close(input);
   EXPECT_THAT([] { Recording("-"); },
               ThrowsMessage<RecordingError>(HasSubstr("standard input: is no recording")));
   dup2(kept, STDIN_FILENO);
   close(kept);
}

TEST(RoundReader, RecordedEventsNameEverySnapshotAndLoseNothing) {
   for (auto const* const fabric : fabrics) {
      Recording recording(recordedEvents(fabric));
      RoundReader reader(recording);
      std::vector<std::string> names;
      std::size_t rounds = 0;
      std::size_t frames = 0;
      while (auto const round = reader.next([](auto) {})) {
         EXPECT_FALSE(round->overrun);
         if (round->snapshot) {
            names.push_back(*round->snapshot);
         }
         frames += round->frames;
         ++rounds;
      }
      EXPECT_EQ(names, snapshots(fabric));
      EXPECT_LT(rounds, frames) << "nothing was taken together";
   }
}

TEST(RoundReader, DumpIsOneRound) {
   Recording recording(recordedFile("big", "dump.rnl.gz"));
   RoundReader reader(recording);
   KernelState state;
   EXPECT_TRUE(reader.next(state));
   EXPECT_FALSE(reader.next(state));
}

TEST(RoundReader, DumpOfRulesThatEndsWithoutOneLeavesNoneOfThatFamily) {
   auto const end = MessageBuilder(NLMSG_DONE, 0, NLM_F_MULTI).datagram();
   std::string_view const done(reinterpret_cast<char const*>(end.data()), end.size());
   auto const rulesBehind = [&](std::uint8_t tag) {
      TemporaryFile file;
      file.write(RecordingBuilder().frame(dumpReply, 1, done, tag).bytes());
      Recording recording(file.path());
      KernelState state;
      EXPECT_TRUE(RoundReader(recording).next(state));
      EXPECT_EQ(recordedState(file.path()).rules(IpAddress::Family::v4), state.rules(IpAddress::Family::v4));
      return std::pair(state.rules(IpAddress::Family::v4).size(), state.rules(IpAddress::Family::v6).size());
   };
   EXPECT_EQ(rulesBehind(rulesTag), std::pair(std::size_t(0), std::size_t(2)));
   EXPECT_EQ(rulesBehind(rulesTagV6), std::pair(std::size_t(3), std::size_t(0)));
   EXPECT_EQ(rulesBehind(1), std::pair(std::size_t(3), std::size_t(2)));
}

} // namespace L3TunnelAgent
