// The configuration file's parser: what it accepts, and that every error names its line.
#include <gtest/gtest.h>

#include <limits>

#include "ConfigFile.h"

namespace {

using L3DecapCli::ConfigError;

Sim::Config parse(const std::string& text) {
   return L3DecapCli::parseConfig(text, "test.conf");
}

// The problems a text is refused with.
std::vector<std::string> problems(const std::string& text) {
   try {
      parse(text);
   } catch (const ConfigError& e) {
      return e.problems();
   }
   ADD_FAILURE() << "accepted: " << text;
   return {};
}

TEST(ConfigFileTest, ReadsProfilesAndTunnelsWithWordsInAnyOrder) {
   const Sim::Config config = parse(
       "# a comment\n"
       "\n"
       "profile 1\n"
       "tunnel 1000 profile 1 vrf 10 ipv4 ipv6 trust-dscp\n"
       "  tunnel 0x3E9 trust-dscp vrf 0xff profile 0x2   # names a profile declared below\n"
       "tunnel 18446744073709551615 profile 1\n"
       "profile 2\n");
   EXPECT_EQ(config.profiles, (std::vector<std::uint32_t>{1, 2}));
   ASSERT_EQ(config.tunnels.size(), 3U);
   EXPECT_EQ(config.tunnels[0], (Sim::TunnelConfig{1000, 1, true, true, true, 10}));
   EXPECT_EQ(config.tunnels[1], (Sim::TunnelConfig{1001, 2, false, false, true, 255}));
   EXPECT_EQ(config.tunnels[2], (Sim::TunnelConfig{std::numeric_limits<std::uint64_t>::max(), 1,
                                                   false, false, false, 0}));
}

TEST(ConfigFileTest, EachErrorNamesItsLineAndProblem) {
   const std::string declared = "profile 1\n";
   const std::vector<std::pair<std::string, std::string>> cases{
       {"route 1\n", "test.conf:1: unknown word 'route'"},
       {"profile\n", "test.conf:1: missing profile id"},
       {"profile 4294967296\n",
        "test.conf:1: profile id '4294967296' is out of range (0 to 4294967295)"},
       {"profile 1 2\n", "test.conf:1: unexpected word '2' after the profile id"},
       {declared + "profile 0x1\n", "test.conf:2: profile 1 is declared twice (first on line 1)"},
       {declared + "tunnel\n", "test.conf:2: missing tunnel key"},
       {declared + "tunnel 12a profile 1\n", "test.conf:2: tunnel key '12a' is not a number"},
       {declared + "tunnel 18446744073709551616 profile 1\n",
        "test.conf:2: tunnel key '18446744073709551616' is out of range"},
       {declared + "tunnel 5 profile 1 vrf\n", "test.conf:2: missing vrf"},
       {declared + "tunnel 5 profile 1 vrf -3\n", "test.conf:2: vrf '-3' is not a number"},
       {declared + "tunnel 5 profile 1 vrf 4294967296\n",
        "test.conf:2: vrf '4294967296' is out of range"},
       {declared + "tunnel 5 ipv4\n", "test.conf:2: tunnel 5 has no profile"},
       {declared + "tunnel 5 profile 1 ipv6 ipv6\n",
        "test.conf:2: 'ipv6' is given twice in tunnel 5"},
       {declared + "tunnel 5 profile 1 profile 1\n", "test.conf:2: 'profile' is given twice"},
       {declared + "tunnel 5 profile 1 mpls\n", "test.conf:2: unknown word 'mpls' in tunnel 5"},
       // An offending word is quoted short, its non-printable bytes escaped.
       {declared + "tunnel 5 profile 1 " + std::string(1 << 20, 'w') + "\n",
        "test.conf:2: unknown word '" + std::string(40, 'w') + "...' in tunnel 5 ("},
       {declared + "tunnel 5 profile 1 a" + std::string(1, '\0') + "\x1b\n",
        "test.conf:2: unknown word 'a\\x00\\x1b' in tunnel 5 ("},
       {declared + "tunnel 5 profile 3\n",
        "test.conf:2: tunnel 5 names profile 3, which is not declared"},
       {declared + "tunnel 5 profile 1\n\ntunnel 0x5 profile 1\n",
        "test.conf:4: duplicate tunnel 5 (first on line 2)"},
   };
   for (const auto& [text, expected] : cases) {
      const auto found = problems(text);
      ASSERT_EQ(found.size(), 1U) << text;
      EXPECT_EQ(found[0].rfind(expected, 0), 0U)
          << "got: " << found[0] << "\nexpected: " << expected;
   }
}

TEST(ConfigFileTest, EveryErrorIsReportedInLineOrder) {
   const auto found = problems(
       "tunnel 1 profile 9\n"  // profile 9 is never declared: found after the last line
       "profile 2\n"
       "tunnel 2 profile 2 vrf x\n"
       "tunnel 3 profile 2\n"
       "bogus\n");
   ASSERT_EQ(found.size(), 3U);
   EXPECT_EQ(found[0].rfind("test.conf:1:", 0), 0U) << found[0];
   EXPECT_EQ(found[1].rfind("test.conf:3:", 0), 0U) << found[1];
   EXPECT_EQ(found[2].rfind("test.conf:5:", 0), 0U) << found[2];
}

TEST(ConfigFileTest, ProfilesBeyondTheChipsProfileTableAreRefused) {
   std::string text;
   for (std::uint32_t id = 0; id <= Sim::ChipState::kProfileRows; ++id) {
      text += "profile " + std::to_string(id) + "\n";
   }
   const auto found = problems(text);
   ASSERT_EQ(found.size(), 1U);
   EXPECT_NE(found[0].find(":257: profile 256 is one too many"), std::string::npos) << found[0];
}

}  // namespace
