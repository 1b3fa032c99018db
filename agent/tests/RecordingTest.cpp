#include "agent/Recording.h"
#include "agent/tests/TemporaryFile.h"

#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <zlib.h>

namespace L3TunnelAgent {

namespace {

using testing::AllOf;
using testing::HasSubstr;

template <typename T>
void
append(std::string& bytes, T value) {
   for (std::size_t i = 0; i < sizeof(T); ++i) {
      bytes.push_back(static_cast<char>(value >> 8 * i));
   }
}

std::string
frame(std::uint8_t kind, std::uint8_t tag, std::uint64_t time, std::string const& payload) {
   std::string bytes;
   append<std::uint32_t>(bytes, static_cast<std::uint32_t>(16 + payload.size()));
   append(bytes, kind);
   append(bytes, tag);
   append<std::uint16_t>(bytes, 0);
   append<std::uint32_t>(bytes, 0x01020304);
   append(bytes, time);
   return bytes + payload;
}

std::string const twoFrames =
      "RNLCAP01" + frame(2, 6, 0x1122334455667788, "12345") + frame(1, 0, 7, R"({"marker": "end"})");

/// A recording in a file of its own.
class RecordingTest : public testing::Test {
 protected:
   void write(std::string const& bytes) { temporary.write(bytes); }

   void writeCompressed(std::string const& bytes) {
      gzFile const stream = gzopen(file.c_str(), "wb");
      gzwrite(stream, bytes.data(), static_cast<unsigned>(bytes.size()));
      gzclose(stream);
   }

   std::string contents() {
      std::ifstream in(file, std::ios::binary);
      return {std::istreambuf_iterator<char>(in), {}};
   }

   std::size_t frames() {
      Recording recording(file);
      while (recording.next()) {
         ;
      }
      return recording.count();
   }

   std::string errorText() {
      try {
         frames();
      } catch (RecordingError const& e) {
         return e.what();
      }
      return "no error";
   }

   TemporaryFile temporary;
   std::filesystem::path const file = temporary.path();
};

} // namespace

TEST_F(RecordingTest, FramesComeAsTheyWereWritten) {
   for (bool const compressed : {false, true}) {
      compressed ? writeCompressed(twoFrames) : write(twoFrames);
      Recording recording(file);
      auto const first = recording.next();
      ASSERT_TRUE(first);
      EXPECT_EQ(first->kind, FrameKind::dumpReply);
      EXPECT_EQ(first->tag, 6);
      EXPECT_EQ(first->sender, 0x01020304U);
      EXPECT_EQ(first->nanoseconds, 0x1122334455667788U);
      ASSERT_EQ(first->payload.size(), 5U);
      EXPECT_EQ(std::memcmp(first->payload.data(), "12345", 5), 0);
      auto const second = recording.next();
      ASSERT_TRUE(second);
      EXPECT_EQ(second->kind, FrameKind::marker);
      EXPECT_EQ(second->payload.size(), 17U);
      EXPECT_FALSE(recording.next());
      EXPECT_EQ(recording.count(), 2U);
   }
}

TEST_F(RecordingTest, NoFramesAndEmptyFramesAreFine) {
   write("RNLCAP01");
   EXPECT_EQ(frames(), 0U);
   write("RNLCAP01" + frame(3, 0, 1, ""));
   EXPECT_EQ(frames(), 1U);
}

TEST_F(RecordingTest, AnotherFileIsRefused) {
   for (std::string const content : {"", "RNLCAP0", "RNLCAP02", "[{\"vtep\": 1}]"}) {
      write(content);
      EXPECT_THAT(errorText(), AllOf(HasSubstr(file.string()), HasSubstr("is no recording"))) << content;
   }
}

TEST_F(RecordingTest, FileThatIsNotThereIsNamed) {
   EXPECT_THAT([] { Recording("/nonexistent/file.rnl"); },
               testing::ThrowsMessage<RecordingError>(HasSubstr("/nonexistent/file.rnl: cannot be opened")));
   auto const folder = std::filesystem::temp_directory_path();
   EXPECT_THAT([&] { Recording{folder}; },
               testing::ThrowsMessage<RecordingError>(folder.string() + ": cannot be read: Is a directory"));
}

TEST_F(RecordingTest, EndWithinAFrameIsAnErrorAndEndBetweenFramesIsNot) {
   std::size_t const firstEnd = 8 + 20 + 5;
   for (std::size_t size = 8; size < twoFrames.size(); ++size) {
      write(twoFrames.substr(0, size));
      if (size == 8) {
         EXPECT_EQ(frames(), 0U);
      } else if (size == firstEnd) {
         EXPECT_EQ(frames(), 1U);
      } else {
         EXPECT_THAT(errorText(),
                     AllOf(HasSubstr(size < firstEnd ? "frame 1 at byte 8" : "frame 2 at byte 33"),
                           HasSubstr("the file ends within")))
               << size;
      }
   }
}

TEST_F(RecordingTest, CompressedFileThatIsCutIsNamedOnce) {
   writeCompressed(twoFrames);
   auto const whole = contents();
   write(whole.substr(0, whole.size() - 4));
   EXPECT_THAT(errorText(), testing::MatchesRegex(file.string() + ": frame [0-9] at byte [0-9]+: [^/]*"));
}

TEST_F(RecordingTest, CompressedFileCutAnywhereIsAnError) {
   writeCompressed(twoFrames);
   std::string const whole = contents();
   for (std::size_t size = 0; size < whole.size(); ++size) {
      write(whole.substr(0, size));
      EXPECT_THROW(
            {
               Recording recording(file);
               while (recording.next())
                  ;
            },
            RecordingError)
            << size << " of " << whole.size();
   }
}

TEST_F(RecordingTest, DamagedCompressedFileIsAnError) {
   writeCompressed(twoFrames);
   std::string bytes = contents();
   bytes[bytes.size() - 6] ^= 1; // of the checksum
   write(bytes);
   EXPECT_THAT(errorText(), HasSubstr(file.string()));
}

TEST_F(RecordingTest, LyingLengthIsAnErrorBeforeAnythingIsAllocated) {
   for (std::uint32_t const length : {0U, 15U, 17U + (1U << 20), 0x7fffffffU, 0xffffffffU}) {
      std::string bytes = "RNLCAP01" + frame(2, 1, 0, "payload");
      for (int i = 0; i < 4; ++i) {
         bytes[8 + static_cast<std::size_t>(i)] = static_cast<char>(length >> 8 * i);
      }
      write(bytes);
      EXPECT_THAT(errorText(), AllOf(HasSubstr("frame 1 at byte 8"), HasSubstr(std::to_string(length))))
            << length;
   }
}

TEST_F(RecordingTest, UnknownKindIsAnError) {
   write("RNLCAP01" + frame(2, 1, 0, "x") + frame(4, 1, 0, "x"));
   EXPECT_THAT(errorText(), AllOf(HasSubstr("frame 2 at byte 29"), HasSubstr("unknown kind 4")));
}

TEST_F(RecordingTest, ErrorOfAReaderNamesFileAndFrame) {
   write(twoFrames);
   Recording recording(file);
   recording.next();
   EXPECT_EQ(std::string(recording.error("odd").what()), file.string() + ": frame 1: odd");
}

} // namespace L3TunnelAgent
