// The commands' machine-readable output (--json): one JSON document per invocation. Documents
// with a member per row (a run, a plan, a dump) are written row by row as they are walked, never
// held whole: a chip of millions of rows costs no more memory than a small one.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "Demo.h"
#include "Rows.h"
#include "sim/Agent.h"
#include "sim/ChipState.h"

namespace L3DecapCli {

// The counters of one run, named as Counters.h names them, with "restart" and "seconds".
nlohmann::ordered_json countersJson(const Sim::RunReport& report);
// A run: its counters, the rows it changed (index and fate), and the strict check's violations.
void printRunJson(std::ostream& out, const std::string& chipFile, const Sim::RunReport& report,
                  const std::vector<Violation>* violations);
// A plan: its counters and every row that is not free before or after (forEachPlanRow()).
void printPlanJson(std::ostream& out, const std::string& chipFile, const Sim::RunReport& report,
                   const RowProgress& progress);
void printDumpJson(std::ostream& out, const std::string& chipFile, const Sim::ChipState& chip,
                   const std::vector<Sim::Binding>& keys, const RowProgress& progress);
nlohmann::ordered_json demoJson(const DemoResult& demo);
// What a failed command prints with --json: the error, every problem found, the exit code.
nlohmann::ordered_json errorJson(const std::string& error, const std::vector<std::string>& problems,
                                 int exitCode);

}  // namespace L3DecapCli
