// The library loads its chip plug-in from the search path when it is loaded; the platform gives
// the table the plug-in's Util when it sets the table up.
#include <gtest/gtest.h>

#include <cstdlib>

#include "Asic/ChipProfile.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"

namespace {

using TalvikL3Decap::IngL3IifTable;
using Status = Asic::LoaderSingleton::LoadStatus;

// The plug-in directory the binary runs with (tests/plugin/CMakeLists.txt sets it); empty when
// unset, which the checks below then report.
std::string pluginDir() {
   const char* dir = std::getenv("L3DECAP_PLUGIN_PATH");
   return dir != nullptr ? dir : "";
}

Fwk::Ptr<IngL3IifTable> setUpTable() {
   auto table = TalvikL3Decap::ingL3IifTableFactory();
   auto profile = Fwk::make<Asic::ChipProfile>("chip");
   profile->featureIs(Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>(),
                      Fwk::make<TalvikL3Unicast::L3NextHopAttributes>(true));
   table->setUp(Fwk::make<Asic::HwTable>("decap", 1024), profile, 1024);
   return table;
}

TEST(PluginLoader, LibraryLoadFindsThePluginOnTheSearchPath) {
   const auto loader = IngL3IifTable::UtilLoader::loaderSingletonIs();
   EXPECT_EQ(loader->loadStatus(), Status::loaded) << loader->loadMessage();
   EXPECT_EQ(loader->pluginFile(), pluginDir() +
                                       "/libAsicFeature-TalvikL3Decap-IngL3IifTable.so");
   EXPECT_EQ(IngL3IifTable::UtilLoader::loaderSingletonIs(), loader) << "one loader per process";
}

TEST(PluginLoader, SetUpGivesTheTableThePluginsUtilWhichWritesRows) {
   auto table = setUpTable();
   ASSERT_NE(table->util(), nullptr);
   EXPECT_EQ(table->util()->maxIndex(), 1023U);
   table->configReplayCompleteIs(true);
   const TalvikL3Decap::L3TunnelIntfKey key(5);
   const auto handle =
       table->entryCommit(key, IngL3IifTable::Entry(nullptr, 3, true, false, true, 42));
   ASSERT_EQ(table->hwIndexOnlyForCrossAgentCommunication(key), Asic::kInvalidIndex)
       << "this plug-in does not publish indices in handles";
   const auto row = table->util()->hwTableEntry(table.get(), 0);  // the first free index
   ASSERT_TRUE(row.has_value());
   EXPECT_EQ(row->vrf, 42U);
   table->cleanup();
}

TEST(PluginLoader, ThePluginSeesTheSameTypeDescriptorsAsItsHost) {
   auto table = setUpTable();
   ASSERT_NE(table->util(), nullptr);
   EXPECT_EQ(&table->util()->typeData(), &Fwk::typeOf<IngL3IifTable::Util>());
   EXPECT_EQ(Fwk::TypeDescriptor::find(IngL3IifTable::Util::kTypeName),
             &Fwk::typeOf<IngL3IifTable::Util>());
   table->cleanup();
}

class ProbeLoader : public Asic::LoaderSingleton {
  public:
   explicit ProbeLoader(std::string name) : LoaderSingleton(std::move(name)) {}
   std::string prefixPath() const override { return "AsicFeature"; }
   std::string suffixPath() const override { return "TalvikL3Decap::IngL3IifTable"; }
};

TEST(PluginLoader, NoPluginOnThePathIsANormalConfiguration) {
   auto loader = Fwk::make<ProbeLoader>("probe");
   Asic::PluginLoader::load(*loader, {"/nonexistent-dir", "/tmp"});
   EXPECT_EQ(loader->loadStatus(), Status::notFound);
   EXPECT_NE(loader->loadMessage().find("libAsicFeature-TalvikL3Decap-IngL3IifTable.so"),
             std::string::npos);
}

TEST(PluginLoader, AFileThatIsNoSharedObjectFailsWithTheFileAndTheReason) {
   auto loader = Fwk::make<ProbeLoader>("probe");
   const std::string dir = pluginDir() + "/../broken";
   testing::internal::CaptureStderr();
   Asic::PluginLoader::load(*loader, {dir});
   const std::string printed = testing::internal::GetCapturedStderr();
   EXPECT_EQ(loader->loadStatus(), Status::failed);
   EXPECT_NE(loader->loadMessage().find(dir + "/libAsicFeature"), std::string::npos);
   EXPECT_NE(printed.find("cannot load"), std::string::npos);
}

TEST(PluginLoader, ARelativeSearchPathIsRefusedWhole) {
   auto loader = Fwk::make<ProbeLoader>("probe");
   ::setenv(Asic::PluginLoader::kSearchPathVariable, "/usr/lib:plugins", 1);
   testing::internal::CaptureStderr();
   Asic::PluginLoader::load(*loader);
   const std::string printed = testing::internal::GetCapturedStderr();
   EXPECT_EQ(loader->loadStatus(), Status::refused);
   EXPECT_NE(printed.find("'plugins' is not an absolute directory"), std::string::npos);
}

}  // namespace
