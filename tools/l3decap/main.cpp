// l3decap: the command-line agent that programs the ingress L3 IIF decap table of a simulated
// switch chip from a configuration file, across cold starts and hitless restarts.
#include <CLI/CLI.hpp>
#include <iostream>
#include <limits>
#include <string>
#include <string_view>

#include "Commands.h"
#include "ConfigFile.h"
#include "Demo.h"
#include "Heap.h"
#include "Quote.h"
#include "sim/ChipState.h"

namespace {

using namespace L3DecapCli;

constexpr const char* kFooter = R"(Exit codes:
  0  success
  1  runtime failure (chip file or state store refused, chip in use by another agent,
     plug-in not loaded, file not writable)
  2  usage or configuration error (bad option or --trace setting, a configuration file with
     errors, without tunnels (see --allow-empty) or too large for the chip)
  3  --strict-restart: the run wrote or deleted a row the plan had adopted unchanged

Environment:
  L3DECAP_PLUGIN_PATH  colon-separated absolute directories searched for the chip plug-in
                       (default: l3decap/plugins beside the library)
  L3DECAP_TRACE        trace levels, e.g. 'TalvikL3Decap::IngL3IifTable=5,8-9;*=none'
                       (a malformed setting is ignored with a complaint)

With --json, a failed command prints {"error": ..., "exitCode": ...} on stdout.)";

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

constexpr std::uint64_t kMax32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMax64 = std::numeric_limits<std::uint64_t>::max();

// A number from `min` to `max`, decimal or 0x-hex as in the configuration file; a word that is no
// number is named as such. The value is handed on in decimal.
CLI::Validator wholeNumber(std::uint64_t min, std::uint64_t max) {
   return {[min, max](std::string& text) -> std::string {
              const Number n = parseNumber(text, max);
              if (n.error == Number::Error::malformed) {
                 return quotedWord(text) + " is not a number (decimal or 0x-hex)";
              }
              if (n.error == Number::Error::outOfRange || n.value < min) {
                 return quotedWord(text) + " is out of range (" + std::to_string(min) + " to " +
                        std::to_string(max) + ")";
              }
              text = std::to_string(n.value);
              return {};
           },
           "N"};
}

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
       ->check(wholeNumber(1, Sim::ChipState::kMaxDecapRows));
   sub->add_option("--ack-window", agent.ack.window,
                   "deliver write completions at random among the first N (1: in order)")
       ->check(wholeNumber(1, kMax32));
   sub->add_option("--ack-holdback", agent.ack.holdBack,
                   "hold N write completions back until the end of a phase")
       ->check(wholeNumber(0, kMax32));
   sub->add_option("--ack-seed", agent.ack.seed, "seed of the completions' random order")
       ->check(wholeNumber(0, kMax64));
   sub->add_option("--writes-per-commit", agent.writesPerCommit,
                   "chip writes per commit of the state store")
       ->capture_default_str()
       ->check(wholeNumber(1, kMax32));
   sub->add_flag("--allow-empty", agent.allowEmpty,
                 "accept a configuration without tunnels (it purges every decap row)");
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
       ->check(wholeNumber(1, kDemoMaxTunnels));
   outputOptions(sub, demo.output, trace);
   return sub;
}

// --json anywhere among the arguments: a command line that cannot be parsed still answers in
// JSON when it asked for it.
bool wantsJson(int argc, char** argv) {
   for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
      if (std::string_view(argv[i]) == "--json") {
         return true;
      }
   }
   return false;
}

// CLI11 reports a mistyped command as a missing one; name it instead.
int parseError(const CLI::App& app, const CLI::ParseError& e, bool json) {
   if (e.get_exit_code() == 0) {
      return app.exit(e);  // --help
   }
   const auto& rest = app.remaining();
   const std::string message =
       app.get_subcommands().empty() && !rest.empty() && !rest.front().starts_with('-')
           ? "unknown command " + quotedWord(rest.front()) +
                 " (expected run, plan, dump or demo; see l3decap --help)"
           : std::string(e.what()) + "; see l3decap --help";
   reportFailure(message, {}, kExitUsage, json);
   return kExitUsage;
}

}  // namespace

// The commands run inside guarded(), which turns their failures into messages and exit codes;
// only building the command line itself may throw, on a programming error (a duplicate option).
// NOLINTNEXTLINE(bugprone-exception-escape): such an error should end the program loudly
int main(int argc, char** argv) {
   keepTheHeap();
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
      return parseError(app, e, wantsJson(argc, argv));
   }
   const bool json = run.output.json || plan.output.json || dump.json || demo.output.json;
   return guarded(
       [&] {
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
       },
       json);
}
