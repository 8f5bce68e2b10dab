// Configuration replay after a restart: keys bound in advance, index suggestions along the
// dependency chain, the end of initialisation and the purge of what nobody claimed.
#include "restart/RestartFixture.h"

namespace Test {
namespace {

using ::testing::ElementsAre;

// Before the restart keys 1, 2, 3 hold rows 0, 1, 2. The replay keeps 1, changes 2, drops 3
// (still bound), adds 4 (unbound) and 5 (bound to row 10, which was never written).
class MixedRestartTest : public RestartFixture {
 protected:
   void SetUp() override {
      RestartFixture::SetUp();
      setUpTable();
      commitAll(before);
      recorded = record(before);
      Bindings bindings = recorded.reported;
      bindings[5] = 10;
      restartWith(bindings);
      replay(after);
   }

   const Config before{{1, 101}, {2, 102}, {3, 103}};
   const Config after{{1, 101}, {2, 202}, {4, 104}, {5, 105}};
   Recorded recorded;
};

struct HandleExpectation {
   std::uint64_t key;
   S::EntryState entryState;
   S::EntryState resolvedEntryState;
   Asic::Index hwIndex;
};

TEST_F(MixedRestartTest, ReplayDecidesBoundKeysAndLeavesTheUnboundOneUndecided) {
   EXPECT_EQ(recorded.reported, (Bindings{{1, 0}, {2, 1}, {3, 2}}));
   EXPECT_THAT(util().calls(), ElementsAre("compare 0", "compare 1", "write 1 {p7 v4 vrf202}",
                                           "tracker 10 acquire", "write 10 {p7 v4 vrf105}"));
   const HandleExpectation expected[] = {
       {1, S::indexReconciled, S::indexReconciled, 0},
       {2, S::indexReconciled, S::indexReconciled, 1},
       {4, S::unresolved, S::unresolved, Asic::kInvalidIndex},
       {5, S::inProgress, S::inProgress, 10},
   };
   for (const auto& x : expected) {
      SCOPED_TRACE("key " + std::to_string(x.key));
      EXPECT_EQ(handle(x.key)->entryState(), x.entryState);
      EXPECT_EQ(handle(x.key)->resolvedEntryState(), x.resolvedEntryState);
      EXPECT_EQ(handle(x.key)->hwIndex(), x.hwIndex);
      EXPECT_EQ(indexOf(x.key), x.hwIndex);
   }
   EXPECT_EQ(indexOf(3), 2U);  // bound, never replayed
   EXPECT_EQ(t().syncedEntrys(), 1U);
   EXPECT_TRUE(t().syncedEntryHas(2));
   EXPECT_FALSE(t().reconciledWrite());
   EXPECT_EQ(statistic(R::reconciledMatch), 1U);
   EXPECT_EQ(statistic(R::reconciledMismatch), 1U);
   EXPECT_EQ(statistic(R::noSyncedEntry), 1U);
}

TEST_F(MixedRestartTest, InitCompleteWritesTheNewKeyOffTheReadBackRowsAndThePurgeSparesIt) {
   util().clearCalls();
   t().doInitComplete();
   EXPECT_THAT(util().calls(), ElementsAre("tracker 3 acquire", "write 3 {p7 v4 vrf104}"));
   EXPECT_TRUE(t().configReplayComplete());
   ASSERT_NE(t().writeResponseSm(), nullptr);
   EXPECT_EQ(handle(4)->entryState(), S::inProgress);

   t().purgeStaleEntries();
   EXPECT_THAT(util().calls(), ElementsAre("tracker 3 acquire", "write 3 {p7 v4 vrf104}",
                                           "tracker 2 release", "delete 2"));
   EXPECT_EQ(t().syncedEntrys(), 0U);
   EXPECT_FALSE(t().reconciledWrite());
   EXPECT_TRUE(available(2));
   EXPECT_EQ(indexOf(3), Asic::kInvalidIndex);
   EXPECT_EQ(t().swKeyFromHwIndex(2), std::nullopt);

   util().ackAll(t());
   EXPECT_EQ(handle(1)->resolvedEntryState(), S::indexReconciled);  // never written, never acked
   for (const std::uint64_t key : {2, 4, 5}) {
      EXPECT_EQ(handle(key)->entryState(), S::success) << "key " << key;
   }
   EXPECT_EQ(hardwareDifference(after), "");
}

TEST_F(MixedRestartTest, StatisticsCountEachOutcomeOnceAndThePurgeTracesThem) {
   finishInit();
   EXPECT_EQ(statistic(R::unreconciled), 0U);
   EXPECT_THAT(statisticsLines(),
               ElementsAre("purgeStaleEntries reconciledMatch:1 reconciledMismatch:1 "
                           "noSyncedEntry:2 hwEntryDeleted:1"));
   EXPECT_THAT(tracesContaining("handleStaleEntries"),
               ElementsAre(std::string(IngL3IifTable::kTypeName) +
                               " : handleStaleEntries: Deleting stale hwEntry at index:2",
                           std::string(IngL3IifTable::kTypeName) +
                               " : handleStaleEntries: Marking index available in allocator"));
}

TEST_F(MixedRestartTest, EntryRemoveAllAfterThePurgeEmptiesHardwareAndAllocator) {
   finishInit();
   util().clearCalls();
   t().entryRemoveAll();
   EXPECT_EQ(indicesOf("write"), (std::set<Asic::Index>{0, 1, 3, 10}));  // rewritten empty first
   util().ackAll(t());
   EXPECT_EQ(chip->validRows(), 0U);
   EXPECT_EQ(t().entrys(), 0U);
   EXPECT_EQ(t().resolvedEntrys(), 0U);
   EXPECT_EQ(t().indexAllocator()->totalUsedIndices(), 0U);
   EXPECT_EQ(t().indexAllocator()->heldBackIndices(), 0U);
}

TEST_F(MixedRestartTest, EntryRemoveAllBeforeThePurgeIsFatal) {
   t().doInitComplete();
   EXPECT_DEATH(t().entryRemoveAll(), "Should call purgeStaleEntries instead");
}

TEST_F(MixedRestartTest, BindingTwiceOrAfterTheReplayIsFatal) {
   EXPECT_DEATH(t().bindKeyToIndex(k(6), 0), "assertion failed: false");   // key 1 holds 0
   EXPECT_DEATH(t().bindKeyToIndex(k(4), 20), "assertion failed: false");  // 4 has a handle
   t().doInitComplete();
   EXPECT_DEATH(t().bindKeyToIndex(k(6), 20), "swTable_->configReplayInProgress\\(\\)");
}

TEST_F(MixedRestartTest, ClientRemovalDuringReplayEmptiesTheRowAndFinishesAfterInit) {
   util().clearCalls();
   t().entryRemove(k(1));  // reconciled, never written: its row is emptied in place
   EXPECT_THAT(util().calls(), ElementsAre("tracker 0 empty", "write 0 empty"));
   EXPECT_EQ(handle(1)->entryType(), IngL3IifTable::EntryHandle::inDeletion);
   finishInit();
   EXPECT_EQ(indicesOf("delete"), (std::set<Asic::Index>{0, 2}));
   EXPECT_EQ(handle(1), nullptr);
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(hardwareDifference({{2, 202}, {4, 104}, {5, 105}}), "");
}

TEST_F(MixedRestartTest, ASecondRestartFindsEveryRowWhereTheFirstLeftIt) {
   finishInit();
   const Recorded again = record(after);
   EXPECT_EQ(again.reported, (Bindings{{1, 0}, {2, 1}, {4, 3}, {5, 10}}));
   restartWith(again.reported);
   replay(after);
   EXPECT_EQ(statistic(R::reconciledMatch), after.size());
   EXPECT_EQ(t().syncedEntrys(), 0U);
   finishInit();
   EXPECT_EQ(writesSinceRestart(), 0U);
   EXPECT_EQ(deletesSinceRestart(), 0U);
   EXPECT_EQ(hardwareDifference(after), "");
}

// Before the restart keys 1, 2, 3 hold rows 0, 1, 2 (all with profile index 7). Nothing is bound
// unless a test says so; suggestions come from a dependent table.
class SuggestionTest : public RestartFixture {
 protected:
   void SetUp() override {
      RestartFixture::SetUp();
      setUpTable();
      commitAll({{1, 101}, {2, 102}, {3, 103}});
   }
   void suggest(std::uint64_t key, const Asic::IndexSet& suggestions) {
      handle(key)->handleIndexSuggestions(suggestions);
   }
   Fwk::Ptr<ProfileHandle> waiting = ProfileHandle::make(S::unresolved, Asic::kInvalidIndex);
};

TEST_F(SuggestionTest, SuggestionsAreTriedInAscendingOrderUntilOneMatchesItsRow) {
   restartWith();
   replay({{2, 102}});
   ASSERT_EQ(handle(2)->entryState(), S::unresolved);  // no index, no suggestion yet
   suggest(2, {2, 0, 1});
   EXPECT_THAT(util().calls(), ElementsAre("compare 0", "compare 1"));  // 2 is never tried
   EXPECT_EQ(handle(2)->entryState(), S::indexReconciled);
   EXPECT_EQ(handle(2)->resolvedEntryState(), S::indexReconciled);
   EXPECT_EQ(handle(2)->hwIndex(), 1U);
   EXPECT_EQ(indexOf(2), 1U);
   EXPECT_EQ(t().indexHelpers(), 0U);
   EXPECT_FALSE(t().syncedEntryHas(1));
   EXPECT_EQ(statistic(R::reconciledMatch), 1U);
   EXPECT_EQ(writesSinceRestart(), 0U);
}

TEST_F(SuggestionTest, SuggestionTakenByAnotherKeyLeavesTheKeyToBeWrittenAsNew) {
   restartWith();
   replay({{1, 101}, {3, 303}});
   suggest(1, {0});
   suggest(3, {0});
   EXPECT_EQ(handle(3)->entryState(), S::unresolved);
   EXPECT_EQ(tracesContaining("reconcileUsingHwIndex: Index:0 not free").size(), 1U);
   finishInit();
   EXPECT_EQ(t().indexHelpers(), 0U);
   EXPECT_EQ(indexOf(1), 0U);
   EXPECT_EQ(indexOf(3), 3U);  // rows 1 and 2 were read back: held until the purge
   EXPECT_EQ(indicesOf("write"), (std::set<Asic::Index>{3}));
   EXPECT_EQ(indicesOf("delete"), (std::set<Asic::Index>{1, 2}));
   EXPECT_EQ(statistic(R::reconciledMatch), 1U);
   EXPECT_EQ(statistic(R::noSyncedEntry), 1U);
   EXPECT_EQ(hardwareDifference({{1, 101}, {3, 303}}), "");
}

TEST_F(SuggestionTest, SuggestionsForWaitingKeysArePassedDownToTheirProfile) {
   restartWith({{2, 1}});
   replay({{1, 101}, {2, 102}}, waiting);
   // Key 2 holds index 1: its read-back row names profile index 7.
   EXPECT_EQ(waiting->suggestions, (std::vector<Asic::IndexSet>{{7}}));
   suggest(1, {0, 40});  // 40 was never read back: a default entry names profile index 0
   EXPECT_EQ(waiting->suggestions, (std::vector<Asic::IndexSet>{{7}, {7}, {0}}));

   // The profile settles at its old index; both keys resolve and adopt their rows unwritten.
   waiting->hwIndexIs(kProfileIndex);
   waiting->entryStateIs(S::indexReconciled);
   EXPECT_EQ(handle(1)->entryState(), S::indexReconciled);
   EXPECT_EQ(handle(2)->entryState(), S::indexReconciled);
   EXPECT_EQ(indexOf(1), 0U);
   EXPECT_EQ(indexOf(2), 1U);
   EXPECT_EQ(statistic(R::reconciledMatch), 2U);
   finishInit();
   EXPECT_EQ(writesSinceRestart(), 0U);
   EXPECT_EQ(indicesOf("delete"), (std::set<Asic::Index>{2}));
}

// Replay leaves keys undecided in every way the end of initialisation distinguishes:
//   1 reconciled by a suggestion (decided), 2 changed with a suggestion of its own row,
//   3 changed with a suggestion taken by key 1, 4 new without suggestions,
//   6 new with a suggestion of a row never read back, 5 waiting for its profile.
TEST_F(SuggestionTest, InitCompleteSettlesUndecidedEntriesInTwoPasses) {
   restartWith();
   replay({{1, 101}, {2, 202}, {3, 303}, {4, 104}, {6, 106}});
   replay({{5, 105}}, waiting);
   suggest(1, {0});
   suggest(2, {1});
   suggest(3, {0});
   suggest(6, {40});
   for (const std::uint64_t key : {2, 3, 4, 6}) {
      ASSERT_EQ(handle(key)->entryState(), S::unresolved) << "key " << key;
   }
   util().clearCalls();
   t().doInitComplete();

   // First pass: 2 and 6 adopt their suggestions unread; second pass: 3 and 4 are new.
   EXPECT_EQ(indicesOf("write"), (std::set<Asic::Index>{1, 3, 4, 40}));
   EXPECT_EQ(handle(2)->entryState(), S::indexReconciled);
   EXPECT_EQ(handle(2)->hwIndex(), 1U);
   EXPECT_EQ(handle(6)->entryState(), S::indexReconciled);
   EXPECT_EQ(handle(6)->hwIndex(), 40U);
   EXPECT_EQ(handle(3)->entryState(), S::inProgress);
   EXPECT_EQ(handle(4)->entryState(), S::inProgress);
   EXPECT_EQ(handle(5)->entryState(), S::unresolved);
   EXPECT_EQ(indexOf(5), Asic::kInvalidIndex);
   EXPECT_EQ(statistic(R::reconciledMatch), 1U);
   EXPECT_EQ(statistic(R::reconciledMismatch), 2U);
   EXPECT_EQ(statistic(R::noSyncedEntry), 2U);
   EXPECT_EQ(t().indexHelpers(), 0U);
   EXPECT_EQ(t().syncedEntrys(), 1U);  // key 3's old row

   // Key 5 resolves before the purge: programmed as in normal operation, off the stale row.
   waiting->hwIndexIs(kProfileIndex);
   waiting->entryStateIs(S::success);
   EXPECT_EQ(indexOf(5), 5U);
   t().purgeStaleEntries();
   util().ackAll(t());
   EXPECT_EQ(indicesOf("delete"), (std::set<Asic::Index>{2}));
   EXPECT_EQ(statistic(R::noSyncedEntry), 2U);  // key 5 is not a reconciliation outcome
   EXPECT_EQ(hardwareDifference({{1, 101}, {2, 202}, {3, 303}, {4, 104}, {5, 105}, {6, 106}}), "");
}

}  // namespace
}  // namespace Test
