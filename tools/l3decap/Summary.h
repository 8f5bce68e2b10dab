// What the commands print for a person: a run's summary, a plan row by row with its totals, a
// dump of the chip's tables, and the demo's table with one line per phase.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "Demo.h"
#include "Rows.h"
#include "sim/Agent.h"
#include "sim/ChipState.h"

namespace L3DecapCli {

std::string secondsText(double seconds);

void printRunSummary(std::ostream& out, const std::string& chipFile, const Sim::RunReport& report);
void printViolations(std::ostream& out, const std::vector<Violation>& violations);
// A plan's rows (forEachPlanRow()) and its totals, which count the same rows.
void printPlan(std::ostream& out, const std::string& chipFile, const Sim::RunReport& report,
               bool changesOnly, const RowProgress& progress);
void printDump(std::ostream& out, const std::string& chipFile, const Sim::ChipState& chip,
               const std::vector<Sim::Binding>& keys, const RowProgress& progress);
void printDemo(std::ostream& out, const DemoResult& demo);

}  // namespace L3DecapCli
