// Trace settings: level lists, how settings reach existing, later and same-named handles, how
// malformed ones are refused, and the environment variable.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Fwk/Trace.h"

namespace {

using Fwk::Trace::configure;
using Fwk::Trace::Handle;
using Fwk::Trace::parseLevels;

// Remembered rules are process-wide: every test starts and ends with none.
class TraceSettingTest : public testing::Test {
 protected:
   void SetUp() override { configure("*=none"); }
   void TearDown() override { configure("*=none"); }
};

struct LevelsCase {
   const char* text;
   std::uint32_t mask;
};

TEST_F(TraceSettingTest, LevelListsGiveTheirMask) {
   for (const auto& [text, mask] :
        {LevelsCase{"none", 0}, LevelsCase{"*", 0xFFFFFFFFU}, LevelsCase{"0", 1U},
         LevelsCase{"31", 0x80000000U}, LevelsCase{"5,8-9", 0x320U}, LevelsCase{"0-31", ~0U},
         LevelsCase{"4-4", 0x10U}, LevelsCase{"3-5,4-6", 0x78U}, LevelsCase{" 1 , 2 - 3 ", 0xEU}}) {
      EXPECT_EQ(parseLevels(text), mask) << text;
   }
}

// Settings applied in order while a handle "Probe" exists ('!' marks one that must be refused);
// then the levels of that handle, of a "Probe" made afterwards and of an "Other" made afterwards.
struct SettingCase {
   const char* name;
   std::vector<const char*> settings;
   std::uint32_t existing, later, other;
};

class TraceSettingReachTest : public TraceSettingTest,
                              public testing::WithParamInterface<SettingCase> {};

TEST_P(TraceSettingReachTest, ReachesTheHandlesItNames) {
   Handle existing("Probe", false);
   for (std::string setting : GetParam().settings) {
      if (setting.starts_with('!')) {
         EXPECT_THROW(configure(setting.substr(1)), std::invalid_argument) << setting;
      } else {
         configure(setting);
      }
   }
   const Handle later("Probe", false);
   const Handle other("Other", false);
   EXPECT_EQ(existing.levels(), GetParam().existing);
   EXPECT_EQ(later.levels(), GetParam().later);
   EXPECT_EQ(other.levels(), GetParam().other);
}

INSTANTIATE_TEST_SUITE_P(
    Trace, TraceSettingReachTest,
    testing::Values(
        SettingCase{"Named", {"Probe=5,8-9"}, 0x320U, 0x320U, 0},
        SettingCase{"SwitchedOff", {"Probe=1", "Probe=none"}, 0, 0, 0},
        SettingCase{"LaterEntryWins", {"*=1;Probe=2"}, 0x4U, 0x4U, 0x2U},
        SettingCase{"WildcardLast", {"Probe=3;*=0"}, 0x1U, 0x1U, 0x1U},
        SettingCase{"RefusedChangesNothing", {"Probe=2", "!Probe=4;Other=4;B=x"}, 0x4U, 0x4U, 0}),
    [](const auto& info) { return std::string(info.param.name); });

struct MalformedCase {
   bool setting;  // a whole setting, or a level list
   const char* text;
   const char* problem;
};

TEST_F(TraceSettingTest, MalformedInputIsRefusedNamingTheProblem) {
   for (const auto& c :
        {MalformedCase{false, "", "no levels given"},
         MalformedCase{false, "32", "level 32 is out of range 0-31"},
         MalformedCase{false, "99999999999", "level 99999999999 is out of range"},
         MalformedCase{false, "abc", "'abc' is not a level number"},
         MalformedCase{false, "-1", "missing level number"},
         MalformedCase{false, "3x", "'3x' is not a level number"},
         MalformedCase{false, "9-5", "range '9-5' ends below its start"},
         MalformedCase{false, "1,,2", "missing level number"},
         MalformedCase{false, "1-2-3", "'2-3' is not a level number"},
         MalformedCase{false, "None", "'None' is not a level number"},
         MalformedCase{true, "", "empty trace setting"},
         MalformedCase{true, "A=1;;B=2", "has an empty entry"},
         MalformedCase{true, "A=1;", "has an empty entry"},
         MalformedCase{true, "A", "entry \"A\" has no '='"},
         MalformedCase{true, "=3", "entry \"=3\" has an empty handle name"},
         MalformedCase{true, "A=1;B=40", "entry \"B=40\": level list \"40\": level 40 is out"},
         MalformedCase{true, "A=", "entry \"A=\": level list \"\": no levels given"}}) {
      try {
         c.setting ? configure(c.text) : static_cast<void>(parseLevels(c.text));
         ADD_FAILURE() << "accepted \"" << c.text << "\"";
      } catch (const std::invalid_argument& e) {
         EXPECT_THAT(e.what(), testing::HasSubstr(c.problem));
         if (!c.setting) {
            EXPECT_THAT(e.what(), testing::HasSubstr(std::string("\"") + c.text + "\""));
         }
      }
   }
}

TEST_F(TraceSettingTest, CodeOverridesLevelsAndADestroyedHandleIsNotReached) {
   Handle handle("Code", false);
   handle.levelIs(7, true);
   handle.levelIs(31, true);
   handle.levelIs(7, false);
   EXPECT_EQ(handle.levels(), 0x80000000U);
   EXPECT_TRUE(handle.enabled(31));
   EXPECT_FALSE(handle.enabled(7));
   std::make_unique<Handle>("Gone", false).reset();
   configure("Gone=1");  // must not touch the destroyed handle (ASan would see it)
   EXPECT_EQ(Handle("Gone", false).levels(), 0x2U);
}

// The environment is read once per process, so each case runs in a fresh process that inherits
// the variable; the child exits 0 when its probe handle got the expected levels.
struct EnvironmentCase {
   const char* value;
   const char* configuredFirst;  // configure() before the probe handle exists, or null
   std::uint32_t expected;
   const char* stderrPattern;
};

TEST(TraceEnvironmentDeathTest, SetsInitialLevelsUnlessMalformedOrOverridden) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   for (const auto& c :
        {EnvironmentCase{"Other=1;EnvProbe=3,5", nullptr, 0x28U, "^$"},
         EnvironmentCase{"EnvProbe=3", "EnvProbe=7", 0x80U, "^$"},
         EnvironmentCase{"EnvProbe=3;Other=40", nullptr, 0U,
                         "^error: environment variable L3DECAP_TRACE ignored: entry \"Other=40\": "
                         "level list \"40\": level 40 is out of range 0-31\n$"}}) {
      ::setenv("L3DECAP_TRACE", c.value, 1);
      const auto probe = [&c] {
         if (c.configuredFirst != nullptr) {
            configure(c.configuredFirst);
         }
         std::exit(Handle("EnvProbe", false).levels() == c.expected ? 0 : 1);
      };
      EXPECT_EXIT(probe(), testing::ExitedWithCode(0), c.stderrPattern) << c.value;
      ::unsetenv("L3DECAP_TRACE");
   }
}

}  // namespace
