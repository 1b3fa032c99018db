#pragma once

#include "platform/nuv/Exception.h"
#include "platform/nuv/Text.h"

#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace ZandorL3Tunnel {

/// One thing that happens to a whole system. What makes no sense where it comes does nothing, so a script
/// that lost some of its steps is a script still.
struct Step {
   enum class Act : std::uint8_t {
      interface,     ///< interface `what` carries `value`
      interfaceGone, ///< interface `what` is removed
      destination, ///< destination `what` is to be reached over `vias`; with `flag` what is for the CPU drops
      reference,   ///< the same, and its group lives by a handle
      destinationGone, ///< destination `what` is removed
      again,           ///< what destination `what` was last asked for once more
      letGo,           ///< destination `what` lives by its group alone
      initTables,      ///< the programmer begins with new tables
      refuse, ///< the next `value` commands of table `what` are refused: writes with `flag`, else deletes
      hold,   ///< the next `value` answers of table `what` are held
      delay,  ///< the next answers of table `what` come `value` turns late
      lose,   ///< the next `value` answers of table `what` never come
      repeat, ///< the next `value` answers of table `what` come twice
      draw, ///< faults are drawn with seed `vias`, `value` parts of 1000 each; with `flag` answers are lost,
            ///< too
      answers, ///< held and late answers come
      calm,    ///< no more faults, and held and late answers come
      run,     ///< `value` reactions run
      settle   ///< all reactions run
   };

   Act act{};
   std::uint8_t what{};
   std::uint16_t value{};
   bool flag{};
   std::uint32_t vias{}; ///< a set of vias, one bit each

   friend bool operator==(Step const&, Step const&) = default;
};

using Script = std::vector<Step>;

namespace detail {

/// A kind of step by name, and which of a step's fields it has.
struct ActInfo {
   char const* name;
   bool hasWhat;
   bool hasValue;
   bool hasFlag;
   bool hasVias;
};

inline constexpr ActInfo actInfos[] = {{"interface", true, true, false, false},
                                       {"interface-gone", true, false, false, false},
                                       {"destination", true, false, true, true},
                                       {"reference", true, false, true, true},
                                       {"destination-gone", true, false, false, false},
                                       {"again", true, false, false, false},
                                       {"let-go", true, false, false, false},
                                       {"init-tables", false, false, false, false},
                                       {"refuse", true, true, true, false},
                                       {"hold", true, true, false, false},
                                       {"delay", true, true, false, false},
                                       {"lose", true, true, false, false},
                                       {"repeat", true, true, false, false},
                                       {"draw", false, true, true, true},
                                       {"answers", false, false, false, false},
                                       {"calm", false, false, false, false},
                                       {"run", false, true, false, false},
                                       {"settle", false, false, false, false}};
static_assert(std::size(actInfos) == std::size_t(Step::Act::settle) + 1);

} // namespace detail

/// A step as a line of text, such as "destination 5 vias=0x12 flag".
inline std::string
stepText(Step const& step) {
   auto const& info = detail::actInfos[std::size_t(step.act)];
   std::ostringstream out;
   out << info.name;
   if (info.hasWhat) {
      out << ' ' << unsigned(step.what);
   }
   if (info.hasValue) {
      out << " value=" << step.value;
   }
   if (info.hasVias) {
      out << " vias=0x" << std::hex << step.vias;
   }
   if (info.hasFlag && step.flag) {
      out << " flag";
   }
   return out.str();
}

/// The step of a line; throws `Nuv::RangeException` with the line when it is none.
inline Step
stepOf(std::string const& line) {
   std::istringstream words(line);
   std::string word;
   words >> word;
   for (auto const& info : detail::actInfos) {
      if (word != info.name) {
         continue;
      }
      Step step;
      step.act = Step::Act(&info - detail::actInfos);
      unsigned what{};
      bool isGood = !info.hasWhat || (words >> what);
      step.what = std::uint8_t(what);
      while (isGood && words >> word) {
         auto number = word.substr(word.find('=') + 1);
         if (info.hasValue && word.starts_with("value=")) {
            step.value = std::uint16_t(std::strtoul(number.c_str(), nullptr, 0));
         } else if (info.hasVias && word.starts_with("vias=")) {
            step.vias = std::uint32_t(std::strtoul(number.c_str(), nullptr, 0));
         } else {
            isGood = info.hasFlag && word == "flag";
            step.flag = isGood;
         }
      }
      if (isGood) {
         return step;
      }
   }
   throw Nuv::RangeException("no step: " + line);
}

inline std::string
scriptText(Script const& script) {
   std::string text;
   for (auto const& step : script) {
      text += stepText(step) + '\n';
   }
   return text;
}

/// Steps that are the same but for being simpler, the simplest first: for scripts that are made short.
inline std::vector<Step>
simplerSteps(Step const& step) {
   std::vector<Step> steps;
   auto add = [&](auto&& change) {
      auto simpler = step;
      change(simpler);
      if (simpler != step) {
         steps.push_back(simpler);
      }
   };
   if (step.act == Step::Act::reference) {
      add([](Step& to) { to.act = Step::Act::destination; });
   }
   if (step.act == Step::Act::draw) {
      return steps;
   }
   for (std::uint32_t via = 1; via != 0; via <<= 1) {
      if (step.vias & via) {
         add([&](Step& to) { to.vias &= ~via; });
      }
   }
   add([](Step& to) { to.flag = false; });
   if (step.value > 1) {
      add([](Step& to) { to.value = 1; });
      add([](Step& to) { to.value /= 2; });
      add([](Step& to) { --to.value; });
   }
   return steps;
}

} // namespace ZandorL3Tunnel
