#include "agent/MessageReader.h"
#include "agent/Recording.h"
#include "agent/tests/Expected.h"
#include "agent/tests/MessageBuilder.h"
#include "agent/tests/TemporaryFile.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <limits>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

using testing::AllOf;
using testing::HasSubstr;

KernelState
applied(std::vector<std::byte> const& datagram) {
   KernelState state;
   applyDatagram(state, datagram);
   return state;
}

std::string
errorOf(std::vector<std::byte> const& datagram) {
   try {
      applied(datagram);
   } catch (MessageError const& e) {
      return e.what();
   }
   return "no error";
}

MessageBuilder
neighbourMessage() {
   MessageBuilder message(RTM_NEWNEIGH,
                          ndmsg{.ndm_family = AF_INET, .ndm_ifindex = 3, .ndm_state = NUD_STALE});
   message.ip(NDA_DST, "10.0.0.1").mac(NDA_LLADDR, "02:00:00:00:00:01");
   return message;
}

MessageBuilder
control(std::uint16_t type, int code) {
   return MessageBuilder(type, code);
}

/// All payloads of a recorded dump.
std::vector<std::vector<std::byte>>
payloads(std::string const& fabric) {
   std::vector<std::vector<std::byte>> result;
   Recording recording(recordedFile(fabric, "dump.rnl.gz"));
   while (auto frame = recording.next()) {
      if (frame->kind == FrameKind::dumpReply) {
         result.push_back(std::move(frame->payload));
      }
   }
   return result;
}

/// Whatever the bytes are, they are read or refused; the sanitizers watch over the rest.
bool
isRead(std::span<std::byte const> bytes) {
   KernelState state;
   try {
      applyDatagram(state, bytes);
      return true;
   } catch (MessageError const& e) {
      EXPECT_STRNE(e.what(), "");
      return false;
   }
}

} // namespace

TEST(MessageReader, SeveralMessagesInOneDatagramAreAllApplied) {
   auto datagram = neighbourMessage().datagram();
   MessageBuilder other(RTM_NEWNEIGH,
                        ndmsg{.ndm_family = AF_INET6, .ndm_ifindex = 4, .ndm_state = NUD_REACHABLE});
   auto const second = other.ip(NDA_DST, "fe80::1").datagram();
   datagram.insert(datagram.end(), second.begin(), second.end());
   EXPECT_EQ(applied(datagram).neighbours().size(), 2U);
   EXPECT_TRUE(applied({}).neighbours().empty());
}

TEST(MessageReader, DatagramMayLieAtAnyAlignment) {
   auto const datagram = neighbourMessage().datagram();
   std::vector<std::byte> shifted(datagram.size() + 3);
   for (std::size_t shift = 0; shift < 4; ++shift) {
      std::copy(datagram.begin(), datagram.end(), shifted.begin() + static_cast<std::ptrdiff_t>(shift));
      KernelState state;
      applyDatagram(state, std::span(shifted).subspan(shift, datagram.size()));
      EXPECT_EQ(state.neighbours().size(), 1U) << shift;
   }
}

TEST(MessageReader, OtherMessagesArePassedOver) {
   auto const state = applied(MessageBuilder(RTM_NEWQDISC, tcmsg{}).datagram());
   EXPECT_TRUE(state.links().empty() && state.neighbours().empty());
}

TEST(MessageReader, AddressIsReadAsFarAsItMatters) {
   auto const address = [](std::uint8_t family) {
      return MessageBuilder(RTM_NEWADDR, ifaddrmsg{.ifa_family = family}).datagram();
   };
   EXPECT_EQ(errorOf(address(AF_INET)), "RTM_NEWADDR: IFA_LOCAL: is missing");
   EXPECT_EQ(errorOf(address(AF_INET6)), "no error");
}

TEST(MessageReader, EndOfADumpIsFineAndItsErrorIsOne) {
   EXPECT_EQ(errorOf(control(NLMSG_DONE, 0).datagram()), "no error");
   EXPECT_EQ(errorOf(control(NLMSG_ERROR, 0).datagram()), "no error");
   EXPECT_THAT(errorOf(control(NLMSG_DONE, -16).datagram()),
               AllOf(HasSubstr("NLMSG_DONE"), HasSubstr("Device or resource busy (error -16)")));
   EXPECT_THAT(errorOf(control(NLMSG_ERROR, -1).datagram()),
               AllOf(HasSubstr("NLMSG_ERROR"), HasSubstr("Operation not permitted (error -1)")));
   EXPECT_THAT(errorOf(control(NLMSG_ERROR, 7).datagram()), HasSubstr("answered with error 7"));
   EXPECT_THAT(errorOf(control(NLMSG_ERROR, std::numeric_limits<int>::min()).datagram()),
               HasSubstr("answered with error -2147483648"));
   EXPECT_THAT(errorOf(control(NLMSG_OVERRUN, 0).datagram()), HasSubstr("lost"));
}

TEST(MessageReader, WhatTheKernelDoesNotHaveIsEmptyAndTheRestIsRead) {
   for (int const code : {EOPNOTSUPP, EAFNOSUPPORT, EPROTONOSUPPORT}) {
      for (std::uint16_t const type : {NLMSG_ERROR, NLMSG_DONE}) {
         auto datagram = control(type, -code).datagram();
         auto const next = neighbourMessage().datagram();
         datagram.insert(datagram.end(), next.begin(), next.end());
         EXPECT_EQ(applied(datagram).neighbours().size(), 1U) << code;
      }
   }
}

TEST(MessageReader, MessagesBeforeAMalformedOneAreApplied) {
   auto datagram = neighbourMessage().datagram();
   datagram.resize(datagram.size() + 20);
   KernelState state;
   EXPECT_THROW(applyDatagram(state, datagram), MessageError);
   EXPECT_EQ(state.neighbours().size(), 1U);
}

TEST(MessageReader, MessageCutAnywhereIsAnErrorThatNamesIt) {
   auto const datagram = neighbourMessage().datagram();
   for (std::size_t size = 1; size < datagram.size(); ++size) {
      std::string const text =
            errorOf({datagram.begin(), datagram.begin() + static_cast<std::ptrdiff_t>(size)});
      // The last attribute ends with two bytes of padding, which the message's length counts.
      EXPECT_THAT(text, size < sizeof(nlmsghdr) ? HasSubstr("hold no message")
                                                : HasSubstr("RTM_NEWNEIGH: its length"))
            << size;
   }
}

TEST(MessageReader, LyingMessageLengthIsAnErrorThatSaysSo) {
   for (std::uint32_t const length : {0U, 15U, 1000U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
      auto datagram = neighbourMessage().datagram();
      std::memcpy(datagram.data(), &length, sizeof length);
      EXPECT_THAT(errorOf(datagram), HasSubstr("RTM_NEWNEIGH: its length " + std::to_string(length)))
            << length;
   }
}

TEST(MessageReader, MessageShorterThanItsFixedPartIsAnError) {
   for (std::uint16_t const type : {RTM_NEWLINK, RTM_NEWNEIGH, RTM_NEWNEXTHOP, RTM_NEWROUTE, RTM_NEWRULE}) {
      EXPECT_THAT(errorOf(MessageBuilder(type, std::array<char, 4>{AF_INET}).datagram()),
                  HasSubstr("fixed part"))
            << type;
   }
}

TEST(MessageReader, LyingAttributeLengthIsAnErrorThatSaysSo) {
   auto const datagram = neighbourMessage().datagram();
   std::size_t const first = sizeof(nlmsghdr) + sizeof(ndmsg);
   for (unsigned const length : {0U, 3U, 21U, 0xffffU}) {
      auto lying = datagram;
      auto const value = static_cast<std::uint16_t>(length);
      std::memcpy(&lying[first], &value, sizeof value);
      EXPECT_THAT(errorOf(lying),
                  AllOf(HasSubstr("RTM_NEWNEIGH"),
                        HasSubstr("attribute 1 has length " + std::to_string(length) + " of 20")))
            << length;
   }
}

TEST(MessageReader, ValueOfAnotherLengthIsAnErrorThatNamesTheAttribute) {
   MessageBuilder neighbour(RTM_NEWNEIGH, ndmsg{.ndm_family = AF_INET});
   EXPECT_THAT(errorOf(neighbour.u16(NDA_DST, 1).datagram()), HasSubstr("RTM_NEWNEIGH: NDA_DST: 2 bytes"));
   MessageBuilder route(RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET});
   EXPECT_THAT(errorOf(route.u16(RTA_PRIORITY, 1).datagram()),
               HasSubstr("RTM_NEWROUTE: RTA_PRIORITY: 2 bytes instead of 4"));
   MessageBuilder link(RTM_NEWLINK, ifinfomsg{.ifi_index = 1});
   link.text(IFLA_IFNAME, "x").nest(IFLA_LINKINFO, [](auto& info) {
      info.text(IFLA_INFO_KIND, "vlan").nest(IFLA_INFO_DATA, [](auto& data) { data.u32(IFLA_VLAN_ID, 1); });
   });
   EXPECT_THAT(errorOf(link.datagram()),
               HasSubstr("RTM_NEWLINK: IFLA_LINKINFO: IFLA_INFO_DATA: IFLA_VLAN_ID: 4 bytes instead of 2"));
}

TEST(MessageReader, RecordedDumpCutAnywhereIsReadOrRefused) {
   std::size_t read = 0;
   std::size_t refused = 0;
   for (auto const& payload : payloads("small")) {
      for (std::size_t size = 0; size < payload.size(); size += payload.size() < 4000 ? 1 : 61) {
         ++(isRead({payload.data(), size}) ? read : refused);
      }
   }
   EXPECT_GT(read, 0U);
   EXPECT_GT(refused, 10 * read);
}

TEST(MessageReader, RecordedDumpWithDamagedBytesIsReadOrRefused) {
   std::size_t read = 0;
   std::size_t refused = 0;
   for (auto payload : payloads("mixed")) {
      for (std::size_t at = 0; at < payload.size(); at += payload.size() < 4000 ? 1 : 97) {
         for (unsigned const value : {0x00U, 0x01U, 0x7fU, 0xffU}) {
            std::byte const kept = std::exchange(payload[at], static_cast<std::byte>(value));
            ++(isRead(payload) ? read : refused);
            payload[at] = kept;
         }
      }
   }
   EXPECT_GT(read, 0U);
   EXPECT_GT(refused, 0U);
}

TEST(MessageReader, ErrorInARecordingNamesFileFrameAndMessage) {
   TemporaryFile file;
   auto datagram = neighbourMessage().datagram();
   datagram.resize(datagram.size() - 4);
   std::string bytes = "RNLCAP01";
   bytes.push_back(static_cast<char>(16 + datagram.size()));
   bytes.append({0, 0, 0, 2, 3, 0, 0});
   bytes.append(12, '\0');
   bytes.append(reinterpret_cast<char const*>(datagram.data()), datagram.size());
   file.write(bytes);
   EXPECT_THAT([&] { recordedState(file.path()); },
               testing::ThrowsMessage<RecordingError>(
                     HasSubstr(file.path().string() + ": frame 1: RTM_NEWNEIGH: its length")));
}

} // namespace L3TunnelAgent
