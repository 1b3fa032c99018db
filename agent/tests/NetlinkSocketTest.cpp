#include "agent/live/NetlinkSocket.h"

#include "agent/tests/TestKernel.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <unistd.h>

namespace L3TunnelAgent {
namespace {

using Kind = Received::Kind;

class NetlinkSocketTest : public testing::Test {
 protected:
   void SetUp() override {
      if (!kernel_.isThere()) {
         GTEST_SKIP() << "no network namespace can be made here; DumpReaderTest covers what is received, not "
                         "how";
      }
      where_.emplace(std::nullopt);
      socket_.emplace(*where_);
   }

   int descriptor() const { return socket_->descriptor(); }

   TestKernel kernel_;
   std::optional<NetworkNamespace> where_;
   std::optional<NetlinkSocket> socket_;
   DatagramReader reader_;
};

TEST_F(NetlinkSocketTest, HearsWhatIsAnnouncedOnceJoined) {
   kernel_.upIs("lo", true);
   EXPECT_EQ(reader_.receive(descriptor()).kind, Kind::nothing);
   EXPECT_TRUE(socket_->join(RTNLGRP_LINK));
   kernel_.upIs("lo", false);
   auto const got = reader_.receive(descriptor());
   EXPECT_EQ(got.kind, Kind::datagram);
   ASSERT_GE(got.bytes.size(), sizeof(nlmsghdr));
   nlmsghdr header{};
   std::memcpy(&header, got.bytes.data(), sizeof header);
   EXPECT_EQ(header.nlmsg_type, RTM_NEWLINK);
   EXPECT_EQ(header.nlmsg_len, got.bytes.size());
}

TEST_F(NetlinkSocketTest, SaysThatTheKernelHasNoSuchGroup) {
   EXPECT_FALSE(socket_->join(1U << 20U));
}

TEST_F(NetlinkSocketTest, PassesOverWhatOthersSend) {
   NetlinkSocket other(*where_);
   sockaddr_nl address{};
   socklen_t size = sizeof address;
   ASSERT_EQ(getsockname(descriptor(), reinterpret_cast<sockaddr*>(&address), &size), 0);
   auto const forged = routeMessage(RTM_NEWROUTE, "10.0.0.0", 8).datagram();
   ASSERT_EQ(sendto(other.descriptor(), forged.data(), forged.size(), 0,
                    reinterpret_cast<sockaddr const*>(&address), size),
             static_cast<ssize_t>(forged.size()));
   EXPECT_EQ(reader_.receive(descriptor()).kind, Kind::foreign);
   EXPECT_EQ(reader_.receive(descriptor()).kind, Kind::nothing);
}

TEST_F(NetlinkSocketTest, SaysThatAnnouncementsWereLost) {
   EXPECT_TRUE(socket_->join(RTNLGRP_LINK));
   socket_->receiveBufferIs(1);
   for (int turn = 0; turn < 20; ++turn) {
      kernel_.upIs("lo", turn % 2 == 0);
   }
   std::vector<Kind> kinds;
   while (kinds.empty() || kinds.back() != Kind::nothing) {
      kinds.push_back(reader_.receive(descriptor()).kind);
   }
   EXPECT_THAT(kinds, testing::Contains(Kind::overrun).Times(1));
   kernel_.upIs("lo", true);
   EXPECT_EQ(reader_.receive(descriptor()).kind, Kind::datagram);
}

TEST_F(NetlinkSocketTest, MakesRoomForADatagramThatWasTooLong) {
   EXPECT_TRUE(socket_->join(RTNLGRP_LINK));
   kernel_.upIs("lo", true);
   kernel_.upIs("lo", false);
   DatagramReader small(100);
   EXPECT_EQ(small.receive(descriptor()).kind, Kind::truncated);
   EXPECT_EQ(small.receive(descriptor()).kind, Kind::datagram);
}

TEST_F(NetlinkSocketTest, SaysWhenTheSocketIsOfNoUse) {
   EXPECT_THROW(reader_.receive(-1), NetlinkError);
}

std::string
namespaceNow() {
   return std::filesystem::read_symlink("/proc/thread-self/ns/net").string();
}

TEST_F(NetlinkSocketTest, StaysInItsOwnNamespaceAroundWhatIsMadeInAnother) {
   EXPECT_THROW(NetworkNamespace("no-such-namespace"), NetlinkError);
   std::string const name = "test-" + std::to_string(getpid());
   if (std::system(("ip netns add " + name).c_str()) != 0) {
      GTEST_SKIP() << "no network namespace can be given a name here; nothing else covers it";
   }
   auto const before = namespaceNow();
   std::string within;
   EXPECT_NO_THROW(NetworkNamespace(name).within([&] { within = namespaceNow(); }));
   EXPECT_EQ(std::system(("ip netns del " + name).c_str()), 0);
   EXPECT_FALSE(within.empty());
   EXPECT_NE(within, before);
   EXPECT_EQ(namespaceNow(), before);
}

} // namespace
} // namespace L3TunnelAgent
