// The demo: a generated configuration run three times against one chip file in a temporary
// directory: a cold start, a restart with the same configuration (which writes nothing), and a
// restart with some entries changed, some removed and some added.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/Agent.h"

namespace L3DecapCli {

constexpr std::size_t kDemoDefaultTunnels = 3000;
constexpr std::size_t kDemoMaxTunnels = 1000000;

struct DemoPhase {
   std::string name;
   Sim::RunReport report;
};

struct DemoResult {
   std::size_t tunnels = 0;
   std::uint32_t rows = 0;
   std::vector<DemoPhase> phases;
};

// The demo's configurations: the first one, and the one its last phase runs.
Sim::Config demoConfig(std::size_t tunnels);
Sim::Config demoChangedConfig(std::size_t tunnels);
// The chip's size: 4096 rows, more when the tunnels and those added later need them.
std::uint32_t demoRows(std::size_t tunnels);

// Runs the three phases; the temporary directory is removed whatever happens.
DemoResult runDemo(std::size_t tunnels);

}  // namespace L3DecapCli
