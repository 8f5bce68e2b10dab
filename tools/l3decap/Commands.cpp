#include "Commands.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "ConfigFile.h"
#include "Demo.h"
#include "Fwk/Trace.h"
#include "Json.h"
#include "Progress.h"
#include "Rows.h"
#include "Summary.h"
#include "Svg.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "sim/Agent.h"
#include "sim/ChipLock.h"
#include "sim/ChipState.h"
#include "sim/StateStore.h"

namespace L3DecapCli {

namespace {

using Sim::RunReport;

constexpr std::size_t kProblemsShown = 20;

// A refused L3DECAP_PLUGIN_PATH is the user's setting, hence a usage error; a plug-in that is
// missing or fails to load is a failure of the installation.
void requirePlugin() {
   using Loader = TalvikL3Decap::IngL3IifTable::UtilLoader;
   const auto loader = Loader::loaderSingletonIs();
   if (loader->loadStatus() == Loader::LoadStatus::loaded) {
      return;
   }
   const std::string why = "the simulated chip's plug-in is not loaded: " + loader->loadMessage();
   if (loader->loadStatus() == Loader::LoadStatus::refused) {
      throw UsageError(why);
   }
   throw std::runtime_error(why + " (see L3DECAP_PLUGIN_PATH in l3decap --help)");
}

// --svg names a file in a directory that exists: checked before the run changes anything.
void checkSvgTarget(const std::string& path) {
   if (path.empty()) {
      return;
   }
   const std::filesystem::path parent = std::filesystem::path(path).parent_path();
   std::error_code ignored;
   if (!parent.empty() && !std::filesystem::is_directory(parent, ignored)) {
      throw UsageError("--svg " + path + ": directory " + parent.string() + " does not exist");
   }
   if (std::filesystem::is_directory(path, ignored)) {
      throw UsageError("--svg " + path + ": is a directory");
   }
}

// --rows only sizes a new chip; against an existing one it must agree with the file.
void checkRows(const AgentOptions& agent) {
   std::error_code ignored;
   if (!agent.rows || !std::filesystem::exists(agent.chip, ignored)) {
      return;
   }
   const std::uint32_t rows = Sim::ChipState::open(agent.chip, false).decapRows();
   if (rows != *agent.rows) {
      throw UsageError("--rows " + std::to_string(*agent.rows) + ": " + agent.chip + " has " +
                       std::to_string(rows) + " decap rows (--rows only sizes a new chip file)");
   }
}

// Checked under the chip's lock (an agent's run may be making the file).
Sim::RunOptions runOptions(const AgentOptions& agent) {
   checkRows(agent);
   Sim::RunOptions options;
   options.chipFile = agent.chip;
   options.rows = agent.rows.value_or(Sim::ChipState::kDefaultDecapRows);
   options.ackPolicy = agent.ack;
   options.writesPerCommit = agent.writesPerCommit;
   return options;
}

RunReport runWithProgress(const std::string& label, const Sim::Config& config,
                          Sim::RunOptions options, const Sim::ChipLock& lock) {
   Progress progress(label);
   options.progress = progress.callback();
   return Sim::runAgent(config, options, lock);
}

void printJson(const nlohmann::ordered_json& document) {
   std::cout << document.dump(2) << '\n';
}

void writePicture(const std::string& path, const std::string& title, const RunReport& report) {
   if (!path.empty()) {
      writeSvg(path, {SvgPanel{title, report.rows}});
   }
}

// The keys of the chip's rows as its state store has them, for showing; a store that cannot be
// used only costs the keys.
KeyIndices storedKeys(const Sim::ChipState& chip) {
   KeyIndices keys;
   try {
      const auto store = Sim::StateStore::open(Sim::StateStore::pathFor(chip.path()), true);
      if (store) {
         store->checkBelongsTo(chip);
         for (const Sim::Binding& b : store->bindings()) {
            keys.emplace(b.key, b.row);
         }
      }
   } catch (const std::runtime_error& e) {
      std::cerr << "l3decap: warning: keys not shown: " << e.what() << '\n';
   }
   return keys;
}

// Reports entries a run could not place in hardware (the chip is too small for the
// configuration), and a restart that had no state store to bind keys to their rows.
int runOutcome(const RunReport& report) {
   if (report.unboundRows) {
      std::cerr << "l3decap: warning: the chip held rows but had no state store (a new one was "
                   "made): no key could be bound to its row, so every tunnel was written to a new "
                   "row and the old rows purged (docs/RELIABILITY.md)\n";
   }
   if (report.handlesNotInHardware == 0) {
      return kExitOk;
   }
   std::cerr << "l3decap: " << report.handlesNotInHardware
             << " configured entries did not reach hardware (the chip has " << report.rows.size()
             << " decap rows)\n";
   return kExitFailure;
}

}  // namespace

int runCommand(const RunArgs& args) {
   const Sim::Config config = readConfigFile(args.agent.config);
   checkSvgTarget(args.output.svg);
   requirePlugin();
   // Held for the plan of --strict-restart too: no other agent changes the chip in between.
   const Sim::ChipLock lock(args.agent.chip, Sim::ChipLock::Mode::exclusive);
   const Sim::RunOptions options = runOptions(args.agent);
   std::optional<RunReport> plan;
   if (args.strictRestart) {
      Sim::RunOptions dry = options;
      dry.dryRun = true;
      plan = runWithProgress("planning", config, dry, lock);
   }
   const RunReport report = runWithProgress("replaying", config, options, lock);
   const auto violations =
       plan ? strictViolations(plan->rows, report.rows) : std::vector<Violation>{};
   if (args.output.json) {
      printJson(runJson(args.agent.chip, report, plan ? &violations : nullptr));
   } else {
      printRunSummary(std::cout, args.agent.chip, report);
   }
   writePicture(args.output.svg,
                (report.restart ? "restart of " : "cold start of ") + args.agent.chip, report);
   if (!violations.empty()) {
      printViolations(args.output.json ? std::cerr : std::cout, violations);
      return kExitStrictViolation;
   }
   return runOutcome(report);
}

int planCommand(const PlanArgs& args) {
   const Sim::Config config = readConfigFile(args.agent.config);
   checkSvgTarget(args.output.svg);
   requirePlugin();
   const Sim::ChipLock lock(args.agent.chip, Sim::ChipLock::Mode::shared);
   Sim::RunOptions options = runOptions(args.agent);
   options.dryRun = true;
   options.recordChip = true;
   const RunReport report = runWithProgress("planning", config, options, lock);
   const auto rows = planRows(report);
   if (args.output.json) {
      printJson(planJson(args.agent.chip, report, rows));
   } else {
      printPlan(std::cout, args.agent.chip, report, rows, args.changesOnly);
   }
   writePicture(args.output.svg, "plan for " + args.agent.chip, report);
   return runOutcome(report);
}

int dumpCommand(const DumpArgs& args) {
   const Sim::ChipLock lock(args.chip, Sim::ChipLock::Mode::shared);
   const Sim::ChipState chip = Sim::ChipState::open(args.chip, false);
   const KeyIndices keys = storedKeys(chip);
   if (args.json) {
      printJson(dumpJson(args.chip, chip, keys));
   } else {
      printDump(std::cout, args.chip, chip, keys);
   }
   return kExitOk;
}

int demoCommand(const DemoArgs& args) {
   checkSvgTarget(args.output.svg);
   requirePlugin();
   const DemoResult demo = runDemo(args.tunnels);
   if (args.output.json) {
      printJson(demoJson(demo));
   } else {
      printDemo(std::cout, demo);
   }
   if (!args.output.svg.empty()) {
      std::vector<SvgPanel> panels;
      for (const DemoPhase& phase : demo.phases) {
         panels.push_back(SvgPanel{phase.name, phase.report.rows});
      }
      writeSvg(args.output.svg, panels);
   }
   return kExitOk;
}

void configureTrace(const std::string& option) {
   const auto apply = [](const std::string& where, const std::string& setting) {
      try {
         Fwk::Trace::configure(setting);
      } catch (const std::invalid_argument& e) {
         throw UsageError(where + " '" + setting + "': " + e.what());
      }
   };
   if (const char* variable = std::getenv("L3DECAP_TRACE"); variable != nullptr) {
      apply("environment variable L3DECAP_TRACE", variable);
   }
   if (!option.empty()) {
      apply("--trace", option);
   }
}

int guarded(const std::function<int()>& command) {
   try {
      return command();
   } catch (const ConfigError& e) {
      const auto& problems = e.problems();
      for (std::size_t i = 0; i < problems.size() && i < kProblemsShown; ++i) {
         std::cerr << "l3decap: " << problems[i] << '\n';
      }
      if (problems.size() > kProblemsShown) {
         std::cerr << "l3decap: ... and " << problems.size() - kProblemsShown << " more errors\n";
      }
      std::cerr << "l3decap: the configuration has errors; nothing was programmed\n";
      return kExitUsage;
   } catch (const UsageError& e) {
      std::cerr << "l3decap: " << e.what() << '\n';
      return kExitUsage;
   } catch (const std::exception& e) {
      std::cerr << "l3decap: " << e.what() << '\n';
      return kExitFailure;
   }
}

}  // namespace L3DecapCli
