// Level lists and settings: what parses to which mask, and how malformed input is reported.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "Fwk/Trace.h"

namespace {

using Fwk::Trace::parseLevels;
using testing::HasSubstr;

struct LevelsCase {
   const char* text;
   std::uint32_t mask;
};

void PrintTo(const LevelsCase& c, std::ostream* os) {
   *os << '"' << c.text << '"';
}

class ParseLevelsTest : public testing::TestWithParam<LevelsCase> {};

TEST_P(ParseLevelsTest, GivesMask) {
   EXPECT_EQ(parseLevels(GetParam().text), GetParam().mask) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(TraceLevels, ParseLevelsTest,
                         testing::Values(LevelsCase{"none", 0}, LevelsCase{"*", 0xFFFFFFFFU},
                                         LevelsCase{"0", 1U}, LevelsCase{"31", 0x80000000U},
                                         LevelsCase{"5,8-9", 0x320U},
                                         LevelsCase{"0-31", 0xFFFFFFFFU}, LevelsCase{"4-4", 0x10U},
                                         LevelsCase{"3-5,4-6", 0x78U},
                                         LevelsCase{" 1 , 2 - 3 ", 0xEU}));

struct MalformedCase {
   const char* text;
   const char* problem;
};

void PrintTo(const MalformedCase& c, std::ostream* os) {
   *os << '"' << c.text << '"';
}

class MalformedLevelsTest : public testing::TestWithParam<MalformedCase> {};

TEST_P(MalformedLevelsTest, IsRefusedNamingTheProblem) {
   try {
      parseLevels(GetParam().text);
      ADD_FAILURE() << "accepted \"" << GetParam().text << "\"";
   } catch (const std::invalid_argument& e) {
      EXPECT_THAT(e.what(), HasSubstr(GetParam().problem));
      EXPECT_THAT(e.what(), HasSubstr(std::string("\"") + GetParam().text + "\""));
   }
}

INSTANTIATE_TEST_SUITE_P(TraceLevels, MalformedLevelsTest,
                         testing::Values(MalformedCase{"", "no levels given"},
                                         MalformedCase{"32", "level 32 is out of range 0-31"},
                                         MalformedCase{"99999999999",
                                                       "level 99999999999 is out of range"},
                                         MalformedCase{"abc", "'abc' is not a level number"},
                                         MalformedCase{"-1", "missing level number"},
                                         MalformedCase{"3x", "'3x' is not a level number"},
                                         MalformedCase{"9-5", "range '9-5' ends below its start"},
                                         MalformedCase{"1,,2", "missing level number"},
                                         MalformedCase{"1-2-3", "'2-3' is not a level number"},
                                         MalformedCase{"None", "'None' is not a level number"}));

class MalformedSettingTest : public testing::TestWithParam<MalformedCase> {};

TEST_P(MalformedSettingTest, IsRefusedNamingTheEntry) {
   try {
      Fwk::Trace::configure(GetParam().text);
      ADD_FAILURE() << "accepted \"" << GetParam().text << "\"";
   } catch (const std::invalid_argument& e) {
      EXPECT_THAT(e.what(), HasSubstr(GetParam().problem));
   }
}

INSTANTIATE_TEST_SUITE_P(
    TraceSetting, MalformedSettingTest,
    testing::Values(MalformedCase{"", "empty trace setting"},
                    MalformedCase{"A=1;;B=2", "has an empty entry"},
                    MalformedCase{"A=1;", "has an empty entry"},
                    MalformedCase{"A", "entry \"A\" has no '='"},
                    MalformedCase{"=3", "entry \"=3\" has an empty handle name"},
                    MalformedCase{"A=1;B=40", "entry \"B=40\": level list \"40\": level 40 is out"},
                    MalformedCase{"A=", "entry \"A=\": level list \"\": no levels given"}));

}  // namespace
