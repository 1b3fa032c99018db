#include "agent/RecordingWriter.h"

#include "agent/tests/AgentProcess.h"
#include "agent/tests/Expected.h"
#include "agent/tests/TemporaryFile.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

using Existing = RecordingWriter::Existing;

std::vector<Frame>
framesOf(std::filesystem::path const& file) {
   std::vector<Frame> frames;
   Recording recording(file);
   while (auto frame = recording.next()) {
      frames.push_back(*std::move(frame));
   }
   return frames;
}

bool
areSame(Frame const& one, Frame const& other) {
   return one.kind == other.kind && one.tag == other.tag && one.sender == other.sender &&
          one.nanoseconds == other.nanoseconds && one.payload == other.payload;
}

TEST(RecordingWriterTest, WritesWhatIsReadPlainAndCompressed) {
   auto const frames = framesOf(recordedEvents("small"));
   ASSERT_GT(frames.size(), 100U);
   for (std::string const ending : {"", ".gz"}) {
      TemporaryFile const place;
      auto const file = place.path().string() + ending;
      RecordingWriter writer(file, Existing::replaced);
      for (auto const& frame : frames) {
         writer.add(frame);
      }
      writer.close();
      auto const again = framesOf(file);
      ASSERT_EQ(again.size(), frames.size());
      EXPECT_TRUE(std::equal(frames.begin(), frames.end(), again.begin(), areSame)) << ending;
      bool const isPlain = contentOf(file).starts_with("RNLCAP01");
      EXPECT_EQ(isPlain, ending.empty());
      std::filesystem::remove(file);
   }
}

TEST(RecordingWriterTest, AddsText) {
   TemporaryFile const file;
   RecordingWriter writer(file.path(), Existing::replaced);
   writer.add(FrameKind::note, 12, "something");
   writer.add(FrameKind::marker, 13, "");
   writer.close();
   auto const frames = framesOf(file.path());
   ASSERT_EQ(frames.size(), 2U);
   EXPECT_EQ(frames[0].kind, FrameKind::note);
   EXPECT_EQ(frames[0].nanoseconds, 12U);
   EXPECT_EQ(frames[0].payload.size(), 9U);
   EXPECT_TRUE(frames[1].payload.empty());
}

TEST(RecordingWriterTest, KeepsAFileThatIsThere) {
   TemporaryFile const file;
   file.write("precious");
   EXPECT_THROW(RecordingWriter(file.path(), Existing::kept), WriteError);
   EXPECT_EQ(contentOf(file.path()), "precious");
}

TEST(RecordingWriterTest, SaysWhatCannotBeWritten) {
   try {
      RecordingWriter(std::filesystem::path("/no-such-folder/x.rnl"), Existing::kept);
      FAIL() << "it was made";
   } catch (WriteError const& error) {
      EXPECT_STREQ(error.what(), "/no-such-folder/x.rnl: cannot be made: No such file or directory");
   }
   if (!std::filesystem::exists("/dev/full")) {
      GTEST_SKIP() << "there is no file here that cannot be written";
   }
   RecordingWriter full("/dev/full", Existing::replaced);
   try {
      full.add({.kind = FrameKind::note, .payload = std::vector<std::byte>(1 << 20)});
      full.close();
      FAIL() << "it was written";
   } catch (WriteError const& error) {
      EXPECT_STREQ(error.what(), "/dev/full: cannot be written: No space left on device");
   }
}

} // namespace
} // namespace L3TunnelAgent
