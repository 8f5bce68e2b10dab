// How settings reach handles: existing ones, later ones, same-named ones, and from the
// environment.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "Fwk/Trace.h"

namespace {

using Fwk::Trace::configure;
using Fwk::Trace::Handle;

// Remembered rules are process-wide: every test starts and ends with none.
class TraceConfigureTest : public testing::Test {
 protected:
   void SetUp() override { configure("*=none"); }
   void TearDown() override { configure("*=none"); }
};

TEST_F(TraceConfigureTest, ReachesExistingHandles) {
   Handle table("ConfigureExisting", false);
   Handle other("ConfigureBystander", false);
   configure("ConfigureExisting=5,8-9");
   EXPECT_EQ(table.levels(), 0x320U);
   EXPECT_TRUE(table.enabled(8));
   EXPECT_FALSE(table.enabled(7));
   EXPECT_EQ(other.levels(), 0U);
}

TEST_F(TraceConfigureTest, IsRememberedForLaterHandles) {
   configure("ConfigureLater=3");
   Handle later("ConfigureLater", false);
   Handle unnamed("ConfigureUnnamed", false);
   EXPECT_EQ(later.levels(), 0x8U);
   EXPECT_EQ(unnamed.levels(), 0U);
}

TEST_F(TraceConfigureTest, AppliesToEveryHandleOfAName) {
   Handle first("SameName", false);
   configure("SameName=1");
   Handle second("SameName", false);
   EXPECT_EQ(first.levels(), 0x2U);
   EXPECT_EQ(second.levels(), 0x2U);
   configure("SameName=none");
   EXPECT_EQ(first.levels(), 0U);
   EXPECT_EQ(second.levels(), 0U);
}

TEST_F(TraceConfigureTest, LaterEntriesOverrideEarlierOnes) {
   configure("*=1;ConfigureOverride=2");
   Handle named("ConfigureOverride", false);
   Handle any("ConfigureAny", false);
   EXPECT_EQ(named.levels(), 0x4U);
   EXPECT_EQ(any.levels(), 0x2U);
   configure("ConfigureOverride=3;*=0");
   EXPECT_EQ(named.levels(), 0x1U);
   Handle afterwards("ConfigureOverride", false);
   EXPECT_EQ(afterwards.levels(), 0x1U);
}

TEST_F(TraceConfigureTest, RefusedSettingChangesNothing) {
   Handle kept("ConfigureRefused", false);
   configure("ConfigureRefused=2");
   EXPECT_THROW(configure("ConfigureRefused=4;ConfigureRefusedLater=4;Broken=x"),
                std::invalid_argument);
   EXPECT_EQ(kept.levels(), 0x4U);
   Handle later("ConfigureRefusedLater", false);
   EXPECT_EQ(later.levels(), 0U);
}

TEST_F(TraceConfigureTest, CodeSetsLevelsDirectly) {
   Handle handle("ConfigureCode", false);
   handle.levelIs(7, true);
   handle.levelIs(31, true);
   EXPECT_EQ(handle.levels(), 0x80000080U);
   handle.levelIs(7, false);
   EXPECT_EQ(handle.levels(), 0x80000000U);
   handle.levelsIs(0x3U);
   EXPECT_TRUE(handle.enabled(1));
}

TEST_F(TraceConfigureTest, DestroyedHandleIsNoLongerReached) {
   auto gone = std::make_unique<Handle>("ConfigureGone", false);
   gone.reset();
   configure("ConfigureGone=1");  // must not touch the destroyed handle (ASan would see it)
   Handle fresh("ConfigureGone", false);
   EXPECT_EQ(fresh.levels(), 0x2U);
}

// The environment is read once per process, so each case runs in a fresh process that inherits
// the variable; the child exits 0 when its probe handle got the expected levels.
struct EnvironmentCase {
   const char* name;
   const char* value;
   const char* configuredFirst;  // configure() before the probe handle exists, or null
   std::uint32_t expected;
   const char* stderrPattern;
};

void PrintTo(const EnvironmentCase& c, std::ostream* os) {
   *os << c.name;
}

class TraceEnvironmentDeathTest : public testing::TestWithParam<EnvironmentCase> {};

[[noreturn]] void exitWithProbeVerdict(const EnvironmentCase& c) {
   if (c.configuredFirst != nullptr) {
      configure(c.configuredFirst);
   }
   const Handle probe("EnvProbe", false);
   std::exit(probe.levels() == c.expected ? 0 : 1);
}

TEST_P(TraceEnvironmentDeathTest, SetsInitialLevels) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   const auto& c = GetParam();
   ::setenv("L3DECAP_TRACE", c.value, 1);
   EXPECT_EXIT(exitWithProbeVerdict(c), testing::ExitedWithCode(0), c.stderrPattern);
   ::unsetenv("L3DECAP_TRACE");
}

INSTANTIATE_TEST_SUITE_P(
    TraceEnvironment, TraceEnvironmentDeathTest,
    testing::Values(EnvironmentCase{"Valid", "Other=1;EnvProbe=3,5", nullptr, 0x28U, "^$"},
                    EnvironmentCase{"ConfigureWins", "EnvProbe=3", "EnvProbe=7", 0x80U, "^$"},
                    EnvironmentCase{
                        "Malformed", "EnvProbe=3;Other=40", nullptr, 0U,
                        "^error: environment variable L3DECAP_TRACE ignored: entry \"Other=40\": "
                        "level list \"40\": level 40 is out of range 0-31\n$"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
