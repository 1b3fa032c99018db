#include "agent/control/Request.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

using Kind = ControlFrame::Kind;
using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(FramesTest, FrameComesBackFromItsBytesInAnyParts) {
   auto const bytes = bytesOf(Kind::output, "one") + bytesOf(Kind::end, std::string(1, '\0'));
   for (std::size_t part = 1; part <= bytes.size(); ++part) {
      FrameReader reader(16);
      std::vector<ControlFrame> frames;
      for (std::size_t at = 0; at < bytes.size(); at += part) {
         reader.bytesAre(std::string_view(bytes).substr(at, part));
         while (auto frame = reader.next()) {
            frames.push_back(*frame);
         }
      }
      ASSERT_EQ(frames.size(), 2U) << part;
      EXPECT_EQ(frames[0].kind, Kind::output);
      EXPECT_EQ(frames[0].payload, "one");
      EXPECT_EQ(frames[1].kind, Kind::end);
      EXPECT_EQ(frames[1].payload, std::string(1, '\0'));
      EXPECT_FALSE(reader.hasRest());
   }
}

TEST(FramesTest, KeepsLittleThoughEachPartEndsWithinAFrame) {
   auto const frame = bytesOf(Kind::output, std::string(100, 'x'));
   FrameReader reader(100);
   reader.bytesAre(frame.substr(0, 50));
   for (int count = 0; count < 1000; ++count) {
      reader.bytesAre(frame.substr(50) + frame.substr(0, 50));
      ASSERT_EQ(reader.next()->payload.size(), 100U);
      EXPECT_FALSE(reader.next());
      ASSERT_LT(reader.kept(), 4 * frame.size());
   }
}

TEST(FramesTest, LargerFrameIsRefusedByItsHead) {
   FrameReader reader(16);
   reader.bytesAre(bytesOf(Kind::request, std::string(17, 'x')).substr(0, ControlFrame::headSize));
   EXPECT_THAT([&] { reader.next(); }, ThrowsMessage<ProtocolError>(HasSubstr("17 bytes")));
   FrameReader exact(16);
   exact.bytesAre(bytesOf(Kind::request, std::string(16, 'x')));
   EXPECT_TRUE(exact.next());
}

TEST(FramesTest, OtherBytesAreRefusedAtOnce) {
   FrameReader reader(16);
   reader.bytesAre("G");
   EXPECT_THAT([&] { reader.next(); }, ThrowsMessage<ProtocolError>(HasSubstr("byte 71")));
}

TEST(FramesTest, LongTextTakesSeveralFrames) {
   EXPECT_EQ(textFrames(Kind::output, ""), "");
   std::string const text(2 * largestText + 1, 'x');
   FrameReader reader(largestText);
   reader.bytesAre(textFrames(Kind::output, text));
   std::string together;
   int frames = 0;
   for (; auto const frame = reader.next(); ++frames) {
      together += frame->payload;
   }
   EXPECT_EQ(frames, 3);
   EXPECT_EQ(together, text);
}

Request
decoded(std::string const& bytes) {
   FrameReader reader(Request::largest);
   reader.bytesAre(bytes);
   return requestOf(reader.next().value());
}

TEST(RequestTest, RequestComesBackFromItsBytes) {
   for (bool const isColoured : {false, true}) {
      Request const request{.words = {"show", "", "a b\n", "\xff"}, .isColoured = isColoured};
      EXPECT_EQ(decoded(bytesOf(request)), request);
   }
   EXPECT_EQ(decoded(bytesOf(Request{})), Request{});
}

TEST(RequestTest, TooMuchIsNotSent) {
   EXPECT_THROW(bytesOf(Request{.words = {std::string(Request::largest, 'x')}}), ProtocolError);
   EXPECT_THROW(bytesOf(Request{.words = std::vector<std::string>(Request::mostWords + 1)}), ProtocolError);
   EXPECT_NO_THROW(bytesOf(Request{.words = std::vector<std::string>(Request::mostWords)}));
}

TEST(RequestTest, MalformedRequestIsRefusedWithTheReason) {
   auto const refusal = [](Kind kind, std::string const& payload) -> std::string {
      try {
         requestOf({.kind = kind, .payload = payload});
         return "taken";
      } catch (ProtocolError const& error) {
         return error.what();
      }
   };
   using namespace std::string_literals;
   EXPECT_EQ(refusal(Kind::request, "\1\0show\0"s), "taken");
   EXPECT_THAT(refusal(Kind::output, "\1\0show\0"s), HasSubstr("no request"));
   EXPECT_THAT(refusal(Kind::request, ""), HasSubstr("no request"));
   EXPECT_THAT(refusal(Kind::request, "\1"), HasSubstr("no request"));
   EXPECT_THAT(refusal(Kind::request, "\2\0show\0"s), HasSubstr("another version"));
   EXPECT_THAT(refusal(Kind::request, "\1\2show\0"s), HasSubstr("another version"));
   EXPECT_THAT(refusal(Kind::request, "\1\0show"s), HasSubstr("no end"));
   EXPECT_THAT(refusal(Kind::request, "\1\0"s + std::string(Request::mostWords + 1, '\0')),
               HasSubstr("more than 256 words"));
}

} // namespace
} // namespace L3TunnelAgent
