// The end of a restart's life cycle: the purge of stale rows and what the allocator says about
// each, the notifications of the synced entries, teardown and destruction.
#include "TalvikL3Common/L3InterfaceSharedAllocator.h"
#include "restart/RestartFixture.h"

namespace Test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

// How the allocator regards stale row 1 when the purge reaches it.
enum class Row1 {
   heldBack,          // read back, nobody claimed it
   boundToKeyGone,    // bound in advance to a key that was not replayed
   available,         // the hold-back ended: available, in the index space
   outsideIndexSpace  // available, but the index space shrank below it
};

struct PurgeCase {
   const char* name;
   Row1 row1;
   bool kept;
   friend void PrintTo(const PurgeCase& c, std::ostream* os) { *os << c.name; }
};

// Before the restart keys 1, 2, 3 hold rows 0, 1, 2; nothing is replayed, so all three are stale.
class PurgeOutcomeTest : public RestartFixture, public ::testing::WithParamInterface<PurgeCase> {
 protected:
   void SetUp() override {
      RestartFixture::SetUp();
      setUpTable();
      commitAll({{1, 101}, {2, 102}, {3, 103}});
      restartWith(GetParam().row1 == Row1::boundToKeyGone ? Bindings{{2, 1}} : Bindings{});
      const auto& allocator = t().indexAllocator();
      if (GetParam().row1 == Row1::available || GetParam().row1 == Row1::outsideIndexSpace) {
         allocator->indexAvailableIs(1);
      }
      if (GetParam().row1 == Row1::outsideIndexSpace) {
         allocator->numIndicesIs(1);
      }
      finishInit();
   }
};

TEST_P(PurgeOutcomeTest, EveryStaleRowIsReportedThenDeletedUnlessTheAllocatorDisownsIt) {
   const bool kept = GetParam().kept;
   std::vector<std::string> expected{"tracker 0 release", "delete 0", "tracker 1 release"};
   if (!kept) {
      expected.emplace_back("delete 1");
   }
   expected.insert(expected.end(), {"tracker 2 release", "delete 2"});
   EXPECT_THAT(util().calls(), ElementsAreArray(expected));
   EXPECT_EQ(chip->rows.at(1).valid, kept);
   EXPECT_EQ(statistic(R::hwEntryDeleted), kept ? 2U : 3U);
   EXPECT_EQ(tracesContaining("Skip index:1").size(), kept ? 1U : 0U);
   const bool wasUnavailable =
       GetParam().row1 == Row1::heldBack || GetParam().row1 == Row1::boundToKeyGone;
   EXPECT_EQ(tracesContaining("Marking index available").size(), wasUnavailable ? 3U : 2U);
   for (const Asic::Index index : {0U, 1U, 2U}) {
      EXPECT_TRUE(available(index)) << "index " << index;
   }
   EXPECT_EQ(indexOf(2), Asic::kInvalidIndex);
   EXPECT_EQ(t().syncedEntrys(), 0U);
   EXPECT_FALSE(t().reconciledWrite());
}

INSTANTIATE_TEST_SUITE_P(Restart, PurgeOutcomeTest,
                         ::testing::Values(PurgeCase{"HeldBack", Row1::heldBack, false},
                                           PurgeCase{"BoundToKeyGone", Row1::boundToKeyGone, false},
                                           PurgeCase{"Available", Row1::available, false},
                                           PurgeCase{"OutsideIndexSpace", Row1::outsideIndexSpace,
                                                     true}),
                         [](const auto& info) { return std::string(info.param.name); });

class SyncedEntryNotificationTest : public RestartFixture {
 protected:
   void SetUp() override {
      RestartFixture::SetUp();
      setUpTable();
      commitAll({{1, 101}, {2, 102}, {3, 103}});
   }
   static std::string removal(Asic::Index index, std::uint32_t vrf) {
      return "syncedEntry[" + std::to_string(index) + "] was " +
             toText(FakeChip::RowForm<IngL3IifTable>::entryOf(rowFor(vrf)));
   }
};

TEST_F(SyncedEntryNotificationTest, ObserversSeeEachRetiredRowThenTheRestInAscendingOrder) {
   restartWith({{2, 1}});
   Fwk::RecordingObserver observer(t());
   replay({{2, 102}});
   finishInit();
   std::vector<std::string> removals;
   for (const auto& change : observer.changes()) {
      if (change.starts_with("syncedEntry")) {
         removals.push_back(change);
      }
   }
   EXPECT_THAT(removals, ElementsAre(removal(1, 102), removal(0, 101), removal(2, 103)));
}

TEST_F(SyncedEntryNotificationTest, WithoutObserversThePurgeStillEmptiesTheCollection) {
   restartWith();
   ASSERT_EQ(t().syncedEntrys(), 3U);
   finishInit();
   EXPECT_EQ(t().syncedEntrys(), 0U);
   EXPECT_EQ(chip->validRows(), 0U);
}

// Teardown of a restarted table, with an allocator of its own (false) or the shared one (true).
class TeardownTest : public RestartFixture, public ::testing::WithParamInterface<bool> {
 protected:
   void SetUp() override {
      RestartFixture::SetUp();
      setUpTable(TableOptions{.separateIndexSpace = !shared()});
      commitAll(config);
   }
   bool shared() const { return GetParam(); }
   static Fwk::Ptr<Asic::FirstFreeIndexAllocator> registered() {
      return Asic::GenericIndexAllocatorStub::sharedAllocator(
          Fwk::typeOf<TalvikL3Common::L3InterfaceSharedAllocator>());
   }
   std::vector<std::string> sharedAllocatorLines() const {
      return tracesContaining("Trying to delete shared allocator for table:");
   }
   const Config config{{1, 101}, {2, 102}};
};

TEST_P(TeardownTest, CleanupDisconnectsHandlesDeletesRowsAndGivesTheAllocatorBack) {
   restartWith(record(config).reported);
   replay(config);
   finishInit();
   const auto held = handle(1);
   const auto allocator = t().indexAllocator();
   clearTraces();
   util().clearCalls();
   t().cleanup();
   EXPECT_EQ(held->swTable(), nullptr);
   EXPECT_EQ(t().resolvedEntrys(), 0U);
   EXPECT_EQ(indicesOf("delete"), (std::set<Asic::Index>{0, 1}));
   EXPECT_EQ(allocator->totalUsedIndices(), 0U);
   EXPECT_EQ(t().indexAllocator(), nullptr);
   EXPECT_FALSE(allocator->hasTable(&t()));
   EXPECT_EQ(hwTable->indexUserTracker(), nullptr);
   const auto lines = sharedAllocatorLines();
   ASSERT_EQ(lines.size(), shared() ? 1U : 0U);
   if (shared()) {
      EXPECT_TRUE(lines[0].starts_with("Trying to delete shared allocator for table:"));
      EXPECT_EQ(registered(), nullptr);
   }
}

TEST_P(TeardownTest, DestroyingARestartedTableLeavesItsReadBackRowsInHardware) {
   const Recorded recorded = record(config);
   restartWith();
   ASSERT_EQ(t().syncedEntrys(), 2U);
   clearTraces();
   table = nullptr;  // no handle holds it: destroyed here
   EXPECT_EQ(chip->rows, recorded.rows);
   EXPECT_EQ(deletesSinceRestart(), 0U);
   EXPECT_EQ(hwTable->indexUserTracker(), nullptr);
   EXPECT_EQ(sharedAllocatorLines().size(), shared() ? 1U : 0U);
   EXPECT_EQ(registered(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Restart, TeardownTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Shared" : "Own"; });

}  // namespace
}  // namespace Test
