#include "agent/live/DumpReader.h"

#include "agent/live/DumpKind.h"
#include "agent/tests/KernelMessages.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <set>

namespace L3TunnelAgent {
namespace {

using State = DumpReader::State;
using Datagram = std::vector<std::byte>;

constexpr std::uint32_t ours = 7;

Datagram
message(std::uint16_t type, std::uint16_t flags = NLM_F_MULTI, std::uint32_t sequence = ours, int value = 0) {
   auto bytes = MessageBuilder(type, value, flags).datagram();
   reinterpret_cast<nlmsghdr*>(bytes.data())->nlmsg_seq = sequence;
   return bytes;
}

Datagram
operator+(Datagram one, Datagram const& other) {
   one.insert(one.end(), other.begin(), other.end());
   return one;
}

TEST(DumpReaderTest, GathersRepliesUntilTheEnd) {
   DumpReader reader(ours);
   auto const first = message(RTM_NEWROUTE) + message(RTM_NEWROUTE);
   EXPECT_EQ(reader.take(first), State::more);
   auto const last = message(RTM_NEWROUTE) + message(NLMSG_DONE);
   EXPECT_EQ(reader.take(last), State::done);
   EXPECT_THAT(reader.replies(), testing::ElementsAre(first, last));
}

TEST(DumpReaderTest, PassesOverRepliesToOtherRequests) {
   DumpReader reader(ours);
   EXPECT_EQ(reader.take(message(NLMSG_DONE, NLM_F_MULTI, ours - 1)), State::more);
   EXPECT_EQ(reader.take(message(NLMSG_ERROR, 0, ours - 1, -EBUSY)), State::more);
   EXPECT_THAT(reader.replies(), testing::IsEmpty());
   EXPECT_EQ(reader.take(message(NLMSG_DONE)), State::done);
}

TEST(DumpReaderTest, IsInterruptedByAMarkOnAnyMessage) {
   for (std::uint16_t const type : {std::uint16_t{RTM_NEWROUTE}, std::uint16_t{NLMSG_DONE}}) {
      DumpReader reader(ours);
      auto const marked = [&](std::uint16_t of) {
         return message(of, static_cast<std::uint16_t>(NLM_F_MULTI | (of == type ? NLM_F_DUMP_INTR : 0)));
      };
      EXPECT_EQ(reader.take(marked(RTM_NEWROUTE)), State::more);
      EXPECT_EQ(reader.take(marked(NLMSG_DONE)), State::interrupted) << type;
   }
}

TEST(DumpReaderTest, IsInterruptedWhenRepliesWereLost) {
   DumpReader overrun(ours);
   EXPECT_EQ(overrun.take(message(NLMSG_OVERRUN) + message(NLMSG_DONE)), State::interrupted);
}

TEST(DumpReaderTest, SaysWhyTheKernelRefusedOrBrokeOff) {
   for (auto const type : {NLMSG_ERROR, NLMSG_DONE}) {
      DumpReader reader(ours);
      EXPECT_EQ(reader.take(message(static_cast<std::uint16_t>(type), 0, ours, -EOPNOTSUPP)), State::failed);
      EXPECT_EQ(reader.error(), EOPNOTSUPP);
   }
}

TEST(DumpReaderTest, FailsOnAnEndThatIsCut) {
   DumpReader reader(ours);
   auto cut = message(NLMSG_DONE);
   cut.resize(sizeof(nlmsghdr));
   reinterpret_cast<nlmsghdr*>(cut.data())->nlmsg_len = sizeof(nlmsghdr);
   EXPECT_EQ(reader.take(cut), State::failed);
}

TEST(DumpReaderTest, ReadsBytesOfAnyKindWithoutHarm) {
   DumpReader reader(ours);
   auto const whole = message(RTM_NEWROUTE) + message(NLMSG_DONE);
   for (std::size_t size = 0; size < whole.size(); ++size) {
      reader.take(std::span(whole).first(size));
   }
   Datagram const ones(100, std::byte{0xff});
   EXPECT_EQ(reader.take(ones), State::more);
}

TEST(DumpKindTest, AsksForEachKindOnceUnderATagOfItsOwn) {
   std::set<std::uint8_t> tags;
   std::set<std::pair<std::uint16_t, std::uint8_t>> requests;
   for (auto const& kind : allDumps()) {
      tags.insert(kind.tag);
      requests.emplace(kind.type, kind.family);
      auto const bytes = request(kind, ours);
      ASSERT_GE(bytes.size(), sizeof(nlmsghdr) + 1);
      nlmsghdr header{};
      std::memcpy(&header, bytes.data(), sizeof header);
      EXPECT_EQ(header.nlmsg_len, bytes.size());
      EXPECT_EQ(header.nlmsg_type, kind.type);
      EXPECT_EQ(header.nlmsg_seq, ours);
      EXPECT_EQ(header.nlmsg_flags, NLM_F_REQUEST | NLM_F_DUMP);
      EXPECT_EQ(std::to_integer<std::uint8_t>(bytes[sizeof header]), kind.family);
   }
   EXPECT_EQ(tags, (std::set<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
   EXPECT_EQ(requests.size(), tags.size());
   EXPECT_THAT(routeDumps(), testing::SizeIs(3));
}

} // namespace
} // namespace L3TunnelAgent
