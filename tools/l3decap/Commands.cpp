#include "Commands.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "ConfigFile.h"
#include "Demo.h"
#include "Fwk/Trace.h"
#include "Heap.h"
#include "Json.h"
#include "Progress.h"
#include "Quote.h"
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

// Checked under the chip's lock (an agent's run may be making the file).
Sim::RunOptions runOptions(const AgentOptions& agent) {
   Sim::RunOptions options;
   options.chipFile = agent.chip;
   options.rows = agent.rows;
   options.ackPolicy = agent.ack;
   options.writesPerCommit = agent.writesPerCommit;
   return options;
}

// A configuration without tunnels would purge every row of the chip: most likely a file cut
// short, so it takes --allow-empty.
Sim::Config readAgentConfig(const AgentOptions& agent) {
   Sim::Config config = readConfigFile(agent.config);
   heapFor(config.tunnels.size());
   if (config.tunnels.empty() && !agent.allowEmpty) {
      throw UsageError(agent.config +
                       ": the configuration has no tunnels; a run would purge every decap row of "
                       "the chip (give --allow-empty if that is what you want)");
   }
   return config;
}

RunReport runWithProgress(const std::string& label, const Sim::Config& config,
                          Sim::RunOptions options, const Sim::ChipLock& lock) {
   Progress progress(label);
   options.progress = progress.callback();
   return Sim::runAgent(config, options, lock);
}

void printJson(const nlohmann::ordered_json& document) {
   std::cout << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
             << '\n';
}

void writePicture(const std::string& path, const std::string& title, const RunReport& report) {
   if (!path.empty()) {
      writeSvg(path, {SvgPanel{title, report.rows}});
   }
}

// The chip's state store, whose bindings give the keys of its rows for showing; a store that
// cannot be used only costs the keys.
std::unique_ptr<Sim::StateStore> storeForKeys(const Sim::ChipState& chip) {
   try {
      auto store = Sim::StateStore::open(Sim::StateStore::pathFor(chip.path()), true);
      if (store) {
         store->checkBelongsTo(chip);
      }
      return store;
   } catch (const std::runtime_error& e) {
      std::cerr << "l3decap: warning: keys not shown: " << printable(e.what()) << '\n';
   }
   return nullptr;
}

// Reports entries a run could not place in hardware (the chip is too small for the
// configuration), and a restart that had no state store to bind keys to their rows.
int runOutcome(const RunReport& report) {
   if (report.unboundRows) {
      std::cerr << "l3decap: warning: the chip held rows but had no state store (a new one was "
                   "made): no key could be bound to its row, so every tunnel was written to a new "
                   "row and the old rows purged (docs/RELIABILITY.md)\n";
   }
   if (report.entriesNotInHardware == 0) {
      return kExitOk;
   }
   std::cerr << "l3decap: " << report.entriesNotInHardware
             << " configured entries did not reach hardware (the chip has " << report.rows.size()
             << " decap rows)\n";
   return kExitFailure;
}

}  // namespace

int runCommand(const RunArgs& args) {
   const Sim::Config config = readAgentConfig(args.agent);
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
   Sim::RunOptions life = options;
   life.keepTable = true;
   const RunReport report = runWithProgress("replaying", config, life, lock);
   const auto violations =
       plan ? strictViolations(plan->rows, report.rows) : std::vector<Violation>{};
   if (args.output.json) {
      printRunJson(std::cout, args.agent.chip, report, plan ? &violations : nullptr);
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
   const Sim::Config config = readAgentConfig(args.agent);
   checkSvgTarget(args.output.svg);
   requirePlugin();
   const Sim::ChipLock lock(args.agent.chip, Sim::ChipLock::Mode::shared);
   Sim::RunOptions options = runOptions(args.agent);
   options.dryRun = true;
   options.recordChip = true;
   options.keepTable = true;
   const RunReport report = runWithProgress("planning", config, options, lock);
   Progress progress("listing rows");
   if (args.output.json) {
      printPlanJson(std::cout, args.agent.chip, report, progress.callback());
   } else {
      printPlan(std::cout, args.agent.chip, report, args.changesOnly, progress.callback());
   }
   writePicture(args.output.svg, "plan for " + args.agent.chip, report);
   return runOutcome(report);
}

int dumpCommand(const DumpArgs& args) {
   const Sim::ChipLock lock(args.chip, Sim::ChipLock::Mode::shared);
   const Sim::ChipState chip = Sim::ChipState::open(args.chip, false);
   const auto store = storeForKeys(chip);
   const std::vector<Sim::Binding> none;
   const std::vector<Sim::Binding>& keys = store ? store->bindings() : none;
   Progress progress("dumping rows");
   if (args.json) {
      printDumpJson(std::cout, args.chip, chip, keys, progress.callback());
   } else {
      printDump(std::cout, args.chip, chip, keys, progress.callback());
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

// L3DECAP_TRACE is the trace's own: read when the program starts, and ignored with a complaint
// when malformed. --trace is the command's: a malformed one stops it.
void configureTrace(const std::string& option) {
   if (option.empty()) {
      return;
   }
   try {
      Fwk::Trace::configure(option);
   } catch (const std::invalid_argument& e) {
      throw UsageError("--trace " + quotedWord(option) + ": " + printable(e.what()));
   }
}

namespace {

// The message and the exit code of a failed command; a configuration's problems come one by one.
struct Failure {
   std::string message;
   std::vector<std::string> problems;
   int exitCode = kExitFailure;
};

std::optional<Failure> failureOf(const std::function<int()>& command, int& exitCode) {
   try {
      exitCode = command();
      return std::nullopt;
   } catch (const ConfigError& e) {
      return Failure{"the configuration has errors; nothing was programmed", e.problems(),
                     kExitUsage};
   } catch (const UsageError& e) {
      return Failure{e.what(), {}, kExitUsage};
   } catch (const Sim::ChipSizeError& e) {
      return Failure{e.what(), {}, kExitUsage};
   } catch (const std::exception& e) {
      return Failure{e.what(), {}, kExitFailure};
   }
}

}  // namespace

void reportFailure(const std::string& message, const std::vector<std::string>& problems,
                   int exitCode, bool json) {
   for (std::size_t i = 0; i < problems.size() && i < kProblemsShown; ++i) {
      std::cerr << "l3decap: " << printable(problems[i]) << '\n';
   }
   if (problems.size() > kProblemsShown) {
      std::cerr << "l3decap: ... and " << problems.size() - kProblemsShown << " more errors\n";
   }
   std::cerr << "l3decap: " << printable(message) << '\n';
   if (json) {
      printJson(errorJson(message, problems, exitCode));
   }
}

int guarded(const std::function<int()>& command, bool json) {
   int exitCode = kExitOk;
   const auto failure = failureOf(command, exitCode);
   if (!failure) {
      return exitCode;
   }
   reportFailure(failure->message, failure->problems, failure->exitCode, json);
   return failure->exitCode;
}

}  // namespace L3DecapCli
