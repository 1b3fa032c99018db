#include "platform/tests/MirelogFixture.h"

#include "platform/nuv/testing/Soak.h"

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

namespace Trace {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

/// A small ring's bytes that may be damaged.
class RingDamageTest : public MirelogTest {
 protected:
   RingDamageTest() {
      EXPECT_EQ(ringFileIs(path("ring"), 8), "");
      for (int i = 0; i < 12; ++i) {
         MIRELOG(facility, 1, "{} and {} of {}", i, "some text", true);
      }
      image = ringImage();
      whole = texts(readRing(image));
      recordsAt = image.size() - std::size_t(8) * 64;
   }

   /// Reads a heap block of just this size, so that reading beyond it is found.
   static RingContents readExactly(Pelm::StringView bytes) {
      std::vector<char> const exact(bytes.begin(), bytes.end());
      auto contents = readRing(Pelm::StringView(exact.data(), exact.size()));
      for (auto const& message : contents.messages) {
         EXPECT_FALSE(lineOf(message).empty());
      }
      return contents;
   }

   /// Overwrites part of the image.
   template <class T>
   void put(std::size_t at, T value) {
      std::memcpy(image.data() + at, &value, sizeof(value));
   }
   template <class T>
   T get(std::size_t at) const {
      T value;
      std::memcpy(&value, image.data() + at, sizeof(value));
      return value;
   }

   Pelm::String image;
   std::vector<Pelm::String> whole;
   std::size_t recordsAt{};
};

TEST_F(RingDamageTest, TheImageAndTheFileSayTheSame) {
   EXPECT_THAT(whole, SizeIs(8));
   EXPECT_EQ(whole.front(), "4 and some text of True");
   EXPECT_EQ(textsIn("ring"), whole);
   EXPECT_EQ(readRing(image).remark, "");
}

TEST_F(RingDamageTest, CutAnywhere) {
   std::set<Pelm::String> const all(whole.begin(), whole.end());
   for (std::size_t size = 0; size < image.size(); ++size) {
      auto const contents = readExactly(Pelm::StringView(image).substr(0, size));
      if (size < recordsAt) {
         ASSERT_NE(contents.error, "") << size;
         ASSERT_THAT(contents.messages, IsEmpty());
      } else {
         ASSERT_EQ(contents.error, "") << size;
         ASSERT_THAT(contents.messages, SizeIs((size - recordsAt) / 64));
         ASSERT_THAT(contents.remark, StartsWith("cut short: ")) << size;
         for (auto const& text : texts(contents)) {
            ASSERT_TRUE(all.contains(text)) << text;
         }
      }
   }
   EXPECT_EQ(texts(readExactly(image)), whole);
}

TEST_F(RingDamageTest, ADamagedRecordIsSkippedAndTheOthersStay) {
   for (std::size_t at = recordsAt; at < image.size(); ++at) {
      for (unsigned bit = 0; bit < 8; ++bit) {
         Pelm::String damaged = image;
         damaged[at] = char(damaged[at] ^ 1 << bit);
         auto const contents = readRing(damaged);
         auto expected = whole;
         auto const sequence = get<std::uint64_t>(recordsAt + (at - recordsAt) / 64 * 64);
         auto const first = readRing(image).messages.front().sequence;
         expected.erase(expected.begin() + std::ptrdiff_t(sequence - first));
         ASSERT_EQ(texts(contents), expected) << at << " bit " << bit;
         ASSERT_EQ(contents.skipped, 1u);
         ASSERT_EQ(contents.remark, "1 records half-written or damaged");
      }
   }
}

TEST_F(RingDamageTest, ARecordThatIsBeingWrittenIsSkipped) {
   put(recordsAt, std::uint64_t(0));
   auto const contents = readRing(image);
   EXPECT_THAT(contents.messages, SizeIs(7));
   EXPECT_EQ(contents.skipped, 1u);
}

TEST_F(RingDamageTest, AnEmptyRecordIsNothingToSpeakOf) {
   std::fill(image.end() - 64, image.end(), '\0');
   auto const contents = readRing(image);
   EXPECT_THAT(contents.messages, SizeIs(7));
   EXPECT_EQ(contents.skipped, 0u);
   EXPECT_EQ(contents.remark, "");
}

TEST_F(RingDamageTest, ARecordInTheWrongPlaceIsSkipped) {
   std::swap_ranges(image.end() - 128, image.end() - 64, image.end() - 64);
   EXPECT_EQ(readRing(image).skipped, 2u);
}

TEST_F(RingDamageTest, HeadersThatMakeNoSense) {
   using ringfile::Header;
   auto const errorWith = [this](std::size_t at, auto value) {
      auto const old = get<decltype(value)>(at);
      put(at, value);
      auto const contents = readExactly(image);
      put(at, old);
      EXPECT_THAT(contents.messages, IsEmpty());
      return contents.error;
   };
   EXPECT_EQ(errorWith(0, 'm'), "not a trace ring");
   EXPECT_EQ(errorWith(offsetof(Header, version), 2u), "trace ring of version 2, not 1");
   EXPECT_EQ(errorWith(offsetof(Header, recordBytes), 63u), "damaged header: records of 63 bytes");
   for (std::uint64_t const records : {std::uint64_t(0), std::uint64_t(7), ~std::uint64_t(0),
                                       std::uint64_t(1) << 25, std::uint64_t(1) << 63}) {
      EXPECT_EQ(errorWith(offsetof(Header, records), records),
                "damaged header: " + std::to_string(records) + " records");
   }
   for (std::uint64_t const room : {std::uint64_t(63), ~std::uint64_t(63), std::uint64_t(1) << 32}) {
      EXPECT_EQ(errorWith(offsetof(Header, descriptorRoom), room),
                "damaged header: " + std::to_string(room) + " bytes of descriptors");
   }
   EXPECT_THAT(errorWith(offsetof(Header, descriptorRoom), std::uint64_t(1) << 20), StartsWith("cut short"));
   put(offsetof(Header, records), std::uint64_t(maxRingRecords));
   auto const contents = readExactly(image);
   EXPECT_EQ(contents.error, "");
   EXPECT_THAT(contents.remark, StartsWith("cut short: 8 of 16777216 records"));
   EXPECT_LE(contents.messages.size(), 8u);
}

TEST_F(RingDamageTest, DescriptorsThatMakeNoSense) {
   using ringfile::Descriptor;
   std::size_t const first = sizeof(ringfile::Header);
   auto const damages = [&](std::size_t at, auto value) {
      auto const old = get<decltype(value)>(first + at);
      put(first + at, value);
      auto const contents = readExactly(image);
      put(first + at, old);
      EXPECT_EQ(contents.error, "");
      EXPECT_THAT(contents.messages, SizeIs(8));
      return contents.remark == "damaged descriptors";
   };
   EXPECT_EQ(readExactly(image).remark, "");
   auto const size = get<std::uint32_t>(first);
   for (std::uint32_t const bytes : {8u, size + 1, 0x7ffffff8u, 0xfffffff8u}) {
      EXPECT_TRUE(damages(offsetof(Descriptor, bytes), bytes)) << bytes;
   }
   EXPECT_TRUE(damages(offsetof(Descriptor, fileLength), std::uint16_t(0xffff)));
   EXPECT_TRUE(damages(offsetof(Descriptor, textLength), std::uint16_t(0xffff)));
   EXPECT_TRUE(damages(offsetof(Descriptor, type), std::uint8_t(9)));
   // The first one is a facility, so these make a site of it first.
   put(first + offsetof(Descriptor, type), std::uint8_t(1));
   put(first + offsetof(Descriptor, id), std::uint16_t(0xfff0));
   EXPECT_FALSE(damages(offsetof(Descriptor, level), std::uint8_t(31)));
   EXPECT_TRUE(damages(offsetof(Descriptor, level), std::uint8_t(32)));
   EXPECT_TRUE(damages(offsetof(Descriptor, arguments), std::uint8_t(6)));
   EXPECT_TRUE(damages(offsetof(Descriptor, arguments), std::uint8_t(1))) << "of kind 0";
}

TEST_F(RingDamageTest, MessagesWithoutTheirDescriptorsAreShownRaw) {
   put(sizeof(ringfile::Header), std::uint32_t(0));
   auto const contents = readExactly(image);
   ASSERT_THAT(contents.messages, SizeIs(8));
   for (auto const& message : contents.messages) {
      EXPECT_EQ(message.facility, "?");
      EXPECT_THAT(message.text, AllOf(StartsWith("(no text for message "), EndsWith(" 0x0 0x1)")));
   }
}

TEST_F(RingDamageTest, BytesFlippedAtRandom) {
   Nuv::soak(5000, [this](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      for (int round = 0; round < steps; ++round) {
         Pelm::String damaged = image;
         for (unsigned left = 1 + random() % 20; left > 0; --left) {
            damaged[random() % damaged.size()] = char(random());
         }
         auto const contents = readExactly(damaged);
         ASSERT_LE(contents.messages.size(), 8u);
         ASSERT_TRUE(contents.error.empty() || contents.messages.empty());
      }
   });
}

TEST_F(RingDamageTest, RandomNoiseBehindAGoodHeader) {
   Nuv::soak(500, [this](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      for (int round = 0; round < steps; ++round) {
         for (std::size_t at = sizeof(ringfile::Header); at < image.size(); ++at) {
            image[at] = char(random());
         }
         EXPECT_THAT(readExactly(image).messages, IsEmpty());
      }
   });
}

TEST_F(RingDamageTest, FilesThatAreNone) {
   EXPECT_EQ(readRingFile(path("none")).error, "cannot read " + path("none") + ": No such file or directory");
   EXPECT_EQ(readRingFile(folder).error, "cannot read " + folder + ": not a regular file");
   ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
   EXPECT_EQ(readRingFile(path("pipe")).error, "cannot read " + path("pipe") + ": not a regular file");
   std::ofstream(path("short")) << "short";
   EXPECT_EQ(readRingFile(path("short")).error,
             "cannot read " + path("short") + ": too short for a trace ring: 5 bytes");
   std::ofstream(path("text")) << Pelm::String(1000, 'x');
   EXPECT_EQ(readRingFile(path("text")).error, "cannot read " + path("text") + ": not a trace ring");
}

TEST_F(RingDamageTest, FilesThatAreCutOrPadded) {
   ringFileDel();
   std::filesystem::resize_file(path("ring"), (1u << 20) + 3 * 64 + 1);
   EXPECT_EQ(readRingFile(path("ring")).remark, "cut short: 3 of 8 records");
   EXPECT_THAT(textsIn("ring"), SizeIs(3));
   std::filesystem::resize_file(path("ring"), 1000);
   EXPECT_EQ(readRingFile(path("ring")).error,
             "cannot read " + path("ring") + ": cut short: 1000 bytes, the records would begin at 1048576");
   std::ofstream(path("image"), std::ios::binary) << image;
   // More than there is memory for: only what the header says is read.
   std::filesystem::resize_file(path("image"), std::uintmax_t(1) << (sizeof(off_t) == 4 ? 30 : 42));
   EXPECT_EQ(textsIn("image"), whole);
}

} // namespace
} // namespace Trace
