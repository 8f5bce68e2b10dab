// The l3decap program run as a user runs it: one process per command against files in a
// directory of the test's own, checked through its exit status, its output and the files it leaves.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "Program.h"
#include "support/ScratchDir.h"

namespace {

using CliTest::readFile;
using CliTest::writeFile;
using nlohmann::json;
using Fates = std::map<std::string, std::size_t>;

// Tunnels first..last, each with a vrf of its own plus `shift`.
std::string configText(std::uint64_t first, std::uint64_t last, std::uint32_t shift = 0) {
   std::string text = "profile 1\nprofile 2\n";
   for (std::uint64_t key = first; key <= last; ++key) {
      text += "tunnel " + std::to_string(key) + " profile " + std::to_string(1 + key % 2) +
              " vrf " + std::to_string(key + shift) + " ipv4\n";
   }
   return text;
}

std::size_t occurrences(const std::string& text, const std::string& what) {
   std::size_t n = 0;
   for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
      ++n;
   }
   return n;
}

class AgentProgramTest : public ::testing::Test {
 protected:
   CliTest::Outcome l3decap(const std::vector<std::string>& args,
                            const std::vector<std::string>& environment = {}) const {
      return CliTest::runProgram(dir, args, environment);
   }
   json jsonOf(const std::vector<std::string>& args) const {
      const auto outcome = l3decap(args);
      EXPECT_EQ(outcome.status, 0) << outcome.err;
      return json::parse(outcome.out);
   }
   // `command` (run or plan) on chip.state with `config` (a new chip has 64 rows), and `extra`.
   std::vector<std::string> agent(const std::string& command, const std::string& config,
                                  const std::vector<std::string>& extra = {}) const {
      writeFile(dir / "l3decap.conf", config);
      std::vector<std::string> args = withConfig(command, {"--rows", "64"});
      args.insert(args.end(), extra.begin(), extra.end());
      return args;
   }
   static std::vector<std::string> withConfig(const std::string& command,
                                              std::vector<std::string> extra) {
      extra.insert(extra.begin(), {command, "--config", "l3decap.conf", "--chip", "chip.state"});
      return extra;
   }
   // Key to row of the valued decap rows, as dump shows them.
   std::map<std::uint64_t, std::uint32_t> dumpedKeys() const {
      std::map<std::uint64_t, std::uint32_t> keys;
      const json dumped = jsonOf({"dump", "--chip", "chip.state", "--json"});
      for (const auto& row : dumped["decap"]) {
         keys.emplace(row["key"].get<std::uint64_t>(), row["index"].get<std::uint32_t>());
      }
      return keys;
   }
   std::string files() const {
      return readFile(dir / "chip.state") + "|" + readFile(dir / "chip.state.db");
   }

   const ::Test::ScratchDir scratch{"l3decap-cli"};
   std::filesystem::path dir = scratch.path();
};

Fates countersOf(const json& report) {
   return {{"adopted", report["rowsAdopted"]},
           {"rewritten", report["rowsRewritten"]},
           {"new", report["newEntries"]},
           {"purged", report["rowsPurged"]}};
}

// Fates by the rows listed under `list` (with the adopted rows a run does not list).
Fates fatesOf(const json& report, const char* list, std::size_t adopted = 0) {
   Fates fates{{"adopted", adopted}, {"rewritten", 0}, {"new", 0}, {"purged", 0}};
   for (const auto& row : report[list]) {
      ++fates.at(row["fate"].get<std::string>());
   }
   return fates;
}

// The counts a picture's legend gives for each fate (">new: 10<"), summed over its panels.
Fates legendOf(const std::string& svg) {
   Fates fates;
   for (const char* fate : {"adopted", "rewritten", "new", "purged"}) {
      const std::string label = std::string(">") + fate + ": ";
      for (auto at = svg.find(label); at != std::string::npos; at = svg.find(label, at + 1)) {
         fates[fate] += std::stoul(svg.substr(at + label.size(), 20));
      }
   }
   return fates;
}

TEST_F(AgentProgramTest, RestartWithTheSameConfigurationWritesAndDeletesNothing) {
   const json cold = jsonOf(agent("run", configText(1, 50), {"--json"}));
   EXPECT_EQ(cold["rowWrites"], 50);
   EXPECT_EQ(cold["newEntries"], 50);
   const json warm = jsonOf(agent("run", configText(1, 50), {"--json", "--strict-restart"}));
   EXPECT_EQ(warm["rowWrites"], 0);
   EXPECT_EQ(warm["rowDeletes"], 0);
   EXPECT_EQ(warm["profileRowWrites"], 0);
   EXPECT_EQ(warm["rowsAdopted"], 50);
   EXPECT_EQ(warm["keysBound"], 50);
   EXPECT_TRUE(warm["changedRows"].empty());
   EXPECT_TRUE(warm["strictRestart"]["passed"].get<bool>());

   // Without its state store no key can be bound to its row: each is written anew, none is lost.
   std::filesystem::remove(dir / "chip.state.db");
   const auto unbound = l3decap(agent("run", configText(1, 50), {"--json"}));
   EXPECT_NE(unbound.err.find("had no state store"), std::string::npos) << unbound.err;
   const json again = json::parse(unbound.out);
   EXPECT_EQ(again["rowsPurged"], 50);
   EXPECT_EQ(again["newEntries"], 50);
   EXPECT_EQ(dumpedKeys().size(), 50U);
}

// A full chip: the removed tunnels' rows are purged and then reused by the added ones. Every
// output gives each row the fates its totals count: the plan (text and JSON), the run, the
// pictures; and the run does what the plan said.
TEST_F(AgentProgramTest, EveryOutputCountsTheFatesOfItsRows) {
   jsonOf(agent("run", configText(1, 64), {"--json"}));
   const auto before = dumpedKeys();
   std::string next = configText(11, 64);
   next.replace(next.find("vrf 20 "), 7, "vrf 9 ");  // tunnel 20 rewritten
   next += configText(101, 110).substr(20);          // ten new tunnels
   const Fates expected{{"adopted", 53}, {"rewritten", 1}, {"new", 10}, {"purged", 10}};

   const std::string held = files();
   const json plan = jsonOf(agent("plan", next, {"--json", "--svg", "plan.svg"}));
   EXPECT_EQ(countersOf(plan), expected);
   EXPECT_EQ(fatesOf(plan, "rows"), expected);
   EXPECT_EQ(legendOf(readFile(dir / "plan.svg")), expected);
   const std::string text = l3decap(agent("plan", next)).out;
   EXPECT_NE(text.find("totals: 53 adopted, 1 rewritten, 10 new, 10 purged;"), std::string::npos)
       << text;
   EXPECT_EQ(occurrences(text, " purged "), 10U) << text;
   EXPECT_EQ(files(), held);

   const json run = jsonOf(agent("run", next, {"--json", "--svg", "run.svg"}));
   EXPECT_EQ(countersOf(run), expected);
   EXPECT_EQ(fatesOf(run, "changedRows", run["rowsAdopted"]), expected);
   EXPECT_EQ(legendOf(readFile(dir / "run.svg")), expected);
   for (const char* counter : {"rowWrites", "rowDeletes", "indicesInUse"}) {
      EXPECT_EQ(plan[counter], run[counter]) << counter;
   }
   const auto after = dumpedKeys();
   EXPECT_EQ(after.size(), 64U);
   for (std::uint64_t key = 11; key <= 64; ++key) {
      EXPECT_EQ(after.at(key), before.at(key)) << "key " << key << " moved";
   }
}

// In a picture of a large chip a cell covers several rows and is banded by their fates.
TEST_F(AgentProgramTest, APictureOfALargeChipShowsEachFatesShare) {
   writeFile(dir / "l3decap.conf", configText(1, 3));
   ASSERT_EQ(l3decap({"run", "--config", "l3decap.conf", "--chip", "chip.state", "--rows", "65536",
                      "--svg", "rows.svg"})
                 .status,
             0);
   const std::string svg = readFile(dir / "rows.svg");
   EXPECT_NE(svg.find("one cell per 4 rows"), std::string::npos);
   EXPECT_NE(svg.find("<title>rows 0-3: 3 new, 1 free</title>"), std::string::npos);
   EXPECT_NE(svg.find("class=\"cell new\" x=\"16\" y=\"50\" width=\"8\" height=\"6\""),
             std::string::npos);
}

// Bad input is refused with a message naming it, as JSON too when asked, and changes nothing.
TEST_F(AgentProgramTest, BadInputIsRefusedAndChangesNothing) {
   jsonOf(agent("run", configText(1, 3), {"--json"}));
   const std::string held = files();
   struct Case {
      std::vector<std::string> args;
      std::string config;  // of l3decap.conf
      int status;
      std::string message;
      std::vector<std::string> environment = {};
   };
   const auto run = [](std::vector<std::string> extra) {
      return withConfig("run", std::move(extra));
   };
   const std::string good = configText(1, 3);
   const std::string longWord(1 << 20, 'w');
   const std::vector<Case> cases{
       {run({}), good + "tunnel 9 profile 1 " + longWord + "\n", 2,
        "l3decap.conf:6: unknown word '" + longWord.substr(0, 40) + "...' in tunnel 9"},
       {run({}), "profile 1\ntunnel 9 profile 1 \x1b[2J\n", 2, "word '\\x1b[2J' in"},
       {run({}), "profile 1\n", 2, "no tunnels; a run would purge every decap row"},
       {run({}), configText(1, 65), 2,
        "65 tunnels, more than the chip's 64 decap rows; nothing was written"},
       {run({"--rows", "128"}), good, 2,
        "to start over with 128 rows, remove chip.state and chip.state.db"},
       {run({"--rows", "abc"}), good, 2, "'abc' is not a number"},
       {run({"--rows", "0"}), good, 2, "'0' is out of range"},
       {run({"--ack-window", "0"}), good, 2, "--ack-window"},
       {run({"--trace", "*=40"}), good, 2, "--trace '*=40'"},
       {run({"--bogus"}), good, 2, "--bogus"},
       {withConfig("plan", {}), good, 1, "plug-in is not loaded", {"L3DECAP_PLUGIN_PATH=/"}},
       {run({}), good, 2, "L3DECAP_PLUGIN_PATH", {"L3DECAP_PLUGIN_PATH=x"}},
       {{"run", "--chip", "chip.state"}, good, 2, "--config"},
       {{"plan", "--config", "/", "--chip", "chip.state"}, good, 2, "/: is a directory"},
       {{"frob\x07nicate"}, good, 2, "unknown command 'frob\\x07nicate'"},
       {{"demo", "--tunnels", "0"}, good, 2, "--tunnels"},
       {{"dump", "--chip", "none.state"}, good, 1, "none.state"},
   };
   for (const Case& c : cases) {
      for (const bool json : {false, true}) {
         std::vector<std::string> args = c.args;
         if (json) {
            args.push_back("--json");
         }
         writeFile(dir / "l3decap.conf", c.config);
         const auto outcome = l3decap(args, c.environment);
         SCOPED_TRACE(c.message);
         EXPECT_EQ(outcome.status, c.status) << outcome.err;
         EXPECT_NE(outcome.err.find(c.message), std::string::npos) << outcome.err;
         EXPECT_LT(outcome.err.size(), 1000U);
         if (json) {
            const auto error = json::parse(outcome.out);
            EXPECT_EQ(error["exitCode"], c.status);
            EXPECT_FALSE(error["error"].get<std::string>().empty());
         } else {
            EXPECT_EQ(outcome.out, "");
         }
         EXPECT_EQ(files(), held);
      }
   }

   // A malformed L3DECAP_TRACE is ignored with a complaint, and the run goes on.
   const auto outcome = l3decap(agent("run", configText(1, 3)), {"L3DECAP_TRACE=*=nonsense"});
   EXPECT_EQ(outcome.status, 0);
   EXPECT_NE(outcome.err.find("L3DECAP_TRACE ignored"), std::string::npos) << outcome.err;
   EXPECT_EQ(jsonOf(agent("run", "profile 1\n", {"--allow-empty", "--json"}))["rowsPurged"], 3);
}

TEST_F(AgentProgramTest, DemoShowsTheUnchangedRestartWritesNothingAndCleansUp) {
   const auto tmp = dir / "tmp";
   std::filesystem::create_directories(tmp);
   const auto outcome = l3decap({"demo", "--tunnels", "400", "--json", "--svg", "demo.svg"},
                                {"TMPDIR=" + tmp.string()});
   ASSERT_EQ(outcome.status, 0) << outcome.err;
   EXPECT_EQ(outcome.err, "");  // no progress line when stderr is not a terminal
   EXPECT_TRUE(std::filesystem::is_empty(tmp));
   const json demo = json::parse(outcome.out);
   ASSERT_EQ(demo["phases"].size(), 3U);
   EXPECT_EQ(demo["phases"][0]["rowWrites"], 400);
   EXPECT_EQ(demo["phases"][1]["rowWrites"], 0);
   EXPECT_EQ(demo["phases"][1]["rowsAdopted"], 400);
   EXPECT_EQ(countersOf(demo["phases"][2]),
             (Fates{{"adopted", 360}, {"rewritten", 20}, {"new", 20}, {"purged", 20}}));
   EXPECT_EQ(occurrences(readFile(dir / "demo.svg"), "class=\"cell "),
             3U * demo["decapRows"].get<std::size_t>());
}

}  // namespace
