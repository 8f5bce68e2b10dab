// Finding a chip plug-in: its file name and the directories searched for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/PluginLoader.h"

namespace Test {
namespace {

using Asic::PluginLoader;
using ::testing::HasSubstr;

struct FileNameCase {
   std::string prefix, suffix, file;
};

class PluginFileNameTest : public ::testing::TestWithParam<FileNameCase> {};

TEST_P(PluginFileNameTest, ScopeSeparatorsBecomeDashes) {
   EXPECT_EQ(PluginLoader::fileName(GetParam().prefix, GetParam().suffix), GetParam().file);
}

INSTANTIATE_TEST_SUITE_P(
    Names, PluginFileNameTest,
    ::testing::Values(FileNameCase{"AsicFeature", "TalvikL3Decap::IngL3IifTable",
                                   "libAsicFeature-TalvikL3Decap-IngL3IifTable.so"},
                      FileNameCase{"P", "A:B", "libP-A:B.so"},
                      FileNameCase{"P", "A:::B", "libP-A-:B.so"},
                      FileNameCase{"P", "", "libP-.so"}));

struct SearchPathCase {
   std::string path;
   std::vector<std::string> dirs;
};

class SearchPathTest : public ::testing::TestWithParam<SearchPathCase> {};

TEST_P(SearchPathTest, AbsoluteEntriesInOrderEmptyOnesSkipped) {
   EXPECT_EQ(PluginLoader::parseSearchPath(GetParam().path), GetParam().dirs);
}

INSTANTIATE_TEST_SUITE_P(Paths, SearchPathTest,
                         ::testing::Values(SearchPathCase{"", {}}, SearchPathCase{"/a", {"/a"}},
                                           SearchPathCase{"/a:/b/c", {"/a", "/b/c"}},
                                           SearchPathCase{"::/a::/b:", {"/a", "/b"}}));

class RelativeEntryTest : public ::testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(RelativeEntryTest, RefusesThePathNamingTheEntry) {
   try {
      PluginLoader::parseSearchPath(GetParam().first);
      ADD_FAILURE() << "accepted " << GetParam().first;
   } catch (const std::invalid_argument& e) {
      EXPECT_THAT(e.what(), HasSubstr("'" + GetParam().second + "'"));
   }
}

INSTANTIATE_TEST_SUITE_P(Paths, RelativeEntryTest,
                         ::testing::Values(std::pair<std::string, std::string>{"rel", "rel"},
                                           std::pair<std::string, std::string>{"/a:rel/x:/b",
                                                                               "rel/x"},
                                           std::pair<std::string, std::string>{"/a::./b", "./b"}));

}  // namespace
}  // namespace Test
