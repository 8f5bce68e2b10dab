// Fuzzes the agent's configuration parser: any text either yields a configuration whose text form
// parses back to the same configuration, or is refused with every problem named by file and line.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ConfigFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   Sim::Config config;
   try {
      config = L3DecapCli::parseConfig(std::string_view(reinterpret_cast<const char*>(data), size),
                                       "fuzz.conf");
   } catch (const L3DecapCli::ConfigError& e) {
      for (const std::string& problem : e.problems()) {
         if (!problem.starts_with("fuzz.conf:")) {
            __builtin_trap();  // every problem names the file and the line
         }
      }
      if (e.problems().empty()) {
         __builtin_trap();
      }
      return 0;
   }
   const Sim::Config back = L3DecapCli::parseConfig(L3DecapCli::configText(config), "again.conf");
   if (back.profiles != config.profiles || back.tunnels != config.tunnels) {
      __builtin_trap();  // printing and parsing disagree
   }
   return 0;
}
