// The table's choice of index allocator when the platform sets it up: its own, or the one it
// shares with the L3 interface table, sized, initialised and with the used indices counted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/ChipProfile.h"
#include "TalvikL3Common/L3InterfaceSharedAllocator.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"
#include "support/TableFixture.h"

namespace Test {
namespace {

using Shared = TalvikL3Common::L3InterfaceSharedAllocator;
using Stub = Asic::GenericIndexAllocatorStub;

bool mentions(const std::vector<std::string>& changes, const std::string& attribute) {
   return std::any_of(changes.begin(), changes.end(),
                      [&](const std::string& c) { return c.starts_with(attribute); });
}

class AllocatorSetupTest : public ::testing::TestWithParam<bool> {
 protected:
   void TearDown() override {
      table->cleanup();
      EXPECT_EQ(Stub::sharedAllocator(Fwk::typeOf<Shared>()), nullptr);
   }
   // Sets the table up as the platform does, on a chip whose profile says whether tunnel
   // interfaces get an index space of their own (none: the profile lacks the feature).
   void setUp(std::optional<bool> separateIifIndexSpace) {
      auto profile = Fwk::make<Asic::ChipProfile>("chip");
      if (separateIifIndexSpace) {
         profile->featureIs(
             Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>(),
             Fwk::make<TalvikL3Unicast::L3NextHopAttributes>(*separateIifIndexSpace));
      }
      if (withHwTable()) {
         table->hwTableIs(hwTable);
      }
      table->activeChipProfileIs(profile);
      table->numEntriesIs(4096);
      table->doCreateAllocator();
   }
   bool withHwTable() const { return GetParam(); }

   Fwk::Ptr<IngL3IifTable> table = TalvikL3Decap::ingL3IifTableFactory();
   Fwk::Ptr<Asic::HwTable> hwTable = Fwk::make<Asic::HwTable>("IngL3IifDecap", 4096);
};

TEST_P(AllocatorSetupTest, OwnAllocatorIsInstalledQuietly) {
   Fwk::RecordingObserver obs(*table);
   setUp(true);
   const auto& allocator = table->indexAllocator();
   ASSERT_TRUE(allocator);
   EXPECT_EQ(&allocator->typeData(), &Fwk::typeOf<Asic::FirstFreeIndexAllocator>());
   EXPECT_EQ(allocator->name(), "");
   EXPECT_EQ(allocator->numIndices(), 4096U);
   EXPECT_TRUE(allocator->initialized());
   EXPECT_EQ(allocator->refCount(), 1U);
   EXPECT_FALSE(mentions(obs.changes(), "indexAllocator"));
   EXPECT_EQ(hwTable->usedEntryCount(), 0U);
}

TEST_P(AllocatorSetupTest, SharedAllocatorIsPublishedAndItsUsedIndicesCounted) {
   ASSERT_EQ(Stub::sharedAllocator(Fwk::typeOf<Shared>()), nullptr);
   const auto l3Interfaces = TalvikL3Decap::ingL3IifTableFactory();  // stands in for that table
   const auto shared = Stub::createSharedAllocator(Fwk::typeOf<IngL3IifTable>(),
                                                   Fwk::typeOf<Shared>(), l3Interfaces.get());
   shared->numIndicesIs(16);
   for (std::uint64_t i = 0; i < 10; ++i) {
      const L3TunnelIntfKey key(1000 + i);
      shared->indexAcquire(Fwk::typeOf<L3TunnelIntfKey>(), &key);
   }
   Fwk::RecordingObserver obs(*table);
   setUp(false);
   EXPECT_EQ(table->indexAllocator(), shared);
   EXPECT_THAT(obs.changes(), ::testing::Contains("indexAllocator was null"));
   EXPECT_EQ(shared->numIndices(), 4096U);
   EXPECT_TRUE(shared->initialized());
   EXPECT_TRUE(shared->hasTable(table.get()));
   EXPECT_EQ(hwTable->usedEntryCount(), withHwTable() ? 10U : 0U);
   Stub::freeSharedAllocator(Fwk::typeOf<IngL3IifTable>(), Fwk::typeOf<Shared>(),
                             l3Interfaces.get());
}

TEST_P(AllocatorSetupTest, ProfileWithoutNextHopAttributesStopsTheProcess) {
   EXPECT_DEATH(setUp(std::nullopt), "nexthopAttributes");
}

INSTANTIATE_TEST_SUITE_P(HwTable, AllocatorSetupTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Present" : "Absent"; });

}  // namespace
}  // namespace Test
