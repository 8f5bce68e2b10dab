// The l3decap program run as a user runs it: one process per command against files in a
// directory of the test's own, checked through its exit status, its JSON and the files it leaves.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
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

struct Tunnel {
   std::uint64_t key;
   std::uint32_t profile;
   std::uint32_t vrf;
};

std::vector<Tunnel> tunnels(std::size_t count) {
   std::vector<Tunnel> list;
   for (std::size_t i = 0; i < count; ++i) {
      list.push_back(Tunnel{5000 + i, static_cast<std::uint32_t>(1 + i % 2),
                            static_cast<std::uint32_t>(100 + i)});
   }
   return list;
}

std::string configText(const std::vector<Tunnel>& list) {
   std::string text = "# two profiles\nprofile 1\nprofile 2\n";
   for (const Tunnel& t : list) {
      text += "tunnel " + std::to_string(t.key) + " profile " + std::to_string(t.profile) +
              " vrf " + std::to_string(t.vrf) + " ipv4\n";
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
   // Runs a command that must succeed and print one JSON document.
   json jsonOf(const std::vector<std::string>& args) const {
      const auto outcome = l3decap(args);
      EXPECT_EQ(outcome.status, 0) << outcome.err;
      return json::parse(outcome.out);
   }
   json run(const std::vector<Tunnel>& list, std::vector<std::string> extra = {}) const {
      writeFile(dir / "l3decap.conf", configText(list));
      std::vector<std::string> args{"run",        "--config", "l3decap.conf", "--chip",
                                    "chip.state", "--rows",   "512",          "--json"};
      args.insert(args.end(), extra.begin(), extra.end());
      return jsonOf(args);
   }
   // Key to index of the valued decap rows, as dump shows them.
   std::map<std::uint64_t, std::uint32_t> dumpedKeys() const {
      std::map<std::uint64_t, std::uint32_t> keys;
      const json dumped = jsonOf({"dump", "--chip", "chip.state", "--json"});
      for (const auto& row : dumped["decap"]) {
         if (row["state"] == "valued") {
            keys.emplace(row["key"].get<std::uint64_t>(), row["index"].get<std::uint32_t>());
         }
      }
      return keys;
   }
   std::string chipBytes() const { return readFile(dir / "chip.state"); }
   std::string storeBytes() const { return readFile(dir / "chip.state.db"); }

   const ::Test::ScratchDir scratch{"l3decap-cli"};
   std::filesystem::path dir = scratch.path();
};

std::set<std::uint32_t> changedRows(const json& report, const std::string& fate) {
   std::set<std::uint32_t> rows;
   for (const auto& row : report["changedRows"]) {
      if (row["fate"] == fate) {
         rows.insert(row["index"].get<std::uint32_t>());
      }
   }
   return rows;
}

TEST_F(AgentProgramTest, RestartWithTheSameConfigurationWritesAndDeletesNothing) {
   const json cold = run(tunnels(200));
   EXPECT_FALSE(cold["restart"].get<bool>());
   EXPECT_EQ(cold["rowsWritten"], 200);
   EXPECT_EQ(cold["new"], 200);
   EXPECT_EQ(cold["decapRows"], 512);

   const json warm = run(tunnels(200));
   EXPECT_TRUE(warm["restart"].get<bool>());
   EXPECT_EQ(warm["rowsWritten"], 0);
   EXPECT_EQ(warm["rowsDeleted"], 0);
   EXPECT_EQ(warm["profileRowsWritten"], 0);
   EXPECT_EQ(warm["adopted"], 200);
   EXPECT_EQ(warm["keysBound"], 200);
   EXPECT_TRUE(warm["changedRows"].empty());

   const json strict = run(tunnels(200), {"--strict-restart"});
   EXPECT_EQ(strict["rowsWritten"], 0);
   EXPECT_TRUE(strict["strictRestart"]["passed"].get<bool>());
   EXPECT_TRUE(strict["strictRestart"]["violations"].empty());
}

TEST_F(AgentProgramTest, ChangedConfigurationRewritesExactlyTheChangedRows) {
   run(tunnels(100));
   const auto before = dumpedKeys();
   ASSERT_EQ(before.size(), 100U);

   std::vector<Tunnel> next = tunnels(96);  // the last four are removed
   std::set<std::uint32_t> changedIndices;
   for (const std::size_t i : {3, 17, 40, 41, 90}) {
      next[i].vrf += 10000;
      changedIndices.insert(before.at(next[i].key));
   }
   std::set<std::uint32_t> removedIndices;
   for (std::uint64_t key = 5096; key < 5100; ++key) {
      removedIndices.insert(before.at(key));
   }
   next.push_back(Tunnel{77, 1, 7});
   next.push_back(Tunnel{78, 2, 8});

   const json warm = run(next, {"--svg", "rows.svg"});
   EXPECT_EQ(warm["rewritten"], 5);
   EXPECT_EQ(warm["new"], 2);
   EXPECT_EQ(warm["purged"], 4);
   EXPECT_EQ(warm["adopted"], 91);
   EXPECT_EQ(warm["rowsWritten"], 7);
   EXPECT_EQ(warm["rowsDeleted"], 4);
   EXPECT_EQ(changedRows(warm, "rewritten"), changedIndices);
   EXPECT_EQ(changedRows(warm, "purged"), removedIndices);
   EXPECT_EQ(changedRows(warm, "new").size(), 2U);

   // The chip agrees with the summary: the same rows are in use, the kept keys did not move.
   const auto after = dumpedKeys();
   EXPECT_EQ(after.size(), warm["indicesInUse"].get<std::size_t>());
   for (const Tunnel& t : next) {
      if (before.contains(t.key)) {
         EXPECT_EQ(after.at(t.key), before.at(t.key)) << "key " << t.key;
      }
   }
   const json dumped = jsonOf({"dump", "--chip", "chip.state", "--json"});
   const auto changedRow =
       std::find_if(dumped["decap"].begin(), dumped["decap"].end(),
                    [&](const json& row) { return row["key"] == next[17].key; });
   ASSERT_NE(changedRow, dumped["decap"].end());
   EXPECT_EQ((*changedRow)["vrf"], next[17].vrf);

   // So does the picture: one cell per row, each fate's count in the legend.
   const std::string svg = readFile(dir / "rows.svg");
   EXPECT_EQ(occurrences(svg, "class=\"cell rewritten\""), 5U);
   EXPECT_EQ(occurrences(svg, "class=\"cell new\""), 2U);
   EXPECT_EQ(occurrences(svg, "class=\"cell purged\""), 4U);
   EXPECT_EQ(occurrences(svg, "class=\"cell adopted\""), 91U);
   EXPECT_EQ(occurrences(svg, "class=\"cell free\""), 512U - 102U);
   EXPECT_NE(svg.find(">rewritten: 5<"), std::string::npos);
}

TEST_F(AgentProgramTest, DamagedChipFileIsRefusedAndLeftUntouched) {
   run(tunnels(20));
   const std::string good = chipBytes();
   const std::string store = storeBytes();
   writeFile(dir / "l3decap.conf", configText(tunnels(25)));
   for (const std::size_t offset : {std::size_t{20}, std::size_t{64 + 8 * 5 + 1}}) {
      std::string damaged = good;
      damaged[offset] = static_cast<char>(damaged[offset] ^ 0x10);
      writeFile(dir / "chip.state", damaged);
      for (const auto& command : {"run", "plan"}) {
         const auto outcome =
             l3decap({command, "--config", "l3decap.conf", "--chip", "chip.state"});
         EXPECT_EQ(outcome.status, 1) << command << " offset " << offset << ": " << outcome.err;
         EXPECT_NE(outcome.err.find("chip.state: "), std::string::npos) << outcome.err;
         EXPECT_EQ(chipBytes(), damaged) << command << " offset " << offset;
         EXPECT_EQ(storeBytes(), store);
      }
      EXPECT_EQ(l3decap({"dump", "--chip", "chip.state"}).status, 1);
      EXPECT_EQ(chipBytes(), damaged);
   }
}

TEST_F(AgentProgramTest, BadConfigurationLineIsReportedAndProgramsNothing) {
   std::string text = configText(tunnels(10));
   text += "tunnel 9 profile 1 vrf 12 ipv5\n";  // line 14
   writeFile(dir / "bad.conf", text);
   const std::vector<std::string> args{"run", "--config", "bad.conf", "--chip", "chip.state"};

   auto outcome = l3decap(args);
   EXPECT_EQ(outcome.status, 2);
   EXPECT_NE(outcome.err.find("bad.conf:14: unknown word 'ipv5'"), std::string::npos)
       << outcome.err;
   EXPECT_FALSE(std::filesystem::exists(dir / "chip.state"));

   run(tunnels(10));
   const std::string chip = chipBytes();
   const std::string store = storeBytes();
   outcome = l3decap(args);
   EXPECT_EQ(outcome.status, 2);
   EXPECT_EQ(chipBytes(), chip);
   EXPECT_EQ(storeBytes(), store);
}

TEST_F(AgentProgramTest, PlanForecastsTheRunAndWritesNothing) {
   const auto planArgs = [](const std::string& chip) {
      return std::vector<std::string>{"plan", "--config", "l3decap.conf", "--chip", chip, "--json"};
   };
   writeFile(dir / "l3decap.conf", configText(tunnels(30)));
   const json coldPlan = jsonOf(planArgs("new.state"));
   EXPECT_EQ(coldPlan["new"], 30);
   EXPECT_FALSE(std::filesystem::exists(dir / "new.state"));
   EXPECT_FALSE(std::filesystem::exists(dir / "new.state.db"));

   run(tunnels(30));
   const std::string chip = chipBytes();
   const std::string store = storeBytes();
   std::vector<Tunnel> next = tunnels(28);
   next[4].vrf = 9;
   writeFile(dir / "l3decap.conf", configText(next));
   const json plan = jsonOf(planArgs("chip.state"));
   EXPECT_EQ(chipBytes(), chip);
   EXPECT_EQ(storeBytes(), store);

   std::map<std::string, std::size_t> fates;
   for (const auto& row : plan["rows"]) {
      ++fates[row["fate"].get<std::string>()];
      if (row["fate"] == "rewritten") {
         EXPECT_EQ(row["key"], next[4].key);
         EXPECT_EQ(row["before"]["vrf"], 104);
         EXPECT_EQ(row["after"]["vrf"], 9);
      }
   }
   EXPECT_EQ(fates, (std::map<std::string, std::size_t>{
                        {"adopted", 27}, {"purged", 2}, {"rewritten", 1}}));

   const json actual = run(next);
   for (const char* counter :
        {"rowsWritten", "rowsDeleted", "adopted", "rewritten", "new", "purged", "indicesInUse"}) {
      EXPECT_EQ(plan[counter], actual[counter]) << counter;
   }
}

TEST_F(AgentProgramTest, UsageErrorsNameTheProblemAndExitTwo) {
   writeFile(dir / "l3decap.conf", configText(tunnels(3)));
   const std::vector<std::string> run{"run", "--config", "l3decap.conf", "--chip", "chip.state"};
   const auto with = [&](std::vector<std::string> extra) {
      std::vector<std::string> args = run;
      args.insert(args.end(), extra.begin(), extra.end());
      return args;
   };
   struct Case {
      std::vector<std::string> args;
      std::vector<std::string> environment;
      std::string message;
   };
   const std::vector<Case> cases{
       {with({"--trace", "TalvikL3Decap::IngL3IifTable=40"}), {}, "--trace"},
       {run, {"L3DECAP_TRACE=*=nonsense"}, "L3DECAP_TRACE"},
       {run, {"L3DECAP_PLUGIN_PATH=relative/dir"}, "L3DECAP_PLUGIN_PATH"},
       {with({"--ack-window", "0"}), {}, "--ack-window"},
       {with({"--bogus"}), {}, "--bogus"},
       {{"run", "--chip", "chip.state"}, {}, "--config"},
       {{"frobnicate"}, {}, "frobnicate"},
       {{"demo", "--tunnels", "0"}, {}, "--tunnels"},
   };
   for (const Case& c : cases) {
      const auto outcome = l3decap(c.args, c.environment);
      EXPECT_EQ(outcome.status, 2) << c.message << ": " << outcome.err;
      EXPECT_NE(outcome.err.find(c.message), std::string::npos) << outcome.err;
      EXPECT_FALSE(std::filesystem::exists(dir / "chip.state")) << c.message;
   }

   // --rows sizes a new chip only; against an existing one it must match.
   EXPECT_EQ(l3decap(with({"--rows", "64"})).status, 0);
   const auto outcome = l3decap(with({"--rows", "128"}));
   EXPECT_EQ(outcome.status, 2);
   EXPECT_NE(outcome.err.find("64 decap rows"), std::string::npos) << outcome.err;
}

TEST_F(AgentProgramTest, MissingPlugInIsARuntimeFailure) {
   writeFile(dir / "l3decap.conf", configText(tunnels(3)));
   const auto outcome = l3decap({"run", "--config", "l3decap.conf", "--chip", "chip.state"},
                                {"L3DECAP_PLUGIN_PATH=" + dir.string()});
   EXPECT_EQ(outcome.status, 1);
   EXPECT_NE(outcome.err.find("plug-in is not loaded"), std::string::npos) << outcome.err;
   EXPECT_FALSE(std::filesystem::exists(dir / "chip.state"));
}

TEST_F(AgentProgramTest, HelpDocumentsEveryCommandAndTheExitCodes) {
   for (const auto& command : {"run", "plan", "dump", "demo"}) {
      const auto outcome = l3decap({command, "--help"});
      EXPECT_EQ(outcome.status, 0) << command;
      EXPECT_NE(outcome.out.find("Exit codes:"), std::string::npos) << command;
      EXPECT_NE(outcome.out.find("3  --strict-restart"), std::string::npos) << command;
   }
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
   const json& cold = demo["phases"][0];
   const json& same = demo["phases"][1];
   const json& changed = demo["phases"][2];
   EXPECT_EQ(cold["phase"], "cold start");
   EXPECT_EQ(cold["rowsWritten"], 400);
   EXPECT_EQ(same["rowsWritten"], 0);
   EXPECT_EQ(same["rowsDeleted"], 0);
   EXPECT_EQ(same["adopted"], 400);
   EXPECT_EQ(changed["rewritten"], 20);
   EXPECT_EQ(changed["purged"], 20);
   EXPECT_EQ(changed["new"], 20);
   EXPECT_EQ(changed["rowsWritten"], 40);

   const std::string svg = readFile(dir / "demo.svg");
   EXPECT_EQ(occurrences(svg, "class=\"cell "), 3U * demo["decapRows"].get<std::size_t>());
   EXPECT_EQ(occurrences(svg, "class=\"cell rewritten\""), 20U);
}

}  // namespace
