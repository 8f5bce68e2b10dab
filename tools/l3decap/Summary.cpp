#include "Summary.h"

#include <cstdio>

#include "Counters.h"
#include "TextTable.h"

namespace L3DecapCli {

namespace {

using Align = TextTable::Align;

std::string startText(const Sim::RunReport& report) {
   return report.restart ? "hitless restart" : "cold start";
}

std::string optionalKey(const std::optional<std::uint64_t>& key) {
   return key ? std::to_string(*key) : "-";
}

std::string contentText(const std::optional<RowContent>& content) {
   return content ? rowText(*content) : "-";
}

bool isChange(Sim::RowFate fate) {
   return fate == Sim::RowFate::rewritten || fate == Sim::RowFate::created ||
          fate == Sim::RowFate::purged;
}

}  // namespace

std::string secondsText(double seconds) {
   char text[32];
   std::snprintf(text, sizeof text, "%.3f s", seconds);
   return text;
}

void printRunSummary(std::ostream& out, const std::string& chipFile, const Sim::RunReport& report) {
   out << startText(report) << " of " << chipFile << " (" << report.rows.size() << " decap rows)\n";
   TextTable table({{"", Align::left}, {"", Align::right}});
   for (const Counter& c : counters()) {
      table.add({std::string(c.label), std::to_string(c.value(report))});
   }
   table.add({"time taken", secondsText(report.seconds)});
   table.add({"  of which in the state store", secondsText(report.storeSeconds)});
   table.print(out, "  ", false);
}

void printViolations(std::ostream& out, const std::vector<Violation>& violations) {
   out << "strict restart violated: " << violations.size()
       << " row(s) the plan adopted unchanged were written or deleted by the run:\n";
   for (const Violation& v : violations) {
      out << "  row " << v.index << ": planned adopted, run " << Sim::rowFateName(v.actual) << '\n';
   }
}

void printPlan(std::ostream& out, const std::string& chipFile, const Sim::RunReport& report,
               const std::vector<PlanRow>& rows, bool changesOnly) {
   out << "plan: a " << startText(report) << " of " << chipFile << " (" << report.rows.size()
       << " decap rows) with this configuration would do the following; nothing was written\n";
   TextTable table({{"index"},
                    {"fate", Align::left},
                    {"key"},
                    {"before", Align::left},
                    {"after", Align::left}});
   for (const PlanRow& row : rows) {
      if (changesOnly && !isChange(row.fate)) {
         continue;
      }
      const bool unchanged = row.fate == Sim::RowFate::adopted;
      table.add({std::to_string(row.index), Sim::rowFateName(row.fate), optionalKey(row.key),
                 contentText(row.before), unchanged ? "unchanged" : contentText(row.after)});
   }
   table.print(out, "  ");
   out << "totals: " << report.adopted << " adopted, " << report.rewritten << " rewritten, "
       << report.created << " new, " << report.purged << " purged; " << report.rowsWritten
       << " row writes, " << report.rowsDeleted << " row deletes, " << report.indicesInUse
       << " indices in use\n";
}

void printDump(std::ostream& out, const std::string& chipFile, const Sim::ChipState& chip,
               const KeyIndices& keys) {
   out << chipFile << ": chip " << chip.id() << ", " << chip.decapRows() << " decap rows, "
       << chip.profileRows() << " profile rows\n";
   const auto keyOf = keysByIndex(keys);
   TextTable decap({{"index"}, {"state", Align::left}, {"key"}, {"content", Align::left}});
   std::size_t used = 0;
   for (std::uint32_t i = 0; i < chip.decapRows(); ++i) {
      const RowContent content = rowContent(chip, i);
      if (content.row.state == Sim::RowState::free) {
         continue;
      }
      const auto key = keyOf.find(i);
      decap.add({std::to_string(i), rowStateName(content.row.state),
                 key == keyOf.end() ? "-" : std::to_string(key->second),
                 content.row.state == Sim::RowState::valued ? rowText(content) : ""});
      ++used;
   }
   out << "decap table: " << used << " rows not free\n";
   decap.print(out, "  ");
   TextTable profiles({{"index"}, {"state", Align::left}, {"profile"}});
   used = 0;
   for (std::uint32_t i = 0; i < chip.profileRows(); ++i) {
      const Sim::ProfileRow row = chip.profileRow(i);
      if (row.state != Sim::RowState::free) {
         profiles.add({std::to_string(i), rowStateName(row.state),
                       row.state == Sim::RowState::valued ? std::to_string(row.profileId) : ""});
         ++used;
      }
   }
   out << "profile table: " << used << " rows not free\n";
   profiles.print(out, "  ");
}

void printDemo(std::ostream& out, const DemoResult& demo) {
   out << "l3decap demo: " << demo.tunnels << " tunnels on a simulated chip with " << demo.rows
       << " decap rows, one agent life per phase\n\n";
   std::vector<TextTable::Column> columns{{"phase", Align::left}};
   for (const Counter& c : counters()) {
      if (!c.column.empty()) {
         columns.push_back({std::string(c.column)});
      }
   }
   columns.push_back({"time"});
   TextTable table(std::move(columns));
   for (const DemoPhase& phase : demo.phases) {
      std::vector<std::string> cells{phase.name};
      for (const Counter& c : counters()) {
         if (!c.column.empty()) {
            cells.push_back(std::to_string(c.value(phase.report)));
         }
      }
      cells.push_back(secondsText(phase.report.seconds));
      table.add(std::move(cells));
   }
   table.print(out);
   if (demo.phases.size() > 1) {
      const Sim::RunReport& same = demo.phases[1].report;
      out << "\nThe restart with the same configuration wrote " << same.rowsWritten
          << " rows and deleted " << same.rowsDeleted << "; it adopted " << same.adopted << " of "
          << same.indicesInUse << " rows as the chip held them.\n";
   }
}

}  // namespace L3DecapCli
