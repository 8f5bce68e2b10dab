// The agent's configuration file: profiles and tunnel interfaces, one per line.
//
//   # comments (also after a line's words) and blank lines are ignored
//   profile <id>
//   tunnel <key> profile <id> [vrf <vrf>] [ipv4] [ipv6] [trust-dscp]
//
// Numbers are decimal or 0x-hex: a key is 64-bit, a profile id and a VRF 32-bit. A tunnel's
// words after the key come in any order, each at most once; its VRF is 0 when not given. A tunnel
// may name any profile declared in the file, before or after it.
//
// The whole file is read and checked before anything uses it: a file with any error yields no
// configuration, and every error found is reported as "<file>:<line>: <problem>".
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Agent.h"

namespace L3DecapCli {

class ConfigError : public std::runtime_error {
 public:
   explicit ConfigError(std::vector<std::string> problems);
   // One "<file>:<line>: <problem>" per error found.
   const std::vector<std::string>& problems() const noexcept { return problems_; }

 private:
   std::vector<std::string> problems_;
};

// Parses a configuration's text; `name` is the file name the errors carry. Throws ConfigError.
Sim::Config parseConfig(std::string_view text, const std::string& name);
// Reads and parses a file. Throws ConfigError, also when the file cannot be read.
Sim::Config readConfigFile(const std::string& path);
// The text form parseConfig() reads back to the same configuration.
std::string configText(const Sim::Config& config);

// A decimal or 0x-hex number (no sign) no larger than `max`.
struct Number {
   enum class Error : std::uint8_t { none, malformed, outOfRange };
   std::uint64_t value = 0;
   Error error = Error::none;
};
Number parseNumber(std::string_view word, std::uint64_t max);

}  // namespace L3DecapCli
