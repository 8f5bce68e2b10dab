// The agent's commands, once their command line is parsed: each reads what it needs, runs, prints
// its text or JSON on stdout and returns the process's exit code. Errors go to stderr.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/Agent.h"

namespace L3DecapCli {

// Exit codes scripts can rely on.
enum ExitCode : int {
   kExitOk = 0,
   kExitFailure = 1,          // a runtime failure: a refused chip file, a missing plug-in, ...
   kExitUsage = 2,            // a bad command line, setting or configuration file
   kExitStrictViolation = 3,  // --strict-restart: the run touched a row the plan adopted
};

// A usage error found after the command line was parsed (e.g. --rows against an existing chip).
class UsageError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct OutputOptions {
   bool json = false;
   std::string svg;  // empty: no picture
};

struct AgentOptions {
   std::string config;
   std::string chip;
   std::optional<std::uint32_t> rows;  // for a new chip file
   bool allowEmpty = false;            // a configuration without tunnels may purge every row
   Sim::AckPolicy ack;
   std::size_t writesPerCommit = Sim::RunOptions{}.writesPerCommit;
};

struct RunArgs {
   OutputOptions output;
   AgentOptions agent;
   bool strictRestart = false;
};

struct PlanArgs {
   OutputOptions output;
   AgentOptions agent;
   bool changesOnly = false;
};

struct DumpArgs {
   bool json = false;
   std::string chip;
};

struct DemoArgs {
   OutputOptions output;
   std::size_t tunnels = 0;
};

int runCommand(const RunArgs& args);
int planCommand(const PlanArgs& args);
int dumpCommand(const DumpArgs& args);
int demoCommand(const DemoArgs& args);

// Applies --trace (when given); throws UsageError naming the setting and the problem.
void configureTrace(const std::string& option);

// A failed command's report: its problems and message on stderr (escaped, cut short where they
// quote the operator's input) and, with --json, a JSON object with the error and the exit code.
void reportFailure(const std::string& message, const std::vector<std::string>& problems,
                   int exitCode, bool json);
// Runs a command, turning its exceptions into reportFailure() and an exit code.
int guarded(const std::function<int()>& command, bool json);

}  // namespace L3DecapCli
