#include "agent/control/Metrics.h"

#include "agent/views/Summary.h"

#include <chrono>
#include <fmt/format.h>
#include <initializer_list>
#include <string_view>

namespace L3TunnelAgent {

namespace {

/// The text of metrics, one after the other. Labels are our own words, which need no escapes.
class Writer {
 public:
   /// What the lines that follow are of.
   void metricIs(std::string_view name, std::string_view type, std::string_view help) {
      name_ = fmt::format("l3tunnel_{}", name);
      out_ += fmt::format("# HELP {} {}\n# TYPE {} {}\n", name_, help, name_, type);
   }

   template <class Number>
   void valueIs(Number value) {
      out_ += fmt::format("{} {}\n", name_, value);
   }

   template <class Number>
   void valueIs(std::string_view label, std::string_view of, Number value) {
      out_ += fmt::format("{}{{{}=\"{}\"}} {}\n", name_, label, of, value);
   }

   template <class Number>
   void counterIs(std::string_view name, std::string_view help, Number value) {
      metricIs(name, "counter", help);
      valueIs(value);
   }

   void gaugeIs(std::string_view name, std::string_view help, std::uint64_t value) {
      metricIs(name, "gauge", help);
      valueIs(value);
   }

   void histogramIs(std::string_view name, std::string_view help, ReactionTimes const& times);

   std::string take() { return std::move(out_); }

 private:
   std::string name_;
   std::string out_;
};

double
seconds(std::chrono::nanoseconds time) {
   return std::chrono::duration<double>(time).count();
}

void
Writer::histogramIs(std::string_view name, std::string_view help, ReactionTimes const& times) {
   metricIs(name, "histogram", help);
   std::uint64_t sum = 0;
   for (std::size_t at = 0; at < times.buckets().size(); ++at) {
      sum += times.buckets()[at];
      out_ += fmt::format("{}_bucket{{le=\"{}\"}} {}\n", name_, ReactionTimes::bounds[at], sum);
   }
   out_ += fmt::format("{}_bucket{{le=\"+Inf\"}} {}\n{}_sum {}\n{}_count {}\n", name_, times.count(), name_,
                       seconds(times.sum()), name_, times.count());
}

void
destinationsAre(Writer& out, Summary const& summary) {
   out.metricIs("destinations", "gauge", "Tunnel destinations by state.");
   for (std::size_t state = 0; state < Summary::numStates; ++state) {
      out.valueIs("state", text(DestinationState(state)), summary.byState[state]);
   }
   out.gaugeIs("destinations_kept_old", "Failed destinations that keep the vias they had.", summary.keptOld);
   out.gaugeIs("vias", "Vias of all destinations.", summary.vias);
   out.gaugeIs("vias_left_out", "Vias to the CPU left out beside vias that forward.", summary.viasLeftOut);
   out.gaugeIs("vias_short", "Vias to the CPU for want of an interface index or port number.",
               summary.viasShort);
   out.gaugeIs("blocks", "Blocks of members at which groups point.", summary.blocks);
   out.gaugeIs("blocks_shared", "Blocks at which several groups point.", summary.sharedBlocks);
}

void
rowsAre(Writer& out, Agent const& agent) {
   auto const& tables = agent.fabric().chip().tables();
   out.metricIs("rows_used", "gauge", "Rows that the chip has in a table.");
   for (auto const& table : tables) {
      out.valueIs("table", table->shape().name, table->rowsPresent());
   }
   out.metricIs("rows_size", "gauge", "Rows that a table of the chip has room for.");
   for (auto const& table : tables) {
      out.valueIs("table", table->shape().name, table->numEntries());
   }
   out.metricIs("rows_written_total", "counter", "Rows that the chip wrote or cleared in a table.");
   for (auto const& table : tables) {
      out.valueIs("table", table->shape().name, agent.rows().count(*table));
   }
   out.counterIs("rows_needless_total", "Rows written that had the same words already.",
                 agent.rows().needless());
}

void
workIs(Writer& out, Agent::Work const& work) {
   out.counterIs("rounds_total", "Times that messages were taken together.", work.rounds);
   out.counterIs("destinations_changed_total", "Destinations derived anew with another outcome.",
                 work.changedDestinations);
   out.metricIs("work_seconds_total", "counter", "Time spent on messages, derivation and programming.");
   out.valueIs("phase", "reading", seconds(work.reading));
   out.valueIs("phase", "deriving", seconds(work.deriving));
   out.valueIs("phase", "programming", seconds(work.programming));
}

void
liveIs(Writer& out, Counters const& live) {
   out.counterIs("messages_total", "Datagrams announced by the kernel.", live.messages);
   out.counterIs("messages_foreign_total", "Datagrams of others than the kernel, passed over.", live.foreign);
   out.counterIs("messages_unreadable_total", "Messages that could not be read, passed over.",
                 live.unreadable);
   out.counterIs("overruns_total", "Times that announcements were lost.", live.overruns);
   out.counterIs("dumps_total", "Dumps of one kind of the kernel's state.", live.dumps);
   out.counterIs("dumps_interrupted_total", "Dumps that may not fit together, asked for again.",
                 live.interruptedDumps);
   out.counterIs("dumps_failed_total", "Attempts to read the kernel's state that were given up.",
                 live.failedDumps);
   out.counterIs("reconciliations_total", "Times that a dumped state replaced the known one.",
                 live.reconciliations);
   out.counterIs("reconciliations_differing_total", "Reconciliations that found a difference.",
                 live.differing);
   out.counterIs("confirmations_total", "Reconciliations of what the kernel drops silently.",
                 live.confirmations);
   out.counterIs("confirmations_differing_total", "Confirmations that found a difference.",
                 live.confirmationsDiffering);
   out.histogramIs("reaction_seconds", "Time from the first message of a burst to the chip's last answer.",
                   live.reactions);
}

void
controlIs(Writer& out, ControlService::Counters const& control) {
   out.gaugeIs("control_clients", "Clients of the control socket.", control.clients);
   out.gaugeIs("control_monitors", "Clients that follow changes.", control.monitors);
   out.counterIs("control_clients_total", "Clients of the control socket since the start.", control.accepted);
   out.counterIs("control_requests_total", "Requests over the control socket.", control.requests);
   out.counterIs("control_refused_total", "Clients and requests turned away.", control.refused);
   out.counterIs("control_changes_left_out_total", "Changes that monitors were too slow to read.",
                 control.changesLeftOut);
}

} // namespace

std::string
metricsText(MetricsSource const& source) {
   Writer out;
   if (source.agent) {
      destinationsAre(out, summaryOf(*source.agent));
      rowsAre(out, *source.agent);
      workIs(out, source.agent->work());
   }
   if (source.live) {
      liveIs(out, *source.live);
   }
   if (source.control) {
      controlIs(out, *source.control);
   }
   return out.take();
}

} // namespace L3TunnelAgent
