// Finding a chip plug-in: its file name and the directories searched for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "Asic/PluginLoader.h"

namespace Test {
namespace {

using Asic::PluginLoader;

TEST(PluginLoaderTest, ScopeSeparatorsInTheFileNameBecomeDashes) {
   for (const auto& [prefix, suffix, file] :
        std::vector<std::array<std::string, 3>>{{"AsicFeature", "TalvikL3Decap::IngL3IifTable",
                                                 "libAsicFeature-TalvikL3Decap-IngL3IifTable.so"},
                                                {"P", "A:B", "libP-A:B.so"},
                                                {"P", "A:::B", "libP-A-:B.so"},
                                                {"P", "", "libP-.so"}}) {
      EXPECT_EQ(PluginLoader::fileName(prefix, suffix), file);
   }
}

TEST(PluginLoaderTest, SearchPathKeepsAbsoluteEntriesInOrderAndRefusesARelativeOne) {
   for (const auto& [path, dirs] : std::vector<std::pair<std::string, std::vector<std::string>>>{
            {"", {}}, {"/a", {"/a"}}, {"/a:/b/c", {"/a", "/b/c"}}, {"::/a::/b:", {"/a", "/b"}}}) {
      EXPECT_EQ(PluginLoader::parseSearchPath(path), dirs) << path;
   }
   for (const auto& [refused, entry] : std::vector<std::pair<std::string, std::string>>{
            {"rel", "rel"}, {"/a:rel/x:/b", "rel/x"}, {"/a::./b", "./b"}}) {
      EXPECT_THAT(
          [path = refused] { PluginLoader::parseSearchPath(path); },
          testing::ThrowsMessage<std::invalid_argument>(testing::HasSubstr("'" + entry + "'")));
   }
}

}  // namespace
}  // namespace Test
