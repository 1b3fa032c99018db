#include "agent/commands/Subject.h"
#include "agent/views/RowsView.h"
#include "agent/views/Sections.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

using Sections = std::vector<Section const*>;

struct ShowOptions {
   Source source;
   std::vector<std::string> positionals;
   bool json{};
   bool rows{};
};

std::string
sectionNames() {
   std::string names;
   for (auto const& each : sections()) {
      names += fmt::format("{}{}", names.empty() ? "" : ", ", each.name);
   }
   return names;
}

/// In the order of the sections, whatever the order in which they are named.
Sections
chosen(std::vector<std::string> const& names) {
   for (auto const& name : names) {
      if (!section(name)) {
         throw UsageError(fmt::format("show {}: is none of {}", printable(name), sectionNames()));
      }
   }
   Sections result;
   for (auto const& each : sections()) {
      bool const isNamed = std::find(names.begin(), names.end(), each.name) != names.end();
      if (names.empty() ? each.isShownByDefault : isNamed) {
         result.push_back(&each);
      }
   }
   return result;
}

/// The chip's tables that the section's entries have rows in.
std::vector<ModelChip::Table const*>
tablesOf(Section const& section, Agent const& agent) {
   std::vector<ModelChip::Table const*> tables;
   for (auto const* layout : section.tables) {
      tables.push_back(agent.fabric().chip().table(layout->table));
   }
   return tables;
}

std::string
showText(Sections const& sections, View const& view, bool hasRows, Paint const& paint) {
   std::string out;
   for (auto const* section : sections) {
      out += (out.empty() ? "" : "\n") + section->text(view, paint);
      if (hasRows) {
         for (auto const* table : tablesOf(*section, view.agent)) {
            out += "\n" + rowsText(*table, paint);
         }
      }
   }
   return out;
}

Json
showJson(Sections const& sections, View const& view, ShowOptions const& options) {
   auto const& recording = options.source.recording;
   auto document = objectOf(sections.size() + 3);
   document["recording"] = recording ? Json(*recording) : Json();
   document["chip"] = "model";
   std::vector<ModelChip::Table const*> tables;
   for (auto const* section : sections) {
      document[std::string(section->jsonName)] = section->json(view);
      auto const more = tablesOf(*section, view.agent);
      tables.insert(tables.end(), more.begin(), more.end());
   }
   if (options.rows) {
      document["rows"] = rowsJson(tables);
   }
   return document;
}

/// Whether a recording was forgotten behind the sections, rather than being named like one of them.
bool
isSectionAlone(std::string const& last) {
   std::error_code ignored;
   return section(last) && !std::filesystem::exists(last, ignored);
}

Answer
run(ShowOptions options, Context& context) {
   // What was parsed as sections and recording together ends with the recording, if there is one.
   if (!context.running && !options.positionals.empty() && !isSectionAlone(options.positionals.back())) {
      options.source.recording = options.positionals.back();
      options.positionals.pop_back();
   }
   auto const wanted = chosen(options.positionals);
   positionalsAre(context, options.source);
   Subject const subject(context, options.source);
   Users const users(subject.agent().fabric());
   View const view{subject.agent(), users};
   return {.text = options.json ? text(showJson(wanted, view, options))
                                : showText(wanted, view, options.rows, context.paint)};
}

} // namespace

Command
showCommand(CLI::App& app) {
   auto options = std::make_shared<ShowOptions>();
   auto* const command = app.add_subcommand("show", "show the software tables");
   // A list that another positional follows would take that one as well: they are one list here, and parted
   // above.
   command->add_option(
         "[WHAT...] RECORDING", options->positionals,
         fmt::format("what to show, of {} (default: all but handles); then the recording, plain "
                     "or gzip; - reads standard input",
                     sectionNames()));
   untilIs(*command, options->source);
   runningIs(*command, options->source);
   command->add_flag("--json", options->json, "print JSON");
   command->add_flag("--rows", options->rows, "add the rows that the chip has in the tables shown, decoded");
   return {[options](Context& context) { return run(*options, context); },
           std::shared_ptr<Asked>(options, &options->source)};
}

} // namespace L3TunnelAgent
