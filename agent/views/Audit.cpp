#include "agent/views/Audit.h"

#include "agent/views/Names.h"
#include "agent/views/RowsView.h"

#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

using Kind = AuditFinding::Kind;
using Words = std::vector<std::uint32_t>;

std::uint64_t
expectedValue(ExpectedRow const& row, ModelChip::BitField const& field) {
   for (auto const& expected : row.fields) {
      if (expected.field->offset == field.offset) {
         return expected.value;
      }
   }
   return 0;
}

/// The bits of a row that no field has.
Words
strayBits(ModelChip::RowLayout const& layout, std::span<std::uint32_t const> row) {
   Words stray(row.begin(), row.end());
   for (auto const& field : layout.fields) {
      field.pack(stray, 0);
   }
   return stray;
}

std::vector<AuditFinding::Difference>
differencesOf(ModelChip::RowLayout const& layout, ExpectedRow const& expected,
              std::span<std::uint32_t const> row) {
   std::vector<AuditFinding::Difference> all;
   for (auto const& field : layout.fields) {
      auto const wanted = expectedValue(expected, field);
      auto const found = field.unpack(row);
      if (wanted != found) {
         all.push_back({field.name, fieldText(field, wanted), fieldText(field, found)});
      }
   }
   auto const stray = strayBits(layout, row);
   if (stray != Words(stray.size())) {
      all.push_back({"bits of no field", "0", fmt::format("{:08x}", fmt::join(stray, " "))});
   }
   return all;
}

AuditFinding
finding(Kind kind, ModelChip::Table const& table, ExpectedRow const& row) {
   return {.kind = kind,
           .table = table.shape().name,
           .index = row.index,
           .owner = row.owner,
           .destinations = row.destinations ? *row.destinations : Users::Addresses(),
           .differences = {}};
}

/// Compares the rows of one table with what is said of them.
void
auditTable(ModelChip::Table const& table, std::vector<ExpectedRow> const& expected, AuditResult& result) {
   std::map<Asic::Index, ExpectedRow const*> said;
   for (auto const& row : expected) {
      auto& claim = said[row.index];
      if (claim && claim->isComplete && row.isComplete) {
         result.findings.push_back(finding(Kind::claimedTwice, table, row));
      }
      claim = claim && claim->isComplete ? claim : &row;
   }
   for (auto const& [index, row] : said) {
      if (!row->isComplete) {
         ++result.passedOver;
         continue;
      }
      ++result.compared;
      if (!table.hasRow(index)) {
         result.findings.push_back(finding(Kind::missing, table, *row));
         continue;
      }
      if (auto differences = differencesOf(table.layout(), *row, table.row(index)); !differences.empty()) {
         result.findings.push_back(finding(Kind::differs, table, *row));
         result.findings.back().differences = std::move(differences);
      }
   }
   for (Asic::Index index = 0; index < table.numEntries(); ++index) {
      if (table.hasRow(index) && !said.contains(index)) {
         ++result.compared;
         ExpectedRow const none{
               .index = index, .isComplete = {}, .owner = {}, .destinations = {}, .fields = {}};
         result.findings.push_back(finding(Kind::foreign, table, none));
         result.findings.back().differences = differencesOf(table.layout(), none, table.row(index));
      }
   }
}

std::string
findingText(AuditFinding const& found) {
   static constexpr char const* kinds[] = {"row is missing", "row of no entry", "row differs",
                                           "row of two entries"};
   auto line = fmt::format("{} row {}: {}", found.table, found.index, kinds[std::size_t(found.kind)]);
   if (!found.owner.empty()) {
      line += "; it is " + found.owner;
      line +=
            found.destinations.empty() ? ", of no destination" : " for " + addressesText(found.destinations);
   }
   line += "\n";
   for (auto const& [field, expected, value] : found.differences) {
      line += found.kind == Kind::foreign ? fmt::format("  {} is {}\n", field, value)
                                          : fmt::format("  {} is {}, not {}\n", field, value, expected);
   }
   return line;
}

} // namespace

AuditResult
audit(Fabric const& fabric) {
   Users const users(fabric);
   AuditResult result;
   for (auto const& table : fabric.chip().tables()) {
      auditTable(*table, expectedRows(fabric, users, table->layout()), result);
   }
   return result;
}

std::string
text(AuditResult const& result, Paint const& paint) {
   std::string out;
   for (auto const& found : result.findings) {
      out += paint(Style::bad, findingText(found));
   }
   if (result.passedOver) {
      out += fmt::format("{} of entries that are not complete passed over.\n",
                         counted(result.passedOver, "row", "rows"));
   }
   auto const verdict = result.findings.empty()
                              ? std::string("none differs from the software tables")
                              : counted(result.findings.size(), "differs from the software tables",
                                        "differ from the software tables");
   return out + fmt::format("{} compared: {}.\n", counted(result.compared, "row", "rows"),
                            paint(result.findings.empty() ? Style::good : Style::bad, verdict));
}

} // namespace L3TunnelAgent
