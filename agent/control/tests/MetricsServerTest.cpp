#include "agent/control/MetricsServer.h"
#include "agent/control/tests/TestClient.h"

#include <arpa/inet.h>
#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <thread>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

/// A connection to an address of this machine; -1 when it is refused.
int
connected(char const* address, std::uint16_t port) {
   int const descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
   sockaddr_in name{};
   name.sin_family = AF_INET;
   name.sin_port = htons(port);
   inet_pton(AF_INET, address, &name.sin_addr);
   if (connect(descriptor, reinterpret_cast<sockaddr const*>(&name), sizeof name) != 0) {
      close(descriptor);
      return -1;
   }
   return descriptor;
}

/// A server of "up 1" whose loop turns in a thread of its own.
class MetricsServerTest : public testing::Test {
 protected:
   MetricsServerTest() {
      server = std::make_unique<MetricsServer>(loop, settings(), [this] {
         if (isBroken) {
            throw std::runtime_error("broken");
         }
         ++made;
         return std::string("up 1\n");
      });
      port = server->port();
      thread = std::thread([this] { loop.run(); });
   }
   ~MetricsServerTest() override {
      asio::post(loop, [this] { server.reset(); });
      work.reset();
      thread.join();
   }

   static MetricsServer::Settings settings() {
      return {.port = 0, .mostClients = 4, .largestHead = 1024, .patience = 300ms};
   }

   TestClient client() const { return TestClient(connected("127.0.0.1", port)); }

   std::string answer(std::string const& request) const {
      auto const one = client();
      one.send(request);
      one.shutdownSend();
      return one.all();
   }

   asio::io_context loop;
   asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(loop);
   std::atomic<bool> isBroken{};
   std::atomic<int> made{};
   std::unique_ptr<MetricsServer> server;
   std::uint16_t port{};
   std::thread thread;
};

std::string const request = "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n";

TEST_F(MetricsServerTest, MetricsAreThere) {
   EXPECT_THAT(answer(request), AllOf(StartsWith("HTTP/1.1 200 OK\r\n"), EndsWith("\r\n\r\nup 1\n")));
   EXPECT_THAT(
         answer("HEAD /metrics HTTP/1.0\r\n\r\n"),
         AllOf(StartsWith("HTTP/1.1 200 OK\r\n"), HasSubstr("Content-Length: 5"), EndsWith("\r\n\r\n")));
   EXPECT_THAT(answer("GET / HTTP/1.0\r\n\r\n"), StartsWith("HTTP/1.1 404 "));
   EXPECT_THAT(answer("PUT /metrics HTTP/1.0\r\n\r\n"), StartsWith("HTTP/1.1 405 "));
   EXPECT_THAT(answer("\r\n\r\n"), StartsWith("HTTP/1.1 400 "));
}

TEST_F(MetricsServerTest, MetricsAreNotMadeForEachWhoAsks) {
   auto const begin = std::chrono::steady_clock::now();
   for (int count = 0; count < 50; ++count) {
      EXPECT_THAT(answer(request), EndsWith("up 1\n"));
   }
   EXPECT_LE(made, 1 + (std::chrono::steady_clock::now() - begin) / settings().freshness);
   std::this_thread::sleep_for(settings().freshness);
   int const before = made;
   EXPECT_THAT(answer(request), EndsWith("up 1\n"));
   EXPECT_EQ(made, before + 1);
}

TEST_F(MetricsServerTest, OnlyThisMachinesOwnAddressListens) {
   EXPECT_EQ(connected("127.0.0.2", port), -1);
   TestClient const one(connected("127.0.0.1", port));
   EXPECT_GE(one.descriptor(), 0);
}

TEST_F(MetricsServerTest, RequestInPartsIsTaken) {
   auto const one = client();
   for (char const byte : request) {
      one.send(std::string_view(&byte, 1));
      std::this_thread::sleep_for(1ms);
   }
   EXPECT_THAT(one.all(), EndsWith("up 1\n"));
}

TEST_F(MetricsServerTest, OnlyTheFirstRequestOfAConnectionIsAnswered) {
   auto const all = answer(request + request + std::string(100000, 'x'));
   EXPECT_THAT(all, EndsWith("\r\n\r\nup 1\n"));
   EXPECT_EQ(all.find("HTTP/1.1", 1), std::string::npos);
}

TEST_F(MetricsServerTest, HugeHeadIsRefused) {
   EXPECT_THAT(answer("GET /metrics HTTP/1.1\r\nHost: " + std::string(5000, 'x') + "\r\n\r\n"),
               StartsWith("HTTP/1.1 431 "));
   EXPECT_THAT(answer(std::string(1 << 20, 'x')), StartsWith("HTTP/1.1 431 "));
}

TEST_F(MetricsServerTest, SilentAndHalfRequestsEndInTime) {
   auto const silent = client();
   auto const half = client();
   half.send(request.substr(0, 20));
   EXPECT_THAT(answer(request), EndsWith("up 1\n"));
   EXPECT_TRUE(silent.isClosedWithin(5s));
   EXPECT_TRUE(half.isClosedWithin(5s));
   EXPECT_EQ(half.all(), "");
}

TEST_F(MetricsServerTest, TooManyClientsAreSentAwayAndOthersStay) {
   std::vector<TestClient> clients;
   for (std::size_t count = 0; count < settings().mostClients; ++count) {
      clients.push_back(client());
   }
   auto const more = client();
   EXPECT_TRUE(more.isClosedWithin(200ms));
   clients.front().send(request);
   clients.front().shutdownSend();
   EXPECT_THAT(clients.front().all(), EndsWith("up 1\n"));
}

TEST_F(MetricsServerTest, ClientsThatLeaveCostNothing) {
   for (int count = 0; count < 100; ++count) {
      client().send(request.substr(0, static_cast<std::size_t>(count) % request.size()));
   }
   std::this_thread::sleep_for(50ms);
   EXPECT_THAT(answer(request), EndsWith("up 1\n"));
}

TEST_F(MetricsServerTest, MetricsThatCannotBeMadeAreAnError) {
   isBroken = true;
   EXPECT_THAT(answer(request), StartsWith("HTTP/1.1 503 "));
}

TEST_F(MetricsServerTest, PortThatIsTakenIsNamed) {
   asio::io_context other;
   EXPECT_THAT(([&] { MetricsServer(other, {.port = port}, [] { return std::string(); }); }),
               ThrowsMessage<std::runtime_error>(
                     AllOf(HasSubstr("metrics port " + std::to_string(port)), HasSubstr("in use"))));
}

} // namespace
} // namespace L3TunnelAgent
