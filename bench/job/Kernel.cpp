// The same next hops and groups as the kernel's next-hop objects, over rtnetlink in batches, in a network
// namespace of the process's own. Gateways are on link, so that no route is looked up for them.

#include "bench/job/Run.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <memory>
#include <net/if.h>
#include <sched.h>
#include <string>
#include <unistd.h>

namespace {

using namespace Bench;

/// A route socket that sends messages many at a time; the kernel confirms each batch as a whole.
class Route {
 public:
   Route() : socket_(mnl_socket_open(NETLINK_ROUTE)), batch_(batchBytes + maxMessage), answer_(batchBytes) {
      if (!socket_ || mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) < 0) {
         fail(std::strerror(errno));
      }
   }
   ~Route() { mnl_socket_close(socket_); }
   Route(Route const&) = delete;
   Route& operator=(Route const&) = delete;

   /// Begins one more message, good until the next call.
   nlmsghdr* message(std::uint16_t type, std::uint16_t flags) {
      if (used() > batchBytes) {
         flush();
      }
      first_ = used();
      newest_ = mnl_nlmsg_put_header(batch_.data() + first_);
      newest_->nlmsg_type = type;
      newest_->nlmsg_flags = NLM_F_REQUEST | flags;
      newest_->nlmsg_seq = sequence_;
      return newest_;
   }

   template <class Fixed>
   static Fixed& fixed(nlmsghdr* message) {
      return *static_cast<Fixed*>(mnl_nlmsg_put_extra_header(message, sizeof(Fixed)));
   }

   /// Sends what there is. An empty text, or what the kernel says against it.
   std::string tryFlush() {
      if (!newest_) {
         return {};
      }
      newest_->nlmsg_flags |= NLM_F_ACK;
      return exchange(nullptr, nullptr);
   }

   void flush() {
      if (auto refused = tryFlush(); !refused.empty()) {
         fail(refused.c_str());
      }
   }

   /// Sends what there is, a question, and hands over each message of the answer.
   template <class Take>
   void ask(Take&& take) {
      auto handOver = [](nlmsghdr const* message, void* to) {
         (*static_cast<std::remove_reference_t<Take>*>(to))(message);
         return MNL_CB_OK;
      };
      newest_->nlmsg_flags |= NLM_F_ACK;
      if (auto refused = exchange(handOver, &take); !refused.empty()) {
         fail(refused.c_str());
      }
   }

 private:
   static constexpr std::size_t batchBytes = 32768;
   static constexpr std::size_t maxMessage = 65536;

   std::size_t used() const { return newest_ ? first_ + MNL_ALIGN(newest_->nlmsg_len) : 0; }

   std::string exchange(mnl_cb_t take, void* to) {
      auto sent = mnl_socket_sendto(socket_, batch_.data(), used());
      newest_ = nullptr;
      int more = sent < 0 ? -1 : 1;
      while (more > 0) {
         auto received = mnl_socket_recvfrom(socket_, answer_.data(), answer_.size());
         more = received < 0 ? -1
                             : mnl_cb_run(answer_.data(), std::size_t(received), sequence_,
                                          mnl_socket_get_portid(socket_), take, to);
      }
      ++sequence_;
      return more < 0 ? std::strerror(errno) : "";
   }

   mnl_socket* socket_;
   std::vector<char> batch_;
   std::vector<char> answer_;
   std::size_t first_{};
   nlmsghdr* newest_{};
   unsigned sequence_{1};
};

/// Two ends of a cable, both up; the kernel names the far one. Without an address of its own, the loopback's,
/// a host takes no gateway.
std::string
linkUp() {
   Route route;
   auto* link = route.message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
   Route::fixed<ifinfomsg>(link) = {};
   mnl_attr_put_strz(link, IFLA_IFNAME, "near");
   auto* info = mnl_attr_nest_start(link, IFLA_LINKINFO);
   mnl_attr_put_str(link, IFLA_INFO_KIND, "veth");
   mnl_attr_nest_end(link, info);
   if (auto refused = route.tryFlush(); !refused.empty()) {
      return "no veth device: " + refused;
   }
   for (auto const* name : {"lo", "near", "veth0"}) {
      auto& change = Route::fixed<ifinfomsg>(route.message(RTM_NEWLINK, 0));
      change = {};
      change.ifi_index = int(if_nametoindex(name));
      change.ifi_flags = change.ifi_change = IFF_UP;
   }
   auto refused = route.tryFlush();
   return refused.empty() ? "" : "no link up: " + refused;
}

class Kernel {
 public:
   /// Makes a network namespace for the process; says why it could not.
   static std::string whyNot() {
      if (unshare(geteuid() == 0 ? CLONE_NEWNET : CLONE_NEWUSER | CLONE_NEWNET) != 0) {
         return std::string("no network namespace: ") + std::strerror(errno);
      }
      return linkUp();
   }

   explicit Kernel(Job const& job) : job_(job), device_(if_nametoindex("near")) {}

   void add(std::size_t destination, std::size_t set) {
      std::vector<nexthop_grp> members;
      for (std::size_t number = set * job_.set; number < (set + 1) * job_.set; ++number) {
         nextHopIs(number);
         members.push_back({std::uint32_t(number + 1), 0, 0, 0});
      }
      auto* group = route_.message(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_EXCL);
      fixedIs(group, AF_UNSPEC, 0);
      mnl_attr_put_u32(group, NHA_ID, groupId(destination));
      mnl_attr_put(group, NHA_GROUP, members.size() * sizeof(nexthop_grp), members.data());
      ++rowsWritten_;
   }

   void withdraw(std::size_t destination, std::size_t set) {
      remove(groupId(destination));
      for (std::size_t number = set * job_.set; number < (set + 1) * job_.set; ++number) {
         remove(std::uint32_t(number + 1));
      }
   }

   void settle() { route_.flush(); }

   std::uint64_t rowsWritten() const { return rowsWritten_; }

   /// By the members that the kernel says the group has.
   std::uint64_t digest(std::size_t destination) {
      std::uint64_t sum = 0;
      auto* question = route_.message(RTM_GETNEXTHOP, 0);
      fixedIs(question, AF_UNSPEC, 0);
      mnl_attr_put_u32(question, NHA_ID, groupId(destination));
      route_.ask([&](nlmsghdr const* answer) {
         auto visit = [&](nlattr const* attribute) {
            if (mnl_attr_get_type(attribute) == NHA_GROUP) {
               auto const* members = static_cast<nexthop_grp const*>(mnl_attr_get_payload(attribute));
               auto count = mnl_attr_get_payload_len(attribute) / sizeof(nexthop_grp);
               for (auto const& member : std::span(members, count)) {
                  sum += Bench::digest(job_.via(member.id - 1));
               }
            }
         };
         mnl_attr_parse(
               answer, sizeof(nhmsg),
               [](nlattr const* attribute, void* to) {
                  (*static_cast<decltype(visit)*>(to))(attribute);
                  return MNL_CB_OK;
               },
               &visit);
      });
      return sum;
   }

   bool isEmpty() {
      std::size_t count = 0;
      fixedIs(route_.message(RTM_GETNEXTHOP, NLM_F_DUMP), AF_UNSPEC, 0);
      route_.ask([&](nlmsghdr const* answer) { count += answer->nlmsg_type == RTM_NEWNEXTHOP; });
      return count == 0;
   }

 private:
   static std::uint32_t groupId(std::size_t destination) { return 0x40000000u + std::uint32_t(destination); }

   static void fixedIs(nlmsghdr* message, std::uint8_t family, unsigned flags) {
      auto& fixed = Route::fixed<nhmsg>(message);
      fixed = {};
      fixed.nh_family = family;
      fixed.nh_protocol = message->nlmsg_type == RTM_NEWNEXTHOP ? RTPROT_STATIC : 0;
      fixed.nh_flags = flags;
   }

   void nextHopIs(std::size_t number) {
      auto* hop = route_.message(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_EXCL);
      fixedIs(hop, AF_INET, RTNH_F_ONLINK);
      mnl_attr_put_u32(hop, NHA_ID, std::uint32_t(number + 1));
      mnl_attr_put_u32(hop, NHA_OIF, device_);
      mnl_attr_put_u32(hop, NHA_GATEWAY, htonl(0x0a000001u + std::uint32_t(number)));
      ++rowsWritten_;
   }

   void remove(std::uint32_t id) {
      auto* message = route_.message(RTM_DELNEXTHOP, 0);
      fixedIs(message, AF_UNSPEC, 0);
      mnl_attr_put_u32(message, NHA_ID, id);
      ++rowsWritten_;
   }

   Job job_;
   unsigned device_;
   Route route_;
   std::uint64_t rowsWritten_{};
};

} // namespace

int
main(int argc, char** argv) {
   return sideMain<Kernel>("kernel", argc, argv);
}
