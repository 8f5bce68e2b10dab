// The counters of one agent run, named once for the text summaries, the tables and JSON.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "sim/Agent.h"

namespace L3DecapCli {

struct Counter {
   std::string_view json;    // its name in JSON documents
   std::string_view label;   // its line in a summary
   std::string_view column;  // its heading in the demo's table (empty: not shown there)
   std::uint64_t (*value)(const Sim::RunReport&);
};

// In the order a summary shows them.
const std::vector<Counter>& counters();

}  // namespace L3DecapCli
