#include "Program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace CliTest {

namespace {

std::vector<std::string> mergedEnvironment(const std::vector<std::string>& extra) {
   std::vector<std::string> merged;
   for (char** e = environ; *e != nullptr; ++e) {
      const std::string entry(*e);
      const std::string name = entry.substr(0, entry.find('='));
      bool replaced = false;
      for (const auto& x : extra) {
         replaced = replaced || x.substr(0, x.find('=')) == name;
      }
      if (!replaced) {
         merged.push_back(entry);
      }
   }
   merged.insert(merged.end(), extra.begin(), extra.end());
   return merged;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
   std::vector<char*> p;
   p.reserve(strings.size() + 1);
   for (auto& s : strings) {
      p.push_back(s.data());
   }
   p.push_back(nullptr);
   return p;
}

}  // namespace

Started startProgram(const std::filesystem::path& dir, const Launch& launch) {
   const char* binary = std::getenv("L3DECAP_BIN");
   if (binary == nullptr) {
      throw std::runtime_error("L3DECAP_BIN is not set: run these tests through ctest");
   }
   std::vector<std::string> argv;
   if (launch.obeyPermissions && ::geteuid() == 0) {
      argv = {"setpriv", "--bounding-set=-dac_override,-dac_read_search"};
   }
   argv.emplace_back(binary);
   argv.insert(argv.end(), launch.args.begin(), launch.args.end());
   std::vector<std::string> envp = mergedEnvironment(launch.environment);
   static unsigned started = 0;
   const std::string name = "." + std::to_string(++started);
   Started child{0, dir / (name + ".stdout"), dir / (name + ".stderr")};

   posix_spawn_file_actions_t actions;
   posix_spawn_file_actions_init(&actions);
   posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
   posix_spawn_file_actions_addopen(&actions, 1, child.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                    0644);
   posix_spawn_file_actions_addopen(&actions, 2, child.err.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                    0644);
   posix_spawn_file_actions_addchdir_np(&actions, dir.c_str());
   const int spawned = posix_spawnp(&child.pid, argv.front().c_str(), &actions, nullptr,
                                    pointers(argv).data(), pointers(envp).data());
   posix_spawn_file_actions_destroy(&actions);
   if (spawned != 0) {
      throw std::runtime_error("cannot start " + argv.front());
   }
   return child;
}

Outcome waitProgram(const Started& child) {
   int wstatus = 0;
   ::waitpid(child.pid, &wstatus, 0);
   Outcome outcome{WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1,
                   WIFSIGNALED(wstatus) ? WTERMSIG(wstatus) : 0, readFile(child.out),
                   readFile(child.err)};
   std::filesystem::remove(child.out);
   std::filesystem::remove(child.err);
   return outcome;
}

Outcome runProgram(const std::filesystem::path& dir, const std::vector<std::string>& args,
                   const std::vector<std::string>& environment) {
   return waitProgram(startProgram(dir, Launch{args, environment}));
}

std::string readFile(const std::filesystem::path& path) {
   std::ifstream in(path, std::ios::binary);
   return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::filesystem::path& path, const std::string& text) {
   std::ofstream out(path, std::ios::binary | std::ios::trunc);
   out << text;
   if (!out.flush()) {
      throw std::runtime_error(path.string() + ": cannot write");
   }
}

}  // namespace CliTest
