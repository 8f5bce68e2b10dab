// A full table of committed entries restarted: every key bound in advance to the index it
// reported before, or nothing bound and nothing suggested; the configuration replayed unchanged,
// or with a tenth of the entries changed and a tenth not replayed.
#include <algorithm>

#include "restart/RestartFixture.h"

namespace Test {
namespace {

constexpr std::uint64_t kEntries = 4096;

// The parameter: keys ending in 1 change their vrf and keys ending in 2 are not replayed.
class ScaleRestartTest : public RestartFixture, public ::testing::WithParamInterface<bool> {
 protected:
   void SetUp() override {
      RestartFixture::SetUp();
      setUpTable(TableOptions{.size = 2 * kEntries});  // room for entries written as new
      const bool churn = GetParam();
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
      commitAll(before);
      recorded = record(before);
      clearTraces();
   }
   // Every key bound before the replay (keys not replayed included), or none.
   void restartAndReplay(bool bound) {
      restartWith(bound ? recorded.reported : Bindings{});
      replay(after);
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
         out.insert(indexOf(key));
      }
      return out;
   }

   Config before, after;
   std::set<std::uint64_t> changed, dropped;
   Recorded recorded;
};

class BoundScaleTest : public ScaleRestartTest {};
class UnboundScaleTest : public ScaleRestartTest {};

TEST_P(BoundScaleTest, KeysAdoptTheirRowsAndOnlyChangedOrUnreplayedRowsAreTouched) {
   restartAndReplay(true);
   ASSERT_EQ(std::count_if(recorded.rows.begin(), recorded.rows.end(),
                           [](const Row& r) { return r.valid; }),
             kEntries);
   EXPECT_EQ(indicesOf("write"), recordedIndicesOf(changed));  // rewritten in place
   EXPECT_EQ(writesSinceRestart(), changed.size());
   EXPECT_EQ(t().syncedEntrys(), dropped.size());
   finishInit();
   EXPECT_EQ(writesSinceRestart(), changed.size());
   EXPECT_EQ(deletesSinceRestart(), dropped.size());
   EXPECT_EQ(indicesOf("delete"), recordedIndicesOf(dropped));
   for (const auto index : recordedIndicesOf(dropped)) {
      ASSERT_TRUE(available(index)) << "index " << index;
   }
   for (const auto& [key, vrf] : after) {
      ASSERT_EQ(indexOf(key), recorded.reported.at(key)) << "key " << key;
      const auto h = handle(key);
      ASSERT_EQ(h->resolvedEntryState(), changed.contains(key) ? S::success : S::indexReconciled)
          << "key " << key;
   }
   EXPECT_EQ(statistic(R::reconciledMatch), after.size() - changed.size());
   EXPECT_EQ(statistic(R::reconciledMismatch), changed.size());
   EXPECT_EQ(statistic(R::noSyncedEntry), 0U);
   EXPECT_EQ(statistic(R::hwEntryDeleted), dropped.size());
   EXPECT_EQ(tracesContaining("No stale entries in syncedEntryColl").size(),
             dropped.empty() ? 1U : 0U);
   EXPECT_EQ(t().syncedEntrys(), 0U);
   EXPECT_EQ(hardwareDifference(after), "");
}

TEST_P(UnboundScaleTest, KeysAreWrittenOffTheReadBackRowsAndNoLiveRowIsPurged) {
   restartAndReplay(false);
   EXPECT_EQ(writesSinceRestart(), 0U);  // nothing to reconcile with: all undecided
   const auto undecided = std::count_if(after.begin(), after.end(), [this](const auto& entry) {
      return handle(entry.first)->entryState() == S::unresolved;
   });
   EXPECT_EQ(static_cast<std::size_t>(undecided), after.size());
   t().doInitComplete();
   EXPECT_EQ(writesSinceRestart(), after.size());
   const std::set<Asic::Index> live = liveIndices();
   ASSERT_EQ(live.size(), after.size());
   for (const auto index : live) {
      ASSERT_FALSE(recorded.rows.at(index).valid) << "new entry written on read-back row " << index;
   }
   EXPECT_EQ(statistic(R::noSyncedEntry), after.size());

   t().purgeStaleEntries();
   util().ackAll(t());
   EXPECT_EQ(deletesSinceRestart(), kEntries);  // every read-back row was stale
   for (const auto index : indicesOf("delete")) {
      ASSERT_FALSE(live.contains(index)) << "live row " << index << " purged";
   }
   EXPECT_EQ(liveIndices(), live);
   EXPECT_EQ(statistic(R::hwEntryDeleted), kEntries);
   EXPECT_EQ(t().indexAllocator()->heldBackIndices(), 0U);
   EXPECT_EQ(hardwareDifference(after), "");
}

const auto churnName = [](const ::testing::TestParamInfo<bool>& info) {
   return info.param ? "Churn" : "Unchanged";
};
INSTANTIATE_TEST_SUITE_P(Restart, BoundScaleTest, ::testing::Bool(), churnName);
INSTANTIATE_TEST_SUITE_P(Restart, UnboundScaleTest, ::testing::Bool(), churnName);

}  // namespace
}  // namespace Test
