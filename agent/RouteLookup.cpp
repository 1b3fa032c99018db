#include "agent/RouteLookup.h"

#include <algorithm>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <optional>

namespace L3TunnelAgent {

namespace {

using Outcome = RouteMatch::Outcome;

/// The next hops that a route names, inline or by an object, each with its weight in the route.
struct NamedHops {
   std::vector<NextHop> hops;
   bool blackhole{};
};

struct TypeOutcome {
   Outcome outcome;
   char const* reason;
};

/// @return what a route does that forwards nothing; nothing for the others.
std::optional<TypeOutcome>
outcomeOf(std::uint8_t type) {
   switch (type) {
   case RTN_BLACKHOLE:
      return TypeOutcome{Outcome::drop, "blackhole"};
   case RTN_UNREACHABLE:
      return TypeOutcome{Outcome::drop, "unreachable"};
   case RTN_PROHIBIT:
      return TypeOutcome{Outcome::drop, "prohibit"};
   case RTN_LOCAL:
      return TypeOutcome{Outcome::local, "local"};
   case RTN_BROADCAST:
      return TypeOutcome{Outcome::local, "broadcast"};
   case RTN_MULTICAST:
      return TypeOutcome{Outcome::local, "multicast"};
   case RTN_ANYCAST:
      return TypeOutcome{Outcome::local, "anycast"};
   default:
      return std::nullopt;
   }
}

class Search {
 public:
   Search(KernelState const& state, IpAddress const& destination, SearchObserver& observer)
       : state_(state), destination_(destination), observer_(observer) {}

   RouteMatch run() {
      RouteMatch none{Outcome::none, {}, "no route"};
      auto const& rules = state_.rules(destination_.family);
      for (auto rule = rules.begin(); rule != rules.end();) {
         auto const next = jump(rules, rule);
         bool const applies = ruleVerdict(state_, *rule, destination_) == RuleVerdict::yes &&
                              (next != rules.end() || counts(*rule));
         observer_.onRule(*rule, applies);
         if (applies && rule->action == FR_ACT_GOTO) {
            rule = next;
            continue;
         }
         if (applies) {
            if (auto found = outcome(*rule, none.reason)) {
               return *std::move(found);
            }
         }
         ++rule;
      }
      return none;
   }

 private:
   using Rules = std::vector<Rule>;

   static bool counts(Rule const& rule) { return rule.action == FR_ACT_TO_TBL || dropReason(rule); }

   static char const* dropReason(Rule const& rule) {
      switch (rule.action) {
      case FR_ACT_BLACKHOLE:
         return "blackhole";
      case FR_ACT_UNREACHABLE:
         return "unreachable";
      case FR_ACT_PROHIBIT:
         return "prohibit";
      default:
         return nullptr;
      }
   }

   /// @return the first rule of the priority that a rule jumps to, which is a later one; the end when it
   /// jumps nowhere.
   static Rules::const_iterator jump(Rules const& rules, Rules::const_iterator rule) {
      if (rule->action != FR_ACT_GOTO || !rule->target || *rule->target <= rule->priority) {
         return rules.end();
      }
      auto const found =
            std::lower_bound(rule, rules.end(), *rule->target,
                             [](Rule const& r, std::uint32_t priority) { return r.priority < priority; });
      return found != rules.end() && found->priority == *rule->target ? found : rules.end();
   }

   std::optional<RouteMatch> outcome(Rule const& rule, std::string& why) const {
      if (char const* const reason = dropReason(rule)) {
         return RouteMatch{Outcome::drop, {}, reason};
      }
      return searchTable(rule, why);
   }

   bool inUse(NextHop const& hop) const {
      bool const result = !state_.hopState(hop, destination_.family).dead;
      observer_.onHop(hop, result);
      return result;
   }

   NextHopObject const* object(std::uint32_t id) const {
      auto const* const found = state_.nextHop(id);
      observer_.onObject(id, found);
      return found;
   }

   // Dumps of routes and of objects are made one after the other, so an object may be missing.
   void addSingle(NamedHops& named, NextHopObject const* single, unsigned weight) const {
      if (!single || !single->group.empty() || single->fdb) {
         return;
      }
      named.blackhole |= single->blackhole;
      named.hops.push_back(single->hop);
      named.hops.back().weight = weight;
   }

   NamedHops namedHops(Route const& route) const {
      NamedHops named;
      if (!route.nextHopId) {
         named.hops = route.hops;
         return named;
      }
      auto const* const whole = object(*route.nextHopId);
      if (!whole) {
         return named;
      }
      for (auto const& member : whole->group) {
         addSingle(named, object(member.id), member.weight);
      }
      if (whole->group.empty()) {
         addSingle(named, whole, 1);
      }
      return named;
   }

   /// What one route does; nothing when none of its next hops is in use, so that the search goes on.
   std::optional<RouteMatch> match(Route const& route) const {
      if (auto const outcome = outcomeOf(route.type)) {
         bool const keepsDevice = outcome->outcome == Outcome::local && route.type != RTN_LOCAL;
         return RouteMatch{outcome->outcome, keepsDevice ? namedHops(route).hops : std::vector<NextHop>{},
                           outcome->reason};
      }
      NamedHops named = namedHops(route);
      if (named.blackhole) {
         return RouteMatch{Outcome::drop, {}, "blackhole"};
      }
      std::erase_if(named.hops, [&](NextHop const& hop) { return !inUse(hop); });
      if (named.hops.empty()) {
         return std::nullopt;
      }
      return RouteMatch{Outcome::forward, std::move(named.hops), ""};
   }

   /// @param found receives what the search leads to; stays empty where only the search in this table ends.
   /// @return nothing when the next route is to be asked.
   std::optional<RouteVerdict> ask(Rule const& rule, Prefix const& prefix, Route const& route,
                                   std::optional<RouteMatch>& found) const {
      if (route.type == RTN_THROW) {
         return RouteVerdict::thrown;
      }
      found = match(route);
      if (!found) {
         observer_.onRoute(prefix, route, RouteVerdict::hopsDown);
         return std::nullopt;
      }
      // Only what was found is suppressed: a route that drops is none that was.
      if (rule.suppressedLength && prefix.length <= *rule.suppressedLength &&
          found->outcome != Outcome::drop) {
         found.reset();
         return RouteVerdict::suppressed;
      }
      return RouteVerdict::taken;
   }

   /// Searches one table, longest prefix first.
   /// @param why receives why a route that was met did not count.
   /// @return nothing when the next rule is to be tried.
   std::optional<RouteMatch> searchTable(Rule const& rule, std::string& why) const {
      std::optional<RouteMatch> found;
      std::uint8_t length = 0;
      auto const askAll = [&](Prefix const& prefix, RouteTable::Routes const& routes) {
         for (Route const& route : routes) {
            if (route.tos != 0) {
               observer_.onRoute(prefix, route, RouteVerdict::ofServiceType);
               continue;
            }
            auto const verdict = ask(rule, prefix, route, found);
            if (!verdict) {
               why = "no route: next hops down";
               continue;
            }
            if (*verdict == RouteVerdict::thrown) {
               why = "no route: throw";
            }
            observer_.onRoute(prefix, route, *verdict);
            length = prefix.length;
            return true;
         }
         return false;
      };
      if (auto const* const table = state_.table(destination_.family, rule.table)) {
         table->eachContaining(destination_, askAll);
      }
      observer_.onTableSearched(rule.table, length);
      return found;
   }

   KernelState const& state_;
   IpAddress const& destination_;
   SearchObserver& observer_;
};

} // namespace

RuleVerdict
ruleVerdict(KernelState const& state, Rule const& rule, IpAddress const& destination) {
   bool isKnown = !rule.selective;
   bool applies = !rule.foreign && (!rule.destination || rule.destination->contains(destination));
   if (applies && (rule.source || rule.port)) {
      auto const header = state.outerHeader(destination.family);
      if (rule.source) {
         isKnown &= header.source.has_value();
         applies &= !header.source || rule.source->contains(*header.source);
      }
      if (rule.port) {
         isKnown &= header.port.has_value();
         applies &= !header.port || (rule.port->first <= *header.port && *header.port <= rule.port->last);
      }
   }
   if (applies && !isKnown) {
      return RuleVerdict::unknown;
   }
   return applies != rule.inverted ? RuleVerdict::yes : RuleVerdict::no;
}

std::size_t
unknownRules(KernelState const& state) {
   std::size_t count = 0;
   for (auto const family : {IpAddress::Family::v4, IpAddress::Family::v6}) {
      for (Rule const& rule : state.rules(family)) {
         IpAddress any;
         any.family = family;
         auto const destination = rule.destination ? rule.destination->address : any;
         count += ruleVerdict(state, rule, destination) == RuleVerdict::unknown ? 1 : 0;
      }
   }
   return count;
}

RouteMatch
findRoute(KernelState const& state, IpAddress const& destination, SearchObserver* observer) {
   SearchObserver nobody;
   return Search(state, destination, observer ? *observer : nobody).run();
}

} // namespace L3TunnelAgent
