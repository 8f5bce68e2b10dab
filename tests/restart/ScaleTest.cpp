// A full table of committed entries restarted, over every table kind: every key bound in advance
// to the index it reported before, or nothing bound and nothing suggested; the configuration
// replayed unchanged, or with a tenth of the entries changed and a tenth not replayed.
#include <algorithm>

#include "restart/RestartFixture.h"

namespace Test {
namespace {

constexpr std::uint64_t kEntries = 4096;

template <class Kind>
class ScaleRestartTest : public RestartFixture<Kind> {
 protected:
   // With churn, keys ending in 1 change their vrf and keys ending in 2 are not replayed.
   void prepare(bool churn) {
      before.clear();
      after.clear();
      changed.clear();
      dropped.clear();
      for (std::uint64_t key = 1; key <= kEntries; ++key) {
         before[key] = static_cast<std::uint32_t>(key);
         if (!churn || key % 10 == 0 || key % 10 > 2) {
            after[key] = before[key];
         } else if (key % 10 == 1) {
            after[key] = before[key] + 100000;
            changed.insert(key);
         } else {
            dropped.insert(key);
         }
      }
      this->startWith(before,
                      TableOptions{.size = 2 * kEntries});  // room for entries written as new
      recorded = this->record(before);
      this->clearTraces();
   }
   // Every key bound before the replay (keys not replayed included), or none.
   void restartAndReplay(bool bound) {
      this->restartWith(bound ? recorded.reported : Bindings{});
      this->replay(after);
   }
   std::set<Asic::Index> recordedIndicesOf(const std::set<std::uint64_t>& keys) const {
      std::set<Asic::Index> out;
      for (const auto key : keys) {
         out.insert(recorded.reported.at(key));
      }
      return out;
   }
   std::set<Asic::Index> liveIndices() {
      std::set<Asic::Index> out;
      for (const auto& [key, vrf] : after) {
         out.insert(this->indexOf(key));
      }
      return out;
   }

   Config before, after;
   std::set<std::uint64_t> changed, dropped;
   typename RestartFixture<Kind>::Recorded recorded;
};
TYPED_TEST_SUITE(ScaleRestartTest, TableKinds, KindNames);

TYPED_TEST(ScaleRestartTest, BoundKeysAdoptTheirRowsAndOnlyChangedOrUnreplayedRowsAreTouched) {
   for (const bool churn : {false, true}) {
      SCOPED_TRACE(churn ? "churn" : "unchanged");
      this->prepare(churn);
      this->restartAndReplay(true);
      EXPECT_EQ(this->indicesOf("write"), this->recordedIndicesOf(this->changed));  // in place
      EXPECT_EQ(this->writesSinceRestart(), this->changed.size());
      EXPECT_EQ(this->t().syncedEntrys(), this->dropped.size());
      this->finishInit();
      EXPECT_EQ(this->writesSinceRestart(), this->changed.size());
      EXPECT_EQ(this->deletesSinceRestart(), this->dropped.size());
      EXPECT_EQ(this->indicesOf("delete"), this->recordedIndicesOf(this->dropped));
      for (const auto& [key, vrf] : this->after) {
         ASSERT_EQ(this->indexOf(key), this->recorded.reported.at(key)) << "key " << key;
         ASSERT_EQ(this->handle(key)->resolvedEntryState(),
                   this->changed.contains(key) ? S::success : S::indexReconciled)
             << "key " << key;
      }
      EXPECT_EQ(this->statistic(R::reconciledMatch), this->after.size() - this->changed.size());
      EXPECT_EQ(this->statistic(R::reconciledMismatch), this->changed.size());
      EXPECT_EQ(this->statistic(R::noSyncedEntry), 0U);
      EXPECT_EQ(this->statistic(R::hwEntryDeleted), this->dropped.size());
      EXPECT_EQ(this->tracesContaining("No stale entries in syncedEntryColl").size(),
                this->dropped.empty() ? 1U : 0U);
      EXPECT_EQ(this->hardwareDifference(this->after), "");
   }
}

TYPED_TEST(ScaleRestartTest, UnboundKeysAreWrittenOffTheReadBackRowsAndNoLiveRowIsPurged) {
   for (const bool churn : {false, true}) {
      SCOPED_TRACE(churn ? "churn" : "unchanged");
      this->prepare(churn);
      this->restartAndReplay(false);
      EXPECT_EQ(this->writesSinceRestart(), 0U);  // nothing to reconcile with: all undecided
      this->t().doInitComplete();
      EXPECT_EQ(this->writesSinceRestart(), this->after.size());
      const std::set<Asic::Index> live = this->liveIndices();
      ASSERT_EQ(live.size(), this->after.size());
      for (const auto index : live) {
         ASSERT_FALSE(this->recorded.rows.at(index).valid)
             << "new entry written on read-back row " << index;
      }
      EXPECT_EQ(this->statistic(R::noSyncedEntry), this->after.size());

      this->t().purgeStaleEntries();
      this->util().ackAll(this->t());
      EXPECT_EQ(this->deletesSinceRestart(), kEntries);  // every read-back row was stale
      EXPECT_EQ(this->liveIndices(), live);
      EXPECT_EQ(this->t().indexAllocator()->heldBackIndices(), 0U);
      EXPECT_EQ(this->hardwareDifference(this->after), "");
   }
}

}  // namespace
}  // namespace Test
