#include "Summary.h"

#include <cstdio>
#include <functional>

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

namespace {

using Line = std::function<void(const std::vector<std::string>&)>;

// Walks a long table's rows twice, once to size its columns and once to print them; `title`,
// given the number of rows, is printed before them.
void printLongTable(std::ostream& out, TextTable& table,
                    const std::function<std::string(std::size_t)>& title,
                    const std::function<void(const Line&)>& walk) {
   std::size_t rows = 0;
   walk([&](const std::vector<std::string>& cells) {
      table.measure(cells);
      ++rows;
   });
   out << title(rows);
   table.printHeadings(out, "  ");
   walk([&](const std::vector<std::string>& cells) { table.printRow(out, "  ", cells); });
}

}  // namespace

void printPlan(std::ostream& out, const std::string& chipFile, const Sim::RunReport& report,
               bool changesOnly, const RowProgress& progress) {
   out << "plan: a " << startText(report) << " of " << chipFile << " (" << report.rows.size()
       << " decap rows) with this configuration would do the following; nothing was written\n";
   TextTable table({{"index"},
                    {"fate", Align::left},
                    {"key"},
                    {"before", Align::left},
                    {"after", Align::left}});
   const auto noTitle = [](std::size_t) { return std::string(); };
   printLongTable(out, table, noTitle, [&](const Line& line) {
      forEachPlanRow(report, progress, [&](const PlanRow& row) {
         if (changesOnly && !isChange(row.fate)) {
            return;
         }
         const bool unchanged = row.fate == Sim::RowFate::adopted;
         line({std::to_string(row.index), Sim::rowFateName(row.fate), optionalKey(row.key),
               contentText(row.before), unchanged ? "unchanged" : contentText(row.after)});
      });
   });
   const FateCounts counts = fateCounts(report.rows);
   const auto count = [&](Sim::RowFate fate) { return counts[static_cast<std::size_t>(fate)]; };
   out << "totals: " << count(Sim::RowFate::adopted) << " adopted, "
       << count(Sim::RowFate::rewritten) << " rewritten, " << count(Sim::RowFate::created)
       << " new, " << count(Sim::RowFate::purged) << " purged; " << report.rowWrites
       << " row writes, " << report.rowDeletes << " row deletes, " << report.indicesInUse
       << " indices in use\n";
}

void printDump(std::ostream& out, const std::string& chipFile, const Sim::ChipState& chip,
               const std::vector<Sim::Binding>& keys, const RowProgress& progress) {
   out << chipFile << ": chip " << chip.id() << ", " << chip.decapRows() << " decap rows, "
       << chip.profileRows() << " profile rows\n";
   TextTable decap({{"index"}, {"state", Align::left}, {"key"}, {"content", Align::left}});
   const auto title = [](std::size_t rows) {
      return "decap table: " + std::to_string(rows) + " rows not free\n";
   };
   printLongTable(out, decap, title, [&](const Line& line) {
      forEachUsedDecapRow(chip, keys, progress,
                          [&](std::uint32_t index, const RowContent& content,
                              const std::optional<std::uint64_t>& key) {
                             const bool valued = content.row.state == Sim::RowState::valued;
                             line({std::to_string(index), rowStateName(content.row.state),
                                   optionalKey(key), valued ? rowText(content) : ""});
                          });
   });
   TextTable profiles({{"index"}, {"state", Align::left}, {"profile"}});
   std::size_t used = 0;
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
      out << "\nThe restart with the same configuration made " << same.rowWrites
          << " row writes and " << same.rowDeletes << " row deletes; it adopted "
          << same.rowsAdopted << " of " << same.indicesInUse << " rows as the chip held them.\n";
   }
}

}  // namespace L3DecapCli
