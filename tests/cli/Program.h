// Runs the built l3decap program (its path in L3DECAP_BIN) in a directory of its own, as a user
// would, and collects its exit status and output.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace CliTest {

struct Outcome {
   int status = -1;  // exit code; -1 when the program did not exit normally
   int signal = 0;   // the signal that ended it, if one did
   std::string out;
   std::string err;
};

struct Launch {
   std::vector<std::string> args;
   // NAME=value entries that add to or replace this process's environment.
   std::vector<std::string> environment = {};
   // Run as root would be without overriding file permissions (when this process is root), so
   // that a file's mode bits refuse it as they refuse anyone else.
   bool obeyPermissions = false;
};

struct Started {
   pid_t pid = 0;
   std::filesystem::path out, err;  // where its output goes
};

// Starts the program; waitProgram() collects it.
Started startProgram(const std::filesystem::path& dir, const Launch& launch);
Outcome waitProgram(const Started& started);

Outcome runProgram(const std::filesystem::path& dir, const std::vector<std::string>& args,
                   const std::vector<std::string>& environment = {});

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const std::string& text);

}  // namespace CliTest
