#include "agent/commands/GlobalOptions.h"

#include "chip/model/Layouts.h"
#include "platform/nuv/Hash.h"
#include "plugin/DefaultTraceHandle.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <fmt/format.h>
#include <limits>

namespace L3TunnelAgent {

namespace {

std::optional<std::uint32_t>
number(std::string_view text) {
   std::uint32_t value = 0;
   auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
   return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

std::string
tableNames() {
   std::string names;
   for (auto const* layout : ModelChip::layouts) {
      names += fmt::format("{}{}", names.empty() ? "" : ", ", layout->table);
   }
   return names;
}

bool
isTable(std::string const& name) {
   return std::any_of(std::begin(ModelChip::layouts), std::end(ModelChip::layouts),
                      [&](auto const* layout) { return layout->table == name; });
}

UsageError
wrong(char const* option, std::string const& value, std::string const& why) {
   return UsageError(fmt::format("{} {}: {}", option, printable(value), why));
}

void
chipSizeIs(ModelChip::Chip::Sizes& sizes, std::string const& text) {
   auto const equals = text.find('=');
   if (equals == std::string::npos) {
      throw wrong("--chip-size", text, "is not of the form TABLE=ROWS");
   }
   auto const table = text.substr(0, equals);
   if (!isTable(table)) {
      throw wrong("--chip-size", text, fmt::format("the chip has no such table; it has {}", tableNames()));
   }
   auto const rows = number(std::string_view(text).substr(equals + 1));
   if (!rows || *rows > ModelChip::Chip::maxRows) {
      throw wrong("--chip-size", text,
                  fmt::format("rows is a number from 0 to {}", ModelChip::Chip::maxRows));
   }
   if (!sizes.emplace(table, *rows).second) {
      throw wrong("--chip-size", text, table + " has its rows already");
   }
}

/// The bits of "4", "4-7", "4,6-8" or "all"; nothing when it is none of these.
std::optional<std::uint32_t>
levelsOf(std::string_view text) {
   if (text == "all") {
      return ~std::uint32_t(0);
   }
   std::uint32_t bits = 0;
   for (std::size_t at = 0; at <= text.size();) {
      auto const end = std::min(text.find(',', at), text.size());
      auto const part = text.substr(at, end - at);
      auto const dash = part.find('-');
      auto const first = number(part.substr(0, dash));
      auto const last = dash == std::string_view::npos ? first : number(part.substr(dash + 1));
      if (!first || !last || *first > *last || *last > Trace::TraceHandle::maxLevel) {
         return std::nullopt;
      }
      for (auto level = *first; level <= *last; ++level) {
         bits |= std::uint32_t(1) << level;
      }
      at = end + 1;
   }
   return bits;
}

void
traceIs(std::string const& text) {
   auto& handle = ZandorL3Tunnel::_defaultTraceHandle();
   auto const slash = text.find('/');
   if (slash == std::string::npos) {
      throw wrong("--trace", text, "is not of the form HANDLE/LEVELS");
   }
   if (text.substr(0, slash) != handle.name()) {
      throw wrong("--trace", text, "there is no such handle; there is " + handle.name());
   }
   auto const levels = levelsOf(std::string_view(text).substr(slash + 1));
   if (!levels) {
      throw wrong("--trace", text,
                  fmt::format("levels are numbers from 0 to {} and ranges of these, as in 4,6-8, or all",
                              Trace::TraceHandle::maxLevel));
   }
   handle.levelsAre(*levels);
}

} // namespace

void
optionsAre(CLI::App& app, GlobalOptions& options) {
   app.add_option("--chip-size", options.chipSizes,
                  fmt::format("rows of a table of the chip, 0 to {}, once for each of: {}",
                              ModelChip::Chip::maxRows, tableNames()))
         ->allow_extra_args(false)
         ->type_name("TABLE=ROWS");
   app.add_option(
            "--hash-seed", options.hashSeed,
            "seed of the hash collections, which fixes the order of a block's members (default: random)")
         ->check(CLI::Range(std::numeric_limits<std::uint32_t>::max()).description(""))
         ->type_name("NUMBER");
   app.add_option("--trace", options.traces,
                  "write the library's text trace to standard error, as in L3UnderlayTunnel/4-8 or "
                  "L3UnderlayTunnel/5,8; levels: 4 programmer, 5 writes, 6 resolution and indices, 7 states, "
                  "8 rows, or all")
         ->allow_extra_args(false)
         ->type_name("HANDLE/LEVELS");
   app.add_option("--unresolved", options.unresolved,
                  "whether vias that only the CPU serves stay in a set that also forwards (default: exclude)")
         ->check(CLI::IsMember({"include", "exclude"}).description(""))
         ->type_name("include|exclude");
   app.add_option("--to-cpu", options.toCpu,
                  "whether packets for the CPU go there or are dropped (default: punt)")
         ->check(CLI::IsMember({"punt", "drop"}).description(""))
         ->type_name("punt|drop");
}

Fabric::Settings
settingsOf(GlobalOptions const& options) {
   Fabric::Settings settings{.sizes = {},
                             .includeUnresolved = options.unresolved == "include",
                             .dropToCpu = options.toCpu == "drop"};
   for (auto const& text : options.chipSizes) {
      chipSizeIs(settings.sizes, text);
   }
   return settings;
}

void
processIs(GlobalOptions const& options) {
   if (options.hashSeed && !Nuv::hashSeedIs(*options.hashSeed)) {
      throw std::runtime_error("the hash seed was used before it could be set");
   }
   for (auto const& text : options.traces) {
      traceIs(text);
   }
}

} // namespace L3TunnelAgent
