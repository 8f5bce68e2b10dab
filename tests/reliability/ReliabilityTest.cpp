// Model-based randomized test of the table's whole life: random client operations, profile
// entries becoming ready, failing or getting an index above 255, write acknowledgements delayed,
// reordered and batched, small tables running out of indices, and agent restarts at any point
// (with acknowledgements still queued, in the middle of delete dances, a second restart during
// the replay, rows changing between read-back and replay). After every quiescent point the
// table, the chip and the allocator must agree with the reference model.
//
// Each case runs in a child process, so that a fatal assertion or a sanitizer report is a
// failure like any other; a failing case is shrunk to a short sequence that still fails, and
// printed with its seed.
//
// Environment:
//   L3DECAP_RELIABILITY_OPS   operations in all (default 200000)
//   L3DECAP_SOAK_SECONDS      run cases until this many seconds have passed (soak mode); the
//                             seeds start from the clock unless L3DECAP_RELIABILITY_FIRST_SEED
//                             says where
//   L3DECAP_RELIABILITY_FIRST_SEED  the first seed (default 1, so CI runs the same cases)
//   L3DECAP_RELIABILITY_SEED  run just the case of this seed, in this process (to debug it)
//   L3DECAP_RELIABILITY_CASE  with the seed: run the operations listed in this file instead (one
//                             per line, as a failure prints them), in this process
//   L3DECAP_RELIABILITY_SHAPE with the seed: "table size,ack window,acks held back,keys"
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>

#include "reliability/World.h"

namespace Reliability {
namespace {

constexpr std::size_t kOpsPerCase = 400;

std::uint64_t envNumber(const char* name, std::uint64_t fallback) {
   const char* value = std::getenv(name);
   if (value == nullptr || *value == '\0') {
      return fallback;
   }
   char* end = nullptr;
   const unsigned long long n = std::strtoull(value, &end, 10);
   if (*end != '\0') {
      ADD_FAILURE() << name << "='" << value << "' is not a whole number";
      return fallback;
   }
   return n;
}

// Runs a case in a child process; a crash counts as a failure.
std::string runIsolated(const WorldShape& shape, const std::vector<Op>& ops, bool quiet) {
   int fds[2];
   if (::pipe(fds) != 0) {
      return "cannot create a pipe";
   }
   std::fflush(nullptr);
   const pid_t pid = ::fork();
   if (pid == 0) {
      ::close(fds[0]);
      if (quiet) {
         std::freopen("/dev/null", "w", stderr);
      }
      std::string f;
      try {
         f = runCase(shape, ops);
      } catch (const std::exception& e) {
         f = std::string("threw: ") + e.what();
      }
      if (!f.empty() && ::write(fds[1], f.data(), f.size()) < 0) {
         ::_exit(3);
      }
      ::_exit(f.empty() ? 0 : 1);
   }
   ::close(fds[1]);
   std::string text;
   char buffer[512];
   for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) {
      text.append(buffer, static_cast<std::size_t>(n));
   }
   ::close(fds[0]);
   int status = 0;
   ::waitpid(pid, &status, 0);
   if (WIFSIGNALED(status)) {
      return "crashed with signal " + std::to_string(WTERMSIG(status));
   }
   if (WEXITSTATUS(status) != 0 && text.empty()) {
      return "exited with status " + std::to_string(WEXITSTATUS(status));
   }
   return text;
}

std::vector<Op> readCase(const std::string& path) {
   std::ifstream in(path);
   if (!in) {
      throw std::runtime_error(path + ": cannot read the case file");
   }
   std::vector<Op> ops;
   for (std::string line; std::getline(in, line);) {
      if (line.find_first_not_of(' ') != std::string::npos) {
         ops.push_back(Op::parse(line.substr(line.find_first_not_of(' '))));
      }
   }
   return ops;
}

bool crashed(const std::string& failure) {
   return failure.starts_with("crashed");
}

// Removes chunks of operations while the case still fails the same way (a crash stays a crash).
std::vector<Op> shrink(const WorldShape& shape, std::vector<Op> ops, bool crash) {
   std::size_t runs = 0;
   for (std::size_t chunk = ops.size() / 2; chunk >= 1 && runs < 3000; chunk /= 2) {
      for (std::size_t start = 0; start < ops.size() && runs < 3000;) {
         std::vector<Op> candidate(ops.begin(), ops.begin() + static_cast<std::ptrdiff_t>(start));
         candidate.insert(
             candidate.end(),
             ops.begin() + static_cast<std::ptrdiff_t>(std::min(start + chunk, ops.size())),
             ops.end());
         ++runs;
         const std::string f = runIsolated(shape, candidate, true);
         if (!f.empty() && crashed(f) == crash) {
            ops = std::move(candidate);
         } else {
            start += chunk;
         }
      }
   }
   return ops;
}

std::string describe(std::uint64_t seed, const WorldShape& shape, const std::vector<Op>& ops) {
   std::string text = "seed " + std::to_string(seed) + " (table " +
                      std::to_string(shape.tableSize) + ", ack window " +
                      std::to_string(shape.ackWindow) + ", held back " +
                      std::to_string(shape.ackHoldBack) + "), shrunk to " +
                      std::to_string(ops.size()) + " operations:\n";
   for (const Op& op : ops) {
      text += "    " + op.text() + "\n";
   }
   return text + "  reproduce with L3DECAP_RELIABILITY_SEED=" + std::to_string(seed);
}

TEST(Reliability, RandomLivesAgreeWithTheModel) {
   if (const std::uint64_t seed = envNumber("L3DECAP_RELIABILITY_SEED", 0); seed != 0) {
      WorldShape shape = shapeFor(seed);
      const char* caseFile = std::getenv("L3DECAP_RELIABILITY_CASE");
      if (const char* s = std::getenv("L3DECAP_RELIABILITY_SHAPE")) {
         std::sscanf(s, "%u,%zu,%zu,%u", &shape.tableSize, &shape.ackWindow, &shape.ackHoldBack,
                     &shape.keys);
      }
      EXPECT_EQ(runCase(shape, caseFile ? readCase(caseFile) : generate(seed, shape, kOpsPerCase)),
                "");
      return;
   }
   const std::uint64_t budget = envNumber("L3DECAP_RELIABILITY_OPS", 200000);
   const std::uint64_t soakSeconds = envNumber("L3DECAP_SOAK_SECONDS", 0);
   const auto start = std::chrono::steady_clock::now();
   const auto elapsed = [&] {
      return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
   };
   const std::uint64_t firstSeed = envNumber(
       "L3DECAP_RELIABILITY_FIRST_SEED",
       soakSeconds != 0 ? static_cast<std::uint64_t>(std::time(nullptr)) % 1000000000 * 1000 : 1);
   std::printf("reliability: seeds from %llu\n", static_cast<unsigned long long>(firstSeed));
   std::uint64_t operations = 0;
   std::uint64_t cases = 0;
   for (std::uint64_t seed = firstSeed;; ++seed) {
      const bool more =
          soakSeconds != 0 ? elapsed() < static_cast<double>(soakSeconds) : operations < budget;
      if (!more) {
         break;
      }
      const WorldShape shape = shapeFor(seed);
      const std::vector<Op> ops = generate(seed, shape, kOpsPerCase);
      if (const std::string f = runIsolated(shape, ops, true); !f.empty()) {
         const std::vector<Op> small = shrink(shape, ops, crashed(f));
         ADD_FAILURE() << f << "\n"
                       << "shrunk case: " << runIsolated(shape, small, false) << "\n"
                       << describe(seed, shape, small);
         return;
      }
      operations += ops.size();
      ++cases;
   }
   std::printf("reliability: %llu cases, %llu operations in %.1f s\n",
               static_cast<unsigned long long>(cases), static_cast<unsigned long long>(operations),
               elapsed());
}

// The world trusts the chip file's own checks: a header changed in any byte is refused, and a
// row index just past a table's end reaches no row of the next table.
TEST(ChipFile, DamagedHeaderAndRowsPastTheEndAreRefused) {
   const std::string path = testing::TempDir() + "chip-" + std::to_string(::getpid());
   std::string image;
   {
      Sim::ChipState chip = Sim::ChipState::create(path, 16);
      EXPECT_THROW(chip.decapRow(16), std::out_of_range);
      EXPECT_THROW(chip.profileRow(chip.profileRows()), std::out_of_range);
      chip.sync();
      std::ostringstream bytes;
      bytes << std::ifstream(path, std::ios::binary).rdbuf();
      image = bytes.str();
   }
   std::remove(path.c_str());
   ASSERT_EQ(Sim::ChipState::check(image.data(), image.size()), std::nullopt);
   for (std::size_t at = 0; at < 64; ++at) {
      std::string damaged = image;
      damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
      EXPECT_NE(Sim::ChipState::check(damaged.data(), damaged.size()), std::nullopt) << at;
   }
}

}  // namespace
}  // namespace Reliability
