// The agent against what an operator meets: SIGKILLs at random moments of cold starts and
// restarts, two agents on one chip, state stores it cannot or must not use, and symbolic links
// planted where it writes. The agent is always the built program; the chip and its store are
// read back in this process between two runs.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <set>
#include <thread>

#include "Program.h"
#include "sim/ChipLock.h"
#include "sim/ChipState.h"
#include "sim/StateStore.h"
#include "support/ScratchDir.h"

namespace {

using CliTest::Launch;
using CliTest::Outcome;
using CliTest::readFile;
using CliTest::writeFile;
using nlohmann::json;

constexpr std::uint32_t kProfiles[] = {1, 2, 3, 4};
constexpr const char* kChip = "chip.state";
constexpr const char* kStore = "chip.state.db";

// A tunnel's content names its key (vrf = key << 8 | version), so that a row read back tells
// which key it was written for.
struct Content {
   std::uint32_t profile = 0;  // the id its profile row holds; 0 when that row is not valued
   std::uint32_t vrf = 0;
   unsigned flags = 0;  // ipv4 1, ipv6 2, trust-dscp 4
   bool operator==(const Content&) const = default;
   std::uint64_t key() const { return vrf >> 8; }
};
using Tunnels = std::map<std::uint64_t, Content>;

std::string configText(const Tunnels& tunnels) {
   std::string text;
   for (const std::uint32_t id : kProfiles) {
      text += "profile " + std::to_string(id) + "\n";
   }
   for (const auto& [key, c] : tunnels) {
      text += "tunnel " + std::to_string(key) + " profile " + std::to_string(c.profile) + " vrf " +
              std::to_string(c.vrf) + ((c.flags & 1) != 0 ? " ipv4" : "") +
              ((c.flags & 2) != 0 ? " ipv6" : "") + ((c.flags & 4) != 0 ? " trust-dscp" : "") +
              "\n";
   }
   return text;
}

// The chip as the agent left it: its valued rows, with the key the store binds to each.
struct ChipImage {
   std::map<std::uint32_t, std::pair<Content, std::optional<std::uint64_t>>> decap;
   std::multiset<std::uint32_t> profiles;
   bool operator==(const ChipImage&) const = default;

   // Every tunnel has exactly one row, with its content and its key; no other row is valued.
   bool holds(const Tunnels& tunnels) const {
      std::set<std::uint64_t> seen;
      for (const auto& [index, row] : decap) {
         const auto it = tunnels.find(row.first.key());
         if (it == tunnels.end() || it->second != row.first || row.second != it->first ||
             !seen.insert(it->first).second) {
            return false;
         }
      }
      return seen.size() == tunnels.size() &&
             profiles == std::multiset<std::uint32_t>(std::begin(kProfiles), std::end(kProfiles));
   }
};

// Throws, as the agent would refuse them, when the chip file or its store is refused.
std::optional<ChipImage> readChip(const std::filesystem::path& dir) {
   const std::string path = (dir / kChip).string();
   if (!std::filesystem::exists(path)) {
      return std::nullopt;
   }
   const Sim::ChipLock lock(path, Sim::ChipLock::Mode::shared);
   const Sim::ChipState chip = Sim::ChipState::open(path, false);
   std::map<std::uint32_t, std::uint64_t> keys;
   if (const auto store = Sim::StateStore::open(Sim::StateStore::pathFor(path), true)) {
      store->checkBelongsTo(chip);
      for (const Sim::Binding& b : store->bindings()) {
         keys.emplace(b.row, b.key);
      }
   }
   ChipImage image;
   for (std::uint32_t i = 0; i < chip.profileRows(); ++i) {
      if (chip.profileRow(i).state == Sim::RowState::valued) {
         image.profiles.insert(chip.profileRow(i).profileId);
      }
   }
   for (std::uint32_t i = 0; i < chip.decapRows(); ++i) {
      const Sim::DecapRow row = chip.decapRow(i);
      if (row.state == Sim::RowState::valued) {
         const Sim::ProfileRow profile = chip.profileRow(row.profileIndex);
         const Content content{profile.state == Sim::RowState::valued ? profile.profileId : 0,
                               row.vrf,
                               (row.ipv4UcEnable ? 1U : 0U) | (row.ipv6UcEnable ? 2U : 0U) |
                                   (row.trustDscp ? 4U : 0U)};
         const auto key = keys.find(i);
         image.decap[i] = {content, key == keys.end() ? std::nullopt : std::optional(key->second)};
      }
   }
   return image;
}

// Public: the kill loop below drives the agent through it.
class CrashSafetyTest : public ::testing::Test {
 public:
   static std::vector<std::string> runArgs(std::vector<std::string> extra = {}) {
      extra.insert(extra.begin(), {"run", "--config", "l3decap.conf", "--chip", kChip, "--rows",
                                   "4096", "--json"});
      return extra;
   }
   Outcome l3decap(const std::vector<std::string>& args, bool obeyPermissions = false) const {
      return CliTest::waitProgram(
          CliTest::startProgram(dir, Launch{args, environment, obeyPermissions}));
   }
   json run(const Tunnels& tunnels, const std::vector<std::string>& extra = {}) const {
      writeFile(dir / "l3decap.conf", configText(tunnels));
      const Outcome outcome = l3decap(runArgs(extra));
      EXPECT_EQ(outcome.status, 0) << outcome.err;
      return outcome.status == 0 ? json::parse(outcome.out) : json();
   }
   std::string bytes(const char* name) const { return readFile(dir / name); }

   const ::Test::ScratchDir scratch{"l3decap-crash"};
   std::filesystem::path dir = scratch.path();
   std::vector<std::string> environment;  // for every agent started
};

Tunnels someTunnels(std::size_t count) {
   Tunnels tunnels;
   for (std::uint64_t key = 1; key <= count; ++key) {
      tunnels[key] = Content{kProfiles[key % 4], static_cast<std::uint32_t>(key << 8), 1};
   }
   return tunnels;
}

// One agent life killed at a random moment, then the checks of the lives after it.
class KillLoop {
 public:
   KillLoop(const CrashSafetyTest& test, std::uint64_t seed) : test_(test), rng_(seed) {}

   // Returns whether the agent was killed (rather than done before the kill).
   bool killOne() {
      const int kind = tunnels_.empty() ? 0 : static_cast<int>(pick(0, 2));
      configure(kind);
      const auto before = readChip(test_.dir);
      const auto start = std::chrono::steady_clock::now();
      const auto child =
          CliTest::startProgram(test_.dir, Launch{test_.runArgs(ackOptions()), test_.environment});
      const double delay = std::uniform_real_distribution<double>(0, lasting_[kind])(rng_);
      std::this_thread::sleep_for(std::chrono::duration<double>(delay));
      ::kill(child.pid, SIGKILL);
      const Outcome outcome = CliTest::waitProgram(child);
      const double took =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      const bool killed = outcome.signal == SIGKILL;
      if (!killed) {
         EXPECT_EQ(outcome.status, 0) << outcome.err;
      }
      // Kills spread over the whole of a life of each kind, however long it turns out to be.
      lasting_[kind] = killed && delay > 0.9 * lasting_[kind] ? 1.5 * lasting_[kind]
                                                              : std::max(lasting_[kind], took);
      SCOPED_TRACE(std::string("life of kind ") + std::to_string(kind) +
                   (killed ? " killed after " : " done in ") + std::to_string(took) + " s");
      checkNextLives(killed, before);
      return killed;
   }

   std::size_t midChange() const noexcept { return midChange_; }

 private:
   std::size_t pick(std::size_t low, std::size_t high) {
      return std::uniform_int_distribution<std::size_t>(low, high)(rng_);
   }
   Content content(std::uint64_t key) {
      ++version_;
      return Content{kProfiles[pick(0, 3)], static_cast<std::uint32_t>(key << 8 | version_ % 256),
                     static_cast<unsigned>(pick(0, 7))};
   }
   // Completions out of order and held back; commits from one per write to one per run.
   std::vector<std::string> ackOptions() {
      return {"--ack-window",        std::to_string(pick(1, 8)),
              "--ack-holdback",      std::to_string(pick(0, 4)),
              "--ack-seed",          std::to_string(pick(1, 1000000)),
              "--writes-per-commit", std::to_string(std::size_t{1} << pick(0, 12) / pick(1, 2))};
   }

   // The next life's configuration, by kind: 0 a new one on a new chip, 1 the same, 2 one with a
   // tenth of the tunnels changed, a tenth removed and a tenth added.
   void configure(int kind) {
      if (kind == 0) {
         std::filesystem::remove(test_.dir / kChip);
         std::filesystem::remove(test_.dir / kStore);
         tunnels_.clear();
         lastKey_ = pick(100, 1500);
         for (std::uint64_t key = 1; key <= lastKey_; ++key) {
            tunnels_[key] = content(key);
         }
      } else if (kind == 2) {
         std::vector<std::uint64_t> keys;
         for (const auto& [key, c] : tunnels_) {
            keys.push_back(key);
         }
         std::shuffle(keys.begin(), keys.end(), rng_);
         for (std::size_t i = 0; i < keys.size() / 10; ++i) {
            tunnels_[keys[i]] = content(keys[i]);
            tunnels_.erase(keys[keys.size() / 10 + i]);
            ++lastKey_;
            tunnels_[lastKey_] = content(lastKey_);
         }
      }
      writeFile(test_.dir / "l3decap.conf", configText(tunnels_));
   }

   // After a life that ended, the chip holds its configuration. After a kill: the chip and the
   // store are readable, every valued row has the binding of the key it was written for; the
   // next run (in a quarter of the cases with a changed configuration) finishes the job and
   // writes no row whose content was right for it; a strict restart after it writes nothing.
   void checkNextLives(bool killed, const std::optional<ChipImage>& before) {
      const auto left = readChip(test_.dir);
      if (!killed) {
         ASSERT_TRUE(left && left->holds(tunnels_)) << "a life that ended left the chip wrong";
         return;
      }
      midChange_ += left && left != before && !left->holds(tunnels_) ? 1 : 0;
      if (pick(0, 3) == 0) {
         configure(2);
      }
      std::set<std::uint32_t> right;
      for (const auto& [index, row] : left ? left->decap : decltype(left->decap){}) {
         ASSERT_EQ(row.second, row.first.key()) << "row " << index << " without its binding";
         const auto it = tunnels_.find(row.first.key());
         if (it != tunnels_.end() && it->second == row.first) {
            right.insert(index);
         }
      }
      const json next = test_.run(tunnels_, ackOptions());
      ASSERT_FALSE(next.is_null());
      for (const auto& row : next["changedRows"]) {
         EXPECT_FALSE(right.contains(row["index"].get<std::uint32_t>()))
             << "row " << row["index"] << " had the right content and was " << row["fate"];
      }
      const auto after = readChip(test_.dir);
      ASSERT_TRUE(after && after->holds(tunnels_)) << "the chip does not hold the configuration";
      const json strict = test_.run(tunnels_, {"--strict-restart"});
      for (const char* counter :
           {"rowWrites", "rowDeletes", "profileRowWrites", "profileRowDeletes"}) {
         EXPECT_EQ(strict[counter], 0) << counter;
      }
   }

   const CrashSafetyTest& test_;
   std::mt19937_64 rng_;
   Tunnels tunnels_;
   std::uint64_t lastKey_ = 0;
   unsigned version_ = 0;
   double lasting_[3] = {0.05, 0.05, 0.05};  // the longest life of each kind so far
   std::size_t midChange_ = 0;
};

std::uint64_t environmentNumber(const char* name, std::uint64_t otherwise) {
   const char* value = std::getenv(name);
   return value != nullptr ? std::stoull(value) : otherwise;
}

// L3DECAP_KILL_TEST_KILLS asks for more kills (50 by default), L3DECAP_KILL_TEST_SEED replays a
// run.
TEST_F(CrashSafetyTest, EveryKillIsFollowedByALifeThatAdoptsTheRightRowsAndCompletesTheChip) {
   const std::uint64_t seed = environmentNumber(
       "L3DECAP_KILL_TEST_SEED",
       static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()));
   const std::uint64_t wanted = environmentNumber("L3DECAP_KILL_TEST_KILLS", 50);
   SCOPED_TRACE("L3DECAP_KILL_TEST_SEED=" + std::to_string(seed));
   // Leak checks at the agent's exit are the other tests' job; here they would cost a third of
   // the time under AddressSanitizer.
   environment = {"ASAN_OPTIONS=detect_leaks=0"};
   KillLoop loop(*this, seed);
   std::uint64_t kills = 0, lives = 0;
   for (; kills < wanted && !HasFailure(); ++lives) {
      kills += loop.killOne() ? 1 : 0;
   }
   std::cout << "kill test, seed " << seed << ": " << lives << " lives, " << kills << " killed ("
             << loop.midChange() << " in the middle of changing the chip); refused files, "
             << "inconsistent chips and needless rewrites: " << (HasFailure() ? "some" : "none")
             << "\n";
}

// Two agents started together on a new chip: one of them has it, the other leaves at once naming
// the first; an agent that holds a chip keeps every other command off it.
TEST_F(CrashSafetyTest, OneAgentPerChip) {
   const Tunnels tunnels = someTunnels(3000);
   writeFile(dir / "l3decap.conf", configText(tunnels));
   const auto first = CliTest::startProgram(dir, Launch{runArgs()});
   const auto second = CliTest::startProgram(dir, Launch{runArgs()});
   std::size_t done = 0;
   for (const auto& [outcome, other] : {std::pair{CliTest::waitProgram(first), second.pid},
                                        std::pair{CliTest::waitProgram(second), first.pid}}) {
      done += outcome.status == 0 ? 1 : 0;
      if (outcome.status != 0) {
         EXPECT_EQ(outcome.status, 1);
         EXPECT_NE(outcome.err.find("in use by process " + std::to_string(other)),
                   std::string::npos)
             << outcome.err;
      }
   }
   EXPECT_GE(done, 1U);
   EXPECT_TRUE(readChip(dir)->holds(tunnels));

   const std::string files = bytes(kChip) + bytes(kStore);
   const Sim::ChipLock held((dir / kChip).string(), Sim::ChipLock::Mode::exclusive);
   for (const auto& args : {runArgs(), std::vector<std::string>{"dump", "--chip", kChip}}) {
      const Outcome outcome = l3decap(args);
      EXPECT_EQ(outcome.status, 1) << args[0];
      EXPECT_NE(outcome.err.find("by process " + std::to_string(::getpid())), std::string::npos)
          << outcome.err;
   }
   EXPECT_EQ(bytes(kChip) + bytes(kStore), files);
}

// Runs SQL on a store as an operator's tool would.
void editStore(const std::filesystem::path& path, const char* sql) {
   sqlite3* db = nullptr;
   ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
   EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
   sqlite3_close(db);
}

TEST_F(CrashSafetyTest, AStoreThatCannotBeUsedStopsTheAgentBeforeEitherFileChanges) {
   using Dir = const std::filesystem::path&;
   struct Case {
      std::function<void(Dir)> spoil;
      std::string message;
      bool obeyPermissions = false;
   };
   const std::vector<Case> cases{
       {[](Dir d) {
           std::filesystem::copy_file(d / "other" / kStore, d / kStore,
                                      std::filesystem::copy_options::overwrite_existing);
        },
        "the state store of chip "},
       {[](Dir d) { ::chmod((d / kStore).c_str(), 0); }, "cannot open the state store", true},
       {[](Dir d) { ::chmod((d / kStore).c_str(), 0444); }, "the state store cannot be written",
        true},
       {[](Dir d) { writeFile(d / kStore, std::string(4096, 'x')); }, "the state store is damaged"},
       {[](Dir d) { editStore(d / kStore, "UPDATE bindings SET decap_row = 5000 WHERE key = 3"); },
        "bound to row 5000, outside"},
       {[](Dir d) { editStore(d / kStore, "INSERT INTO bindings VALUES (4000, 3)"); },
        "key 3 is bound to two rows"},
       {[](Dir d) { editStore(d / kStore, "CREATE TABLE notes (text TEXT)"); },
        "its tables are not those"},
       {[](Dir d) {
           std::filesystem::rename(d / kStore, d / "elsewhere.db");
           std::filesystem::create_symlink("elsewhere.db", d / kStore);
        },
        "is a symbolic link"},
       // The store of a chip whose file is gone is no new chip's either.
       {[](Dir d) { std::filesystem::remove(d / kChip); }, "does not exist: restore the chip file"},
   };
   const Tunnels tunnels = someTunnels(20);
   run(tunnels);
   const std::string goodChip = bytes(kChip);
   const std::string goodStore = bytes(kStore);
   std::filesystem::create_directories(dir / "other");
   writeFile(dir / "other" / "l3decap.conf", configText(tunnels));
   ASSERT_EQ(CliTest::runProgram(dir / "other", runArgs()).status, 0);
   Tunnels changed = someTunnels(25);
   changed[3].vrf += 1;
   writeFile(dir / "l3decap.conf", configText(changed));
   for (const Case& c : cases) {
      SCOPED_TRACE(c.message);
      std::filesystem::remove(dir / kStore);
      writeFile(dir / kChip, goodChip);
      writeFile(dir / kStore, goodStore);
      c.spoil(dir);
      const std::string files = readFile(dir / kChip) + "|" + readFile(dir / kStore);
      const Outcome outcome = l3decap(runArgs(), c.obeyPermissions);
      EXPECT_EQ(outcome.status, 1) << outcome.err;
      EXPECT_NE(outcome.err.find(c.message), std::string::npos) << outcome.err;
      EXPECT_EQ(readFile(dir / kChip) + "|" + readFile(dir / kStore), files);
      ::chmod((dir / kStore).c_str(), 0644);
   }
}

// A link planted where the agent opens or makes a file is refused or replaced, never followed.
TEST_F(CrashSafetyTest, PlantedSymbolicLinksAreNeverFollowed) {
   for (const auto& [name, refused] :
        std::vector<std::pair<std::string, bool>>{{kChip, true},
                                                  {kStore, true},
                                                  {std::string(kStore) + "-wal", true},
                                                  {"chip.state.lock", true},
                                                  {"chip.state.new", false}}) {
      SCOPED_TRACE(name);
      std::filesystem::remove_all(dir);
      std::filesystem::create_directories(dir);
      if (name != kChip && name != "chip.state.new") {
         run(someTunnels(20));
      }
      writeFile(dir / "victim", "precious");
      std::filesystem::remove(dir / name);
      std::filesystem::create_symlink(dir / "victim", dir / name);
      writeFile(dir / "l3decap.conf", configText(someTunnels(30)));
      const Outcome outcome = l3decap(runArgs());
      EXPECT_EQ(outcome.status, refused ? 1 : 0) << outcome.err;
      EXPECT_EQ(readFile(dir / "victim"), "precious");
      EXPECT_EQ(outcome.err.find("symbolic link") != std::string::npos, refused) << outcome.err;
      EXPECT_TRUE(refused || readChip(dir)->holds(someTunnels(30)));
   }
}

}  // namespace
