// The commands' machine-readable output (--json): one JSON document per invocation.
#pragma once

#include <nlohmann/json.hpp>
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
nlohmann::ordered_json runJson(const std::string& chipFile, const Sim::RunReport& report,
                               const std::vector<Violation>* violations);
nlohmann::ordered_json planJson(const std::string& chipFile, const Sim::RunReport& report,
                                const std::vector<PlanRow>& rows);
nlohmann::ordered_json dumpJson(const std::string& chipFile, const Sim::ChipState& chip,
                                const KeyIndices& keys);
nlohmann::ordered_json demoJson(const DemoResult& demo);

}  // namespace L3DecapCli
