// The end of a restart's life cycle, over every table kind: the purge of stale rows and what the
// allocator says about each, the notifications of the synced entries, teardown and destruction.
#include "TalvikL3Common/L3InterfaceSharedAllocator.h"
#include "restart/RestartFixture.h"

namespace Test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

template <class Kind>
class PurgeTest : public RestartFixture<Kind> {
 protected:
   void SetUp() override {
      RestartFixture<Kind>::SetUp();
      this->startWith(config);
   }
   const Config config{{1, 101}, {2, 102}, {3, 103}};  // on rows 0, 1, 2
};
TYPED_TEST_SUITE(PurgeTest, TableKinds, KindNames);

// Nothing is replayed, so all three rows are stale. How the allocator regards row 1 when the
// purge reaches it decides whether the purge deletes it.
TYPED_TEST(PurgeTest, EveryStaleRowIsReportedThenDeletedUnlessTheAllocatorDisownsIt) {
   enum class Row1 { heldBack, boundToKeyGone, available, outsideIndexSpace };
   for (const Row1 row1 :
        {Row1::heldBack, Row1::boundToKeyGone, Row1::available, Row1::outsideIndexSpace}) {
      SCOPED_TRACE("case " + std::to_string(static_cast<int>(row1)));
      this->startWith(this->config);
      this->restartWith(row1 == Row1::boundToKeyGone ? Bindings{{2, 1}} : Bindings{});
      const auto& allocator = this->t().indexAllocator();
      if (row1 == Row1::available || row1 == Row1::outsideIndexSpace) {
         allocator->indexAvailableIs(1);
      }
      if (row1 == Row1::outsideIndexSpace) {
         allocator->numIndicesIs(1);
      }
      this->finishInit();

      const bool kept = row1 == Row1::outsideIndexSpace;
      std::vector<std::string> expected{"tracker 0 release", "delete 0", "tracker 1 release"};
      if (!kept) {
         expected.emplace_back("delete 1");
      }
      expected.insert(expected.end(), {"tracker 2 release", "delete 2"});
      EXPECT_THAT(this->util().calls(), ElementsAreArray(expected));
      EXPECT_EQ(this->chip->rows.at(1).valid, kept);
      EXPECT_EQ(this->statistic(R::hwEntryDeleted), kept ? 2U : 3U);
      EXPECT_EQ(this->tracesContaining("Skip index:1").size(), kept ? 1U : 0U);
      const bool wasUnavailable = row1 == Row1::heldBack || row1 == Row1::boundToKeyGone;
      EXPECT_EQ(this->tracesContaining("Marking index available").size(), wasUnavailable ? 3U : 2U);
      for (const Asic::Index index : {0U, 1U, 2U}) {
         EXPECT_TRUE(this->available(index)) << "index " << index;
      }
      EXPECT_EQ(this->indexOf(2), Asic::kInvalidIndex);
      EXPECT_EQ(this->t().syncedEntrys(), 0U);
      EXPECT_FALSE(this->t().reconciledWrite());
   }
}

TYPED_TEST(PurgeTest, ObserversSeeEachRetiredRowThenTheRestInAscendingOrder) {
   this->restartWith({{2, 1}});
   Fwk::RecordingObserver observer(this->t());
   this->replay({{2, 102}});
   this->finishInit();
   const auto removal = [](Asic::Index index, std::uint32_t vrf) {
      return "syncedEntry[" + std::to_string(index) + "] was " +
             entryText(TypeParam::value(nullptr, vrf, 7));
   };
   std::vector<std::string> removals;
   for (const auto& change : observer.changes()) {
      if (change.starts_with("syncedEntry")) {
         removals.push_back(change);
      }
   }
   EXPECT_THAT(removals, ElementsAre(removal(1, 102), removal(0, 101), removal(2, 103)));
}

TYPED_TEST(PurgeTest, WithoutObserversThePurgeStillEmptiesTheCollection) {
   this->restartWith();
   ASSERT_EQ(this->t().syncedEntrys(), 3U);
   this->finishInit();
   EXPECT_EQ(this->t().syncedEntrys(), 0U);
   EXPECT_EQ(this->chip->validRows(), 0U);
}

TYPED_TEST(PurgeTest, CleanupDisconnectsHandlesDeletesRowsAndGivesTheAllocatorBack) {
   this->restartWith(this->record(this->config).reported);
   this->replay(this->config);
   this->finishInit();
   const auto held = this->handle(1);
   const auto allocator = this->t().indexAllocator();
   this->util().clearCalls();
   this->t().cleanup();
   EXPECT_EQ(held->swTable(), nullptr);
   EXPECT_EQ(this->t().resolvedEntrys(), 0U);
   EXPECT_EQ(this->indicesOf("delete"), (std::set<Asic::Index>{0, 1, 2}));
   EXPECT_EQ(allocator->totalUsedIndices(), 0U);
   EXPECT_EQ(this->t().indexAllocator(), nullptr);
   EXPECT_EQ(this->hwTable->indexUserTracker(), nullptr);
}

TYPED_TEST(PurgeTest, DestroyingARestartedTableLeavesItsReadBackRowsInHardware) {
   const auto recorded = this->record(this->config);
   this->restartWith();
   ASSERT_EQ(this->t().syncedEntrys(), 3U);
   this->table = nullptr;  // no handle holds it: destroyed here
   EXPECT_EQ(this->chip->rows, recorded.rows);
   EXPECT_EQ(this->deletesSinceRestart(), 0U);
   EXPECT_EQ(this->hwTable->indexUserTracker(), nullptr);
}

// The decap table's allocator shared with the L3 interface table goes back to the registry when
// the last table using it is cleaned up or destroyed.
class SharedAllocatorTeardownTest : public RestartFixture<DecapKind> {
 protected:
   void SetUp() override {
      RestartFixture::SetUp();
      startWith({{1, 101}}, TableOptions{.separateIndexSpace = false});
   }
   static Fwk::Ptr<Asic::FirstFreeIndexAllocator> registered() {
      return Asic::GenericIndexAllocatorStub::sharedAllocator(
          Fwk::typeOf<TalvikL3Common::L3InterfaceSharedAllocator>());
   }
   std::size_t sharedAllocatorLines() const {
      return tracesContaining("Trying to delete shared allocator for table:").size();
   }
};

TEST_F(SharedAllocatorTeardownTest, CleanupGivesTheSharedAllocatorBack) {
   const auto allocator = t().indexAllocator();
   ASSERT_EQ(registered(), allocator);
   clearTraces();
   t().cleanup();
   EXPECT_FALSE(allocator->hasTable(&t()));
   EXPECT_EQ(sharedAllocatorLines(), 1U);
   EXPECT_EQ(registered(), nullptr);
}

TEST_F(SharedAllocatorTeardownTest, DestroyingTheTableGivesTheSharedAllocatorBack) {
   restartWith();
   clearTraces();
   table = nullptr;
   EXPECT_EQ(sharedAllocatorLines(), 1U);
   EXPECT_EQ(registered(), nullptr);
}

}  // namespace
}  // namespace Test
