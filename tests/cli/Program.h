// Runs the built l3decap program (its path in L3DECAP_BIN) in a directory of its own, as a user
// would, and collects its exit status and output.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace CliTest {

struct Outcome {
   int status = -1;  // exit code; -1 when the program did not exit normally
   std::string out;
   std::string err;
};

// `environment` adds or replaces NAME=value entries of this process's environment.
Outcome runProgram(const std::filesystem::path& dir, const std::vector<std::string>& args,
                   const std::vector<std::string>& environment = {});

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const std::string& text);

}  // namespace CliTest
