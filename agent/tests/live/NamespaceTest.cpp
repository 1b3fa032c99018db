#include "agent/tests/live/Folder.h"
#include "agent/tests/live/RunningAgent.h"
#include "agent/tests/live/Sandbox.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace L3TunnelAgent::Live {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr Seconds limit{30};

/// A tunnel's way by one port.
void
hasTunnelBy(Namespace const& space, std::string const& port) {
   space.ip(fmt::format(R"(link add {0} type veth peer name other
link set {0} up
link set other up
addr add 10.1.0.0/31 dev {0}
neigh add 10.1.0.1 lladdr 02:00:00:00:00:01 dev {0} nud permanent
route add 10.255.1.2/32 via 10.1.0.1
link add vx type vxlan id 1 dstport 4789 nolearning
link set vx up)",
                        port));
   space.bridge("fdb append 00:00:00:00:00:00 dev vx dst 10.255.1.2");
}

TEST(NamespaceTest, OneThatIsMadeAnewUnderItsNameIsFollowed) {
   SKIP_WITHOUT_SANDBOX();
   Folder const folder;
   Namespace const space("anew");
   hasTunnelBy(space, "before");
   RunningAgent agent(space, folder.path());
   agent.start();
   EXPECT_THAT(faults(space, agent, limit), IsEmpty());
   outputOf({"ip", "netns", "delete", "anew"});
   EXPECT_TRUE(
         isWithin(limit, [&] { return agent.log().find("anew has lost its name") != std::string::npos; }));
   EXPECT_TRUE(agent.isRunning());
   outputOf({"ip", "netns", "add", "anew"});
   hasTunnelBy(space, "after");
   EXPECT_THAT(faults(space, agent, limit), IsEmpty());
   EXPECT_EQ(agent.destinations().at("destinations").at(0).at("vias").at(0).at("dev"), "after");
   EXPECT_THAT(agent.log(), HasSubstr("anew is another one now, which is followed instead"));
   space.ip("link set after down");
   EXPECT_THAT(faults(space, agent, limit), IsEmpty());
}

} // namespace

} // namespace L3TunnelAgent::Live
