#include "agent/control/tests/ServedAgent.h"
#include "agent/control/tests/TestClient.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using Words = std::vector<std::string>;

/// Limits that a test reaches soon.
ControlService::Settings
tight() {
   ControlService::Settings settings;
   settings.mostClients = 8;
   settings.mostMonitors = 2;
   settings.mostWaiting = 1 << 20;
   settings.limits = {.requestTime = 300ms, .readTime = 300ms, .mostChanges = 32 * 1024};
   return settings;
}

/// A request whose answer is longer than what a socket holds.
Words const longRequest{"show", "--json", "--rows", "destinations", "groups", "handles"};

/// Waits until the count of clients is that one.
bool
becomes(ServedAgent& served, std::uint64_t clients) {
   auto const end = std::chrono::steady_clock::now() + 10s;
   while (served.counters().clients != clients) {
      if (std::chrono::steady_clock::now() > end) {
         return false;
      }
      std::this_thread::sleep_for(2ms);
   }
   return true;
}

TEST(ControlServiceTest, ManyClientsAtOnceAreAllAnswered) {
   ServedAgent served;
   auto const expected = answerTo(served.path(), {"show"}).output;
   std::vector<TestClient> clients;
   for (int count = 0; count < 20; ++count) {
      clients.emplace_back(served.path());
   }
   for (auto const& client : clients) {
      EXPECT_TRUE(client.ask({"show"}));
   }
   for (auto const& client : clients) {
      auto const answer = saidAnswer(client.all());
      EXPECT_EQ(answer.output, expected);
      EXPECT_EQ(answer.exitCode, 0);
   }
   EXPECT_TRUE(becomes(served, 0));
   EXPECT_EQ(served.counters().accepted, 21U);
   EXPECT_EQ(served.counters().requests, 21U);
}

TEST(ControlServiceTest, HalfARequestHoldsNobodyUpAndEndsInTime) {
   ServedAgent served("mixed", tight());
   auto const bytes = bytesOf(Request{.words = {"audit"}});
   for (std::size_t part :
        {std::size_t(0), std::size_t(1), std::size_t(4), std::size_t(5), bytes.size() - 1}) {
      TestClient const half(served.path());
      half.send(std::string_view(bytes).substr(0, part));
      EXPECT_EQ(answerTo(served.path(), {"audit"}).exitCode, 0);
      EXPECT_TRUE(half.isClosedWithin(5s)) << part;
      EXPECT_EQ(half.some(), "");
   }
}

TEST(ControlServiceTest, RequestInSmallPartsIsTaken) {
   ServedAgent served;
   TestClient const client(served.path());
   for (char const byte : bytesOf(Request{.words = {"audit"}})) {
      client.send(std::string_view(&byte, 1));
      std::this_thread::sleep_for(1ms);
   }
   EXPECT_EQ(saidAnswer(client.all()).exitCode, 0);
}

TEST(ControlServiceTest, GarbageIsRefusedWithTheReason) {
   ServedAgent served;
   using namespace std::string_literals;
   for (auto const& [bytes, reason] :
        std::vector<std::pair<std::string, std::string>>{{"GET / HTTP/1.1\r\n\r\n", "begins no frame"},
                                                         {"Q\xff\xff\xff\xff", "longer than 65536"},
                                                         {"Q\0\1\0\1"s, "longer than 65536"},
                                                         {"O\0\0\0\1x"s, "no request"},
                                                         {"Q\0\0\0\0"s, "no request"},
                                                         {"Q\0\0\0\2\7\0"s, "another version"},
                                                         {"Q\0\0\0\3\1\0x"s, "no end"},
                                                         {std::string(1 << 20, '\xff'), "begins no frame"}}) {
      TestClient const client(served.path());
      client.send(bytes);
      auto const answer = saidAnswer(client.all());
      EXPECT_THAT(answer.complaint, HasSubstr(reason));
      EXPECT_EQ(answer.exitCode, 4);
   }
   EXPECT_EQ(answerTo(served.path(), {"audit"}).exitCode, 0);
}

TEST(ControlServiceTest, ClientsThatLeaveMidwayCostNothing) {
   ServedAgent served("mixed", tight());
   auto const bytes = bytesOf(Request{.words = longRequest});
   for (int count = 0; count < 50; ++count) {
      TestClient(served.path()).close();
      TestClient(served.path()).send(std::string_view(bytes).substr(0, 7));
      TestClient(served.path()).send(bytes);
      TestClient const reader(served.path());
      reader.send(bytes);
      reader.some(100);
   }
   EXPECT_TRUE(becomes(served, 0));
   EXPECT_EQ(answerTo(served.path(), {"audit"}).exitCode, 0);
}

TEST(ControlServiceTest, OneWhoSendsNoMoreIsAnsweredAllTheSame) {
   ServedAgent served;
   TestClient const client(served.path());
   client.ask({"audit"});
   client.shutdownSend();
   EXPECT_EQ(saidAnswer(client.all()).exitCode, 0);
}

TEST(ControlServiceTest, SlowReaderGetsTheWholeAnswer) {
   auto settings = tight();
   settings.mostWaiting = 64 << 20;
   ServedAgent served("big", settings);
   auto const expected = answerTo(served.path(), longRequest).output;
   TestClient const slow(served.path());
   slow.ask(longRequest);
   std::string bytes;
   for (auto part = slow.some(16384); !part.empty(); part = slow.some(16384)) {
      bytes += part;
      std::this_thread::sleep_for(5ms);
   }
   EXPECT_GT(bytes.size(), 1U << 18U) << "a socket could hold it";
   EXPECT_EQ(saidAnswer(bytes).output, expected);
   EXPECT_EQ(saidAnswer(bytes).exitCode, 0);
}

TEST(ControlServiceTest, NeverReadingClientHoldsNobodyUpAndIsSentAway) {
   auto settings = tight();
   settings.mostWaiting = 64 << 20;
   ServedAgent served("big", settings);
   TestClient const never(served.path());
   never.ask(longRequest);
   EXPECT_EQ(answerTo(served.path(), {"audit"}).exitCode, 0);
   EXPECT_EQ(served.counters().clients, 1U) << "the answer was not long enough to wait";
   EXPECT_TRUE(becomes(served, 0));
   EXPECT_EQ(saidAnswer(never.all()).exitCode, -1);
}

TEST(ControlServiceTest, ClientThatReadsByteByByteIsSentAway) {
   auto settings = tight();
   settings.mostWaiting = 64 << 20;
   ServedAgent served("big", settings);
   TestClient const slow(served.path());
   slow.ask(longRequest);
   auto const begin = std::chrono::steady_clock::now();
   std::string bytes;
   for (auto part = slow.some(4096); !part.empty(); part = slow.some(4096)) {
      bytes += part;
      std::this_thread::sleep_for(50ms); // each of these makes room for more
   }
   EXPECT_EQ(saidAnswer(bytes).exitCode, -1);
   EXPECT_GT(std::chrono::steady_clock::now() - begin, 300ms);
   EXPECT_TRUE(becomes(served, 0));
}

TEST(ControlServiceTest, TooManyClientsAreSentAwayWithTheReason) {
   auto settings = tight();
   settings.limits.requestTime = 20s;
   ServedAgent served("mixed", settings);
   std::vector<TestClient> clients;
   for (std::size_t count = 0; count < settings.mostClients; ++count) {
      clients.emplace_back(served.path());
   }
   EXPECT_TRUE(becomes(served, settings.mostClients));
   auto const answer = answerTo(served.path(), {"audit"});
   EXPECT_EQ(answer.complaint, "the agent has too many clients");
   EXPECT_EQ(answer.exitCode, 4);
   EXPECT_EQ(served.counters().refused, 1U);
   clients.pop_back();
   EXPECT_TRUE(becomes(served, settings.mostClients - 1));
   EXPECT_EQ(answerTo(served.path(), {"audit"}).exitCode, 0);
   EXPECT_TRUE(clients.front().ask({"audit"}));
   EXPECT_EQ(saidAnswer(clients.front().all()).exitCode, 0) << "those who were there first stay";
}

TEST(ControlServiceTest, WhatWaitsForSlowReadersIsBounded) {
   auto settings = tight();
   settings.mostWaiting = 100000;
   settings.limits.readTime = 20s;
   ServedAgent served("big", settings);
   TestClient const never(served.path());
   never.ask(longRequest);
   auto const answer = answerTo(served.path(), {"audit"});
   EXPECT_THAT(answer.complaint, HasSubstr("ask again later"));
   EXPECT_EQ(answer.exitCode, 4);
   EXPECT_EQ(saidAnswer(never.all()).exitCode, 0);
   EXPECT_EQ(answerTo(served.path(), {"audit"}).exitCode, 0);
}

TEST(ControlServiceTest, ServiceMayEndWithClientsInEveryState) {
   for (int count = 0; count < 6; ++count) {
      auto served = std::make_unique<ServedAgent>("mixed", tight());
      TestClient const silent(served->path());
      TestClient const half(served->path());
      half.send("Q\0");
      TestClient const never(served->path());
      never.ask(longRequest);
      TestClient monitor(served->path());
      monitor.ask({"monitor"});
      if (count % 2) {
         monitor.textTo("changes follow");
         served->playTo("01-swp1-down");
      }
      served.reset();
      silent.all();
      half.all();
      never.all();
   }
}

} // namespace
} // namespace L3TunnelAgent
