// l3decap: the command-line agent that programs the ingress L3 IIF decap table of a simulated
// switch chip from a configuration file, across cold starts and hitless restarts.
#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

#include "Commands.h"
#include "Demo.h"
#include "sim/ChipState.h"

namespace {

using namespace L3DecapCli;

constexpr const char* kFooter = R"(Exit codes:
  0  success
  1  runtime failure (chip file or state store refused, chip in use by another agent,
     plug-in not loaded, file not writable)
  2  usage or configuration error (bad option, --trace or L3DECAP_TRACE setting, config file)
  3  --strict-restart: the run wrote or deleted a row the plan had adopted unchanged

Environment:
  L3DECAP_PLUGIN_PATH  colon-separated absolute directories searched for the chip plug-in
                       (default: l3decap/plugins beside the library)
  L3DECAP_TRACE        trace levels, e.g. 'TalvikL3Decap::IngL3IifTable=5,8-9;*=none')";

constexpr const char* kConfigHelp = R"(Configuration file (one item per line; '#' starts a comment):
  profile <id>
  tunnel <key> profile <id> [vrf <vrf>] [ipv4] [ipv6] [trust-dscp]
Numbers are decimal or 0x-hex; a key is 64-bit, a profile id and a vrf 32-bit.

)";

CLI::App* command(CLI::App& app, const std::string& name, const std::string& description,
                  const std::string& footer) {
   CLI::App* sub = app.add_subcommand(name, description);
   sub->footer(footer + kFooter);
   return sub;
}

const CLI::Validator kAtLeastOne(
    [](const std::string& text) {
       return text.find_first_not_of("0123456789") == std::string::npos &&
                      text.find_first_not_of('0') != std::string::npos
                  ? std::string()
                  : "must be a whole number of 1 or more, not '" + text + "'";
    },
    "N>=1");

void traceOption(CLI::App* sub, std::string& trace) {
   sub->add_option("--trace", trace, "trace levels per trace handle (L3DECAP_TRACE syntax)");
}

void outputOptions(CLI::App* sub, OutputOptions& output, std::string& trace) {
   sub->add_flag("--json", output.json, "print one JSON document instead of text");
   sub->add_option("--svg", output.svg, "write a picture of the decap table's rows to FILE")
       ->type_name("FILE");
   traceOption(sub, trace);
}

void agentOptions(CLI::App* sub, AgentOptions& agent) {
   sub->add_option("--config", agent.config, "configuration file")->required()->type_name("FILE");
   sub->add_option("--chip", agent.chip, "chip-state file (created by a cold start)")
       ->required()
       ->type_name("FILE");
   sub->add_option("--rows", agent.rows, "decap rows of a new chip file (default 4096)")
       ->check(CLI::Range(std::uint32_t{1}, Sim::ChipState::kMaxDecapRows));
   sub->add_option("--ack-window", agent.ack.window,
                   "deliver write completions at random among the first N (1: in order)")
       ->check(kAtLeastOne);
   sub->add_option("--ack-holdback", agent.ack.holdBack,
                   "hold N write completions back until the end of a phase");
   sub->add_option("--ack-seed", agent.ack.seed, "seed of the completions' random order");
   sub->add_option("--writes-per-commit", agent.writesPerCommit,
                   "chip writes per commit of the state store")
       ->capture_default_str()
       ->check(kAtLeastOne);
}

CLI::App* runCommandLine(CLI::App& app, RunArgs& run, std::string& trace) {
   CLI::App* sub = command(app, "run",
                           "one agent life: a cold start, or a hitless restart when the chip "
                           "file exists",
                           kConfigHelp);
   agentOptions(sub, run.agent);
   outputOptions(sub, run.output, trace);
   sub->add_flag("--strict-restart", run.strictRestart,
                 "plan first; fail (exit 3) if the run touches a row the plan adopted");
   return sub;
}

CLI::App* planCommandLine(CLI::App& app, PlanArgs& plan, std::string& trace) {
   CLI::App* sub = command(app, "plan",
                           "what a run with this configuration would do, row by row; writes "
                           "nothing",
                           kConfigHelp);
   agentOptions(sub, plan.agent);
   outputOptions(sub, plan.output, trace);
   sub->add_flag("--changes-only", plan.changesOnly,
                 "list only the rows that would be rewritten, programmed or purged");
   return sub;
}

CLI::App* dumpCommandLine(CLI::App& app, DumpArgs& dump, std::string& trace) {
   CLI::App* sub = command(app, "dump", "the rows of the chip's two tables (read-only)", "");
   sub->add_option("--chip", dump.chip, "chip-state file")->required()->type_name("FILE");
   sub->add_flag("--json", dump.json, "print one JSON document instead of text");
   traceOption(sub, trace);
   return sub;
}

CLI::App* demoCommandLine(CLI::App& app, DemoArgs& demo, std::string& trace) {
   CLI::App* sub = command(app, "demo",
                           "a cold start, an unchanged restart and a changed restart in a "
                           "temporary directory",
                           "");
   sub->add_option("--tunnels", demo.tunnels, "tunnels in the generated configuration")
       ->capture_default_str()
       ->check(CLI::Range(std::size_t{1}, kDemoMaxTunnels));
   outputOptions(sub, demo.output, trace);
   return sub;
}

// CLI11 reports a mistyped command as a missing one; name it instead.
int parseError(const CLI::App& app, const CLI::ParseError& e) {
   const auto& rest = app.remaining();
   if (app.get_subcommands().empty() && !rest.empty() && !rest.front().starts_with('-')) {
      std::cerr << "l3decap: unknown command '" << rest.front()
                << "' (expected run, plan, dump or demo; see l3decap --help)\n";
      return kExitUsage;
   }
   return app.exit(e) == 0 ? kExitOk : kExitUsage;
}

}  // namespace

// The commands run inside guarded(), which turns their failures into messages and exit codes;
// only building the command line itself may throw, on a programming error (a duplicate option).
// NOLINTNEXTLINE(bugprone-exception-escape): such an error should end the program loudly
int main(int argc, char** argv) {
   CLI::App app{"l3decap: programs the ingress L3 IIF decap table of a simulated switch chip"};
   app.name("l3decap");
   app.footer(kFooter);
   app.require_subcommand(1);
   std::string trace;
   RunArgs run;
   PlanArgs plan;
   DumpArgs dump;
   DemoArgs demo{{}, kDemoDefaultTunnels};
   const CLI::App* runCmd = runCommandLine(app, run, trace);
   const CLI::App* planCmd = planCommandLine(app, plan, trace);
   const CLI::App* dumpCmd = dumpCommandLine(app, dump, trace);
   demoCommandLine(app, demo, trace);

   try {
      app.parse(argc, argv);
   } catch (const CLI::ParseError& e) {
      return parseError(app, e);
   }
   return guarded([&] {
      configureTrace(trace);
      if (runCmd->parsed()) {
         return runCommand(run);
      }
      if (planCmd->parsed()) {
         return planCommand(plan);
      }
      if (dumpCmd->parsed()) {
         return dumpCommand(dump);
      }
      return demoCommand(demo);
   });
}
