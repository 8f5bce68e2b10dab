// One agent life after another against the same chip file: a cold start, then restarts with the
// same, a changed and a reduced configuration.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "sim/Agent.h"
#include "sim/StateStore.h"
#include "support/ScratchDir.h"

namespace {

using Sim::Config;
using Sim::RowFate;
using Sim::TunnelConfig;

class AgentRestartTest : public ::testing::Test {
  protected:
   void SetUp() override {
      options.chipFile = (scratch.path() / "chip.state").string();
      options.rows = 256;
   }

   static Config config(std::size_t tunnels, std::uint32_t vrfBase = 100) {
      Config c;
      c.profiles = {1, 2, 3};
      for (std::size_t i = 0; i < tunnels; ++i) {
         c.tunnels.push_back(TunnelConfig{1000 + i, static_cast<std::uint32_t>(1 + i % 3),
                                          i % 2 == 0, i % 3 == 0, false,
                                          vrfBase + static_cast<std::uint32_t>(i)});
      }
      return c;
   }
   Sim::RunReport run(const Config& c) const {
      const Sim::ChipLock lock(options.chipFile, Sim::ChipLock::Mode::exclusive);
      return Sim::runAgent(c, options, lock);
   }
   static std::size_t count(const Sim::RunReport& r, RowFate fate) {
      return static_cast<std::size_t>(std::count(r.rows.begin(), r.rows.end(), fate));
   }

   const ::Test::ScratchDir scratch{"l3decap-agent"};
   Sim::RunOptions options;
};

TEST_F(AgentRestartTest, UnchangedConfigurationRestartWritesNothing) {
   const auto cold = run(config(100));
   EXPECT_FALSE(cold.restart);
   EXPECT_EQ(cold.rowWrites, 100U);
   EXPECT_EQ(cold.newEntries, 100U);
   EXPECT_EQ(cold.entriesNotInHardware, 0U);

   const auto warm = run(config(100));
   EXPECT_TRUE(warm.restart);
   EXPECT_EQ(warm.keysBound, 100U);
   EXPECT_EQ(warm.rowWrites, 0U);
   EXPECT_EQ(warm.rowDeletes, 0U);
   EXPECT_EQ(warm.profileRowWrites, 0U);
   EXPECT_EQ(warm.profileRowDeletes, 0U);
   EXPECT_EQ(warm.rowsAdopted, 100U);
   EXPECT_EQ(count(warm, RowFate::adopted), 100U);
   EXPECT_EQ(warm.indicesInUse, 100U);
}

TEST_F(AgentRestartTest, ChangedAndRemovedEntriesTouchOnlyTheirRows) {
   run(config(100));
   Config next = config(90);  // the last ten are removed
   for (std::size_t i = 0; i < 10; ++i) {
      next.tunnels[i].vrf += 5000;  // ten changed
   }
   next.tunnels.push_back(TunnelConfig{9999, 2, true, true, true, 7});  // one new
   const auto warm = run(next);
   EXPECT_EQ(warm.rowsRewritten, 10U);
   EXPECT_EQ(warm.rowsPurged, 10U);
   EXPECT_EQ(warm.newEntries, 1U);
   EXPECT_EQ(warm.rowsAdopted, 80U);
   EXPECT_EQ(warm.rowWrites, 11U);
   EXPECT_EQ(warm.rowDeletes, 10U);
   EXPECT_EQ(count(warm, RowFate::rewritten), 10U);
   EXPECT_EQ(count(warm, RowFate::purged), 10U);
   EXPECT_EQ(warm.indicesInUse, 91U);
}

TEST_F(AgentRestartTest, WithoutTheStateStoreRowsAreRewrittenButNoLiveRowIsLost) {
   run(config(50));
   std::filesystem::remove(Sim::StateStore::pathFor(options.chipFile));
   const auto warm = run(config(50));
   EXPECT_TRUE(warm.unboundRows);
   EXPECT_EQ(warm.keysBound, 0U);
   EXPECT_EQ(warm.entriesNotInHardware, 0U);
   EXPECT_EQ(warm.indicesInUse, 50U);
   EXPECT_EQ(count(warm, RowFate::free) + count(warm, RowFate::purged), 256U - 50U);
}

}  // namespace
