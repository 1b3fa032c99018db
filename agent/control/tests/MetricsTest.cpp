#include "agent/control/Metrics.h"
#include "agent/control/HttpRequest.h"
#include "agent/control/tests/ServedAgent.h"
#include "agent/control/tests/TestClient.h"
#include "agent/tests/AgentProcess.h"
#include "agent/tests/PlayedAgent.h"
#include "agent/views/Summary.h"

#include <cmath>
#include <gmock/gmock.h>
#include <regex>
#include <sstream>

namespace L3TunnelAgent {
namespace {

using testing::HasSubstr;

/// The text format 0.0.4, read as strictly as it can be.
class Exposition {
 public:
   explicit Exposition(std::string const& text) {
      EXPECT_TRUE(text.ends_with("\n"));
      std::istringstream in(text);
      for (std::string line; std::getline(in, line);) {
         lineIs(line);
      }
   }

   /// The series with its labels as they stand there.
   double value(std::string const& series) const {
      auto const found = values_.find(series);
      EXPECT_NE(found, values_.end()) << series;
      return found == values_.end() ? NAN : found->second;
   }

   std::map<std::string, double> const& values() const { return values_; }
   std::map<std::string, std::string> const& types() const { return types_; }

 private:
   void lineIs(std::string const& line) {
      static std::regex const help("# HELP (l3tunnel_[a-z][a-z0-9_]*) ([A-Z][^\\\\\n]*[.])");
      static std::regex const type("# TYPE (l3tunnel_[a-z][a-z0-9_]*) (counter|gauge|histogram)");
      static std::regex const sample("(l3tunnel_[a-z][a-z0-9_]*)(\\{[a-z]+=\"[^\"\\\\\n]*\"\\})? (\\S+)");
      std::smatch parts;
      if (std::regex_match(line, parts, help)) {
         EXPECT_FALSE(types_.contains(parts[1])) << "twice: " << line;
         helped_ = parts[1];
      } else if (std::regex_match(line, parts, type)) {
         EXPECT_EQ(parts[1], helped_) << line;
         EXPECT_EQ(parts[2] == "counter", helped_.ends_with("_total")) << line;
         types_[helped_] = parts[2];
      } else if (std::regex_match(line, parts, sample)) {
         sampleIs(parts[1], parts[2], parts[3]);
      } else {
         ADD_FAILURE() << "is no line of the format: " << line;
      }
   }

   void sampleIs(std::string const& name, std::string const& labels, std::string const& value) {
      bool const isHistogram = types_[helped_] == "histogram";
      EXPECT_TRUE(isHistogram ? name == helped_ + "_bucket" || name == helped_ + "_sum" ||
                                      name == helped_ + "_count"
                              : name == helped_)
            << name << " does not stand beneath its own TYPE";
      std::size_t end = 0;
      auto const number = std::stod(value, &end);
      EXPECT_EQ(end, value.size()) << value;
      EXPECT_GE(number, 0);
      EXPECT_TRUE(values_.emplace(name + labels, number).second) << "twice: " << name << labels;
   }

   std::string helped_;
   std::map<std::string, std::string> types_;
   std::map<std::string, double> values_;
};

TEST(MetricsTest, NumbersAreThoseOfTheAgent) {
   auto const agent = playedAgent("mixed");
   auto const summary = summaryOf(*agent);
   Counters live;
   live.messages = 7;
   live.overruns = 2;
   live.reconciliations = 3;
   ControlService::Counters control;
   control.clients = 4;
   control.changesLeftOut = 5;
   Exposition const metrics(metricsText({.agent = agent.get(), .live = &live, .control = &control}));
   EXPECT_EQ(metrics.value("l3tunnel_destinations{state=\"success\"}"), 50);
   EXPECT_EQ(metrics.value("l3tunnel_destinations{state=\"noRoute\"}"), 4);
   EXPECT_EQ(metrics.value("l3tunnel_destinations{state=\"failed\"}"), 0);
   double written = 0;
   for (auto const& rows : summary.rows) {
      auto const label = "{table=\"" + rows.table + "\"}";
      EXPECT_EQ(metrics.value("l3tunnel_rows_used" + label), rows.used);
      EXPECT_EQ(metrics.value("l3tunnel_rows_size" + label), rows.size);
      written += metrics.value("l3tunnel_rows_written_total" + label);
   }
   EXPECT_EQ(written, summary.rowsWritten);
   EXPECT_EQ(metrics.value("l3tunnel_rows_needless_total"), 0);
   EXPECT_EQ(metrics.value("l3tunnel_messages_total"), 7);
   EXPECT_EQ(metrics.value("l3tunnel_overruns_total"), 2);
   EXPECT_EQ(metrics.value("l3tunnel_reconciliations_total"), 3);
   EXPECT_EQ(metrics.value("l3tunnel_control_clients"), 4);
   EXPECT_EQ(metrics.value("l3tunnel_control_changes_left_out_total"), 5);
   EXPECT_EQ(metrics.types().at("l3tunnel_destinations"), "gauge");
}

TEST(MetricsTest, HistogramAddsUp) {
   Counters live;
   live.reactions.add(std::chrono::microseconds(700));
   live.reactions.add(std::chrono::microseconds(800));
   live.reactions.add(std::chrono::milliseconds(30));
   live.reactions.add(std::chrono::seconds(100));
   Exposition const metrics(metricsText({.agent = nullptr, .live = &live, .control = nullptr}));
   auto const bucket = [&](char const* bound) {
      return metrics.value("l3tunnel_reaction_seconds_bucket{le=\"" + std::string(bound) + "\"}");
   };
   EXPECT_EQ(bucket("0.0005"), 0);
   EXPECT_EQ(bucket("0.001"), 2);
   EXPECT_EQ(bucket("0.025"), 2);
   EXPECT_EQ(bucket("0.05"), 3);
   EXPECT_EQ(bucket("2.5"), 3);
   EXPECT_EQ(bucket("+Inf"), 4);
   EXPECT_EQ(metrics.value("l3tunnel_reaction_seconds_count"), 4);
   EXPECT_NEAR(metrics.value("l3tunnel_reaction_seconds_sum"), 100.0315, 1e-6);
}

TEST(MetricsTest, CommandPrintsThemFromTheRunningAgent) {
   ServedAgent const served;
   auto const outcome = runAgent("metrics --control " + served.path());
   EXPECT_EQ(outcome.exitCode, 0);
   EXPECT_EQ(outcome.error, "");
   Exposition const metrics(outcome.out);
   EXPECT_EQ(metrics.value("l3tunnel_destinations{state=\"success\"}"), 50);
   EXPECT_EQ(metrics.value("l3tunnel_control_clients"), 1);
   EXPECT_EQ(metrics.value("l3tunnel_control_requests_total"), 1);
}

TEST(HttpRequestTest, OutcomeIsThatOfTheProtocol) {
   auto const status = [](std::string const& head) { return httpOutcome(head, "/metrics").status; };
   std::string const host = "Host: localhost:9000\r\n";
   EXPECT_EQ(status("GET /metrics HTTP/1.1\r\n" + host + "\r\n"), 200);
   EXPECT_EQ(status("GET /metrics HTTP/1.1\r\nhOsT:x\r\nAccept: */*\r\n\r\n"), 200);
   EXPECT_EQ(status("GET /metrics?x=1 HTTP/1.1\r\n" + host + "\r\n"), 200);
   EXPECT_EQ(status("HEAD /metrics HTTP/1.1\r\n" + host + "\r\n"), 200);
   EXPECT_EQ(status("GET /metrics HTTP/1.0\r\n\r\n"), 200);
   EXPECT_EQ(status("GET /metrics HTTP/1.9\r\n" + host + "\r\n"), 200);
   EXPECT_EQ(status("GET / HTTP/1.1\r\n" + host + "\r\n"), 404);
   EXPECT_EQ(status("GET /metrics/ HTTP/1.1\r\n" + host + "\r\n"), 404);
   EXPECT_EQ(status("GET /metricsx HTTP/1.1\r\n" + host + "\r\n"), 404);
   EXPECT_EQ(status("POST /metrics HTTP/1.1\r\n" + host + "\r\n"), 405);
   EXPECT_EQ(status("get /metrics HTTP/1.1\r\n" + host + "\r\n"), 405);
   EXPECT_EQ(status("GET /metrics HTTP/2.0\r\n" + host + "\r\n"), 505);
   EXPECT_EQ(status("GET /metrics HTTP/0.9\r\n" + host + "\r\n"), 505);
   // A host is needed, and only one.
   EXPECT_EQ(status("GET /metrics HTTP/1.1\r\n\r\n"), 400);
   EXPECT_EQ(status("GET /metrics HTTP/1.1\r\n" + host + host + "\r\n"), 400);
   for (auto const* line : {"", "GET", "GET /metrics", "GET  /metrics HTTP/1.1", "GET /metrics  HTTP/1.1",
                            "GET /metrics HTTP/1.1 ", "GET /metrics HTTP/11", "GET /metrics http/1.1",
                            "GET /metrics HTTP/1.x", " GET /metrics HTTP/1.1", "GE\tT /metrics HTTP/1.1",
                            "GET /met\x01rics HTTP/1.1", "GET /metrics HTTP/1.1\n"}) {
      EXPECT_EQ(status(line + std::string("\r\n") + host + "\r\n"), 400) << line;
   }
   for (auto const* field : {"nothing", ": x", "a b: x", " folded: x", "a : x"}) {
      EXPECT_EQ(status("GET /metrics HTTP/1.1\r\n" + host + field + "\r\n\r\n"), 400) << field;
   }
}

TEST(HttpRequestTest, AnswerSaysHowLongItIs) {
   EXPECT_EQ(
         httpAnswer({.status = 200, .isHeadOnly = false}, "a 1\n"),
         "HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\nContent-Length: 4\r\n"
         "Connection: close\r\n\r\na 1\n");
   EXPECT_EQ(
         httpAnswer({.status = 200, .isHeadOnly = true}, "a 1\n"),
         "HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\nContent-Length: 4\r\n"
         "Connection: close\r\n\r\n");
   EXPECT_EQ(httpAnswer({.status = 405, .isHeadOnly = false}, ""),
             "HTTP/1.1 405 Method Not Allowed\r\nContent-Type: text/plain; charset=utf-8\r\n"
             "Content-Length: 23\r\nAllow: GET, HEAD\r\nConnection: close\r\n\r\n405 Method Not Allowed\n");
   EXPECT_EQ(httpHeadEnd("GET / HTTP/1.0\r\n\r\nmore"), 18U);
   EXPECT_EQ(httpHeadEnd("GET / HTTP/1.0\r\n\r"), std::nullopt);
}

} // namespace
} // namespace L3TunnelAgent
