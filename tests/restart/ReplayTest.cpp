// Configuration replay after a restart: keys bound in advance, index suggestions along the
// dependency chain, the end of initialisation and the purge of what nobody claimed.
#include "restart/RestartFixture.h"

namespace Test {
namespace {

using ::testing::ElementsAre;

// Before the restart keys 1, 2, 3 hold rows 0, 1, 2. The replay keeps 1, changes 2, drops 3
// (still bound), adds 4 (unbound) and 5 (bound to row 10, which was never written).
template <class Kind>
class MixedRestartTest : public RestartFixture<Kind> {
 protected:
   void SetUp() override {
      RestartFixture<Kind>::SetUp();
      this->startWith(before);
      recorded = this->record(before);
      Bindings bindings = recorded.reported;
      bindings[5] = 10;
      this->restartWith(bindings);
      this->replay(after);
   }

   const Config before{{1, 101}, {2, 102}, {3, 103}};
   const Config after{{1, 101}, {2, 202}, {4, 104}, {5, 105}};
   typename RestartFixture<Kind>::Recorded recorded;
};
TYPED_TEST_SUITE(MixedRestartTest, TableKinds, KindNames);

struct HandleExpectation {
   std::uint64_t key;
   S::EntryState entryState;
   S::EntryState resolvedEntryState;
   Asic::Index hwIndex;
};

TYPED_TEST(MixedRestartTest, ReplayDecidesBoundKeysAndLeavesTheUnboundOneUndecided) {
   EXPECT_EQ(this->recorded.reported, (Bindings{{1, 0}, {2, 1}, {3, 2}}));
   EXPECT_THAT(this->util().calls(), ElementsAre("compare 0", "compare 1", "write 1 {p7 vrf202}",
                                                 "tracker 10 acquire", "write 10 {p7 vrf105}"));
   const HandleExpectation expected[] = {
       {1, S::indexReconciled, S::indexReconciled, 0},
       {2, S::indexReconciled, S::indexReconciled, 1},
       {4, S::unresolved, S::unresolved, Asic::kInvalidIndex},
       {5, S::inProgress, S::inProgress, 10},
   };
   for (const auto& x : expected) {
      SCOPED_TRACE("key " + std::to_string(x.key));
      EXPECT_EQ(this->handle(x.key)->entryState(), x.entryState);
      EXPECT_EQ(this->handle(x.key)->resolvedEntryState(), x.resolvedEntryState);
      EXPECT_EQ(this->handle(x.key)->hwIndex(), x.hwIndex);
      EXPECT_EQ(this->indexOf(x.key), x.hwIndex);
   }
   EXPECT_EQ(this->indexOf(3), 2U);  // bound, never replayed
   EXPECT_EQ(this->t().syncedEntrys(), 1U);
   EXPECT_TRUE(this->t().syncedEntryHas(2));
   EXPECT_FALSE(this->t().reconciledWrite());
   EXPECT_EQ(this->statistic(R::reconciledMatch), 1U);
   EXPECT_EQ(this->statistic(R::reconciledMismatch), 1U);
   EXPECT_EQ(this->statistic(R::noSyncedEntry), 1U);
}

TYPED_TEST(MixedRestartTest, InitCompleteWritesTheNewKeyOffTheReadBackRowsAndThePurgeSparesIt) {
   this->util().clearCalls();
   this->t().doInitComplete();
   EXPECT_THAT(this->util().calls(), ElementsAre("tracker 3 acquire", "write 3 {p7 vrf104}"));
   EXPECT_TRUE(this->t().configReplayComplete());
   ASSERT_NE(this->t().writeResponseSm(), nullptr);
   EXPECT_EQ(this->handle(4)->entryState(), S::inProgress);

   this->t().purgeStaleEntries();
   EXPECT_THAT(this->util().calls(), ElementsAre("tracker 3 acquire", "write 3 {p7 vrf104}",
                                                 "tracker 2 release", "delete 2"));
   EXPECT_EQ(this->t().syncedEntrys(), 0U);
   EXPECT_FALSE(this->t().reconciledWrite());
   EXPECT_TRUE(this->available(2));
   EXPECT_EQ(this->indexOf(3), Asic::kInvalidIndex);
   EXPECT_EQ(this->t().swKeyFromHwIndex(2), std::nullopt);

   this->util().ackAll(this->t());
   EXPECT_EQ(this->handle(1)->resolvedEntryState(),
             S::indexReconciled);  // never written, never acked
   for (const std::uint64_t key : {2, 4, 5}) {
      EXPECT_EQ(this->handle(key)->entryState(), S::success) << "key " << key;
   }
   EXPECT_EQ(this->hardwareDifference(this->after), "");
}

TYPED_TEST(MixedRestartTest, StatisticsCountEachOutcomeOnceAndThePurgeTracesThem) {
   this->finishInit();
   EXPECT_EQ(this->statistic(R::unreconciled), 0U);
   EXPECT_THAT(this->statisticsLines(),
               ElementsAre("purgeStaleEntries reconciledMatch:1 reconciledMismatch:1 "
                           "noSyncedEntry:2 hwEntryDeleted:1"));
   EXPECT_THAT(this->tracesContaining("handleStaleEntries"),
               ElementsAre(std::string(TypeParam::Table::kTypeName) +
                               " : handleStaleEntries: Deleting stale hwEntry at index:2",
                           std::string(TypeParam::Table::kTypeName) +
                               " : handleStaleEntries: Marking index available in allocator"));
}

TYPED_TEST(MixedRestartTest, EntryRemoveAllAfterThePurgeEmptiesHardwareAndAllocator) {
   this->finishInit();
   this->util().clearCalls();
   this->t().entryRemoveAll();
   EXPECT_EQ(this->indicesOf("write"),
             (std::set<Asic::Index>{0, 1, 3, 10}));  // rewritten empty first
   this->util().ackAll(this->t());
   EXPECT_EQ(this->chip->validRows(), 0U);
   EXPECT_EQ(this->t().entrys(), 0U);
   EXPECT_EQ(this->t().resolvedEntrys(), 0U);
   EXPECT_EQ(this->t().indexAllocator()->totalUsedIndices(), 0U);
   EXPECT_EQ(this->t().indexAllocator()->heldBackIndices(), 0U);
}

TYPED_TEST(MixedRestartTest, EntryRemoveAllBeforeThePurgeIsFatal) {
   this->t().doInitComplete();
   EXPECT_DEATH(this->t().entryRemoveAll(), "Should call purgeStaleEntries instead");
}

TYPED_TEST(MixedRestartTest, BindingTwiceOrAfterTheReplayIsFatal) {
   EXPECT_DEATH(this->t().bindKeyToIndex(this->k(6), 0),
                "assertion failed: false");  // key 1 holds 0
   EXPECT_DEATH(this->t().bindKeyToIndex(this->k(4), 20),
                "assertion failed: false");  // 4 has a handle
   this->t().doInitComplete();
   EXPECT_DEATH(this->t().bindKeyToIndex(this->k(6), 20), "swTable_->configReplayInProgress\\(\\)");
}

TYPED_TEST(MixedRestartTest, ClientRemovalDuringReplayEmptiesTheRowAndFinishesAfterInit) {
   this->util().clearCalls();
   this->t().entryRemove(this->k(1));  // reconciled, never written: its row is emptied in place
   EXPECT_THAT(this->util().calls(), ElementsAre("tracker 0 empty", "write 0 empty"));
   EXPECT_EQ(this->handle(1)->entryType(), EH::inDeletion);
   this->finishInit();
   EXPECT_EQ(this->indicesOf("delete"), (std::set<Asic::Index>{0, 2}));
   EXPECT_EQ(this->handle(1), nullptr);
   EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(this->hardwareDifference({{2, 202}, {4, 104}, {5, 105}}), "");
}

TYPED_TEST(MixedRestartTest, ASecondRestartFindsEveryRowWhereTheFirstLeftIt) {
   this->finishInit();
   const auto again = this->record(this->after);
   EXPECT_EQ(again.reported, (Bindings{{1, 0}, {2, 1}, {4, 3}, {5, 10}}));
   this->restartWith(again.reported);
   this->replay(this->after);
   EXPECT_EQ(this->statistic(R::reconciledMatch), this->after.size());
   EXPECT_EQ(this->t().syncedEntrys(), 0U);
   this->finishInit();
   EXPECT_EQ(this->writesSinceRestart(), 0U);
   EXPECT_EQ(this->deletesSinceRestart(), 0U);
   EXPECT_EQ(this->hardwareDifference(this->after), "");
}

// Before the restart keys 1, 2, 3 hold rows 0, 1, 2 (all with profile index 7). Nothing is bound
// unless a test says so; suggestions come from a dependent table.
template <class Kind>
class SuggestionTest : public RestartFixture<Kind> {
 protected:
   void SetUp() override {
      RestartFixture<Kind>::SetUp();
      this->startWith({{1, 101}, {2, 102}, {3, 103}});
   }
   void suggest(std::uint64_t key, const Asic::IndexSet& suggestions) {
      this->handle(key)->handleIndexSuggestions(suggestions);
   }
   Fwk::Ptr<ProfileHandle> waiting = pendingProfile();
};
TYPED_TEST_SUITE(SuggestionTest, TableKinds, KindNames);

TYPED_TEST(SuggestionTest, SuggestionsAreTriedInAscendingOrderUntilOneMatchesItsRow) {
   this->restartWith();
   this->replay({{2, 102}});
   ASSERT_EQ(this->handle(2)->entryState(), S::unresolved);  // no index, no suggestion yet
   this->suggest(2, {2, 0, 1});
   EXPECT_THAT(this->util().calls(), ElementsAre("compare 0", "compare 1"));  // 2 is never tried
   EXPECT_EQ(this->handle(2)->entryState(), S::indexReconciled);
   EXPECT_EQ(this->handle(2)->resolvedEntryState(), S::indexReconciled);
   EXPECT_EQ(this->handle(2)->hwIndex(), 1U);
   EXPECT_EQ(this->indexOf(2), 1U);
   EXPECT_EQ(this->t().indexHelpers(), 0U);
   EXPECT_FALSE(this->t().syncedEntryHas(1));
   EXPECT_EQ(this->statistic(R::reconciledMatch), 1U);
   EXPECT_EQ(this->writesSinceRestart(), 0U);
}

TYPED_TEST(SuggestionTest, SuggestionTakenByAnotherKeyLeavesTheKeyToBeWrittenAsNew) {
   this->restartWith();
   this->replay({{1, 101}, {3, 303}});
   this->suggest(1, {0});
   this->suggest(3, {0});
   EXPECT_EQ(this->handle(3)->entryState(), S::unresolved);
   EXPECT_EQ(this->tracesContaining("reconcileUsingHwIndex: Index:0 not free").size(), 1U);
   this->finishInit();
   EXPECT_EQ(this->t().indexHelpers(), 0U);
   EXPECT_EQ(this->indexOf(1), 0U);
   EXPECT_EQ(this->indexOf(3), 3U);  // rows 1 and 2 were read back: held until the purge
   EXPECT_EQ(this->indicesOf("write"), (std::set<Asic::Index>{3}));
   EXPECT_EQ(this->indicesOf("delete"), (std::set<Asic::Index>{1, 2}));
   EXPECT_EQ(this->statistic(R::reconciledMatch), 1U);
   EXPECT_EQ(this->statistic(R::noSyncedEntry), 1U);
   EXPECT_EQ(this->hardwareDifference({{1, 101}, {3, 303}}), "");
}

TYPED_TEST(SuggestionTest, SuggestionsForWaitingKeysArePassedDownToTheirProfile) {
   this->restartWith({{2, 1}});
   this->replay({{1, 101}, {2, 102}}, this->waiting);
   // Key 2 holds index 1: its read-back row names profile index 7.
   EXPECT_EQ(this->waiting->suggestions, (std::vector<Asic::IndexSet>{{7}}));
   this->suggest(1, {0, 40});  // 40 was never read back: a default entry names profile index 0
   EXPECT_EQ(this->waiting->suggestions, (std::vector<Asic::IndexSet>{{7}, {7}, {0}}));

   // The profile settles at its old index; both keys resolve and adopt their rows unwritten.
   this->waiting->hwIndexIs(this->kProfileIndex);
   this->waiting->entryStateIs(S::indexReconciled);
   EXPECT_EQ(this->handle(1)->entryState(), S::indexReconciled);
   EXPECT_EQ(this->handle(2)->entryState(), S::indexReconciled);
   EXPECT_EQ(this->indexOf(1), 0U);
   EXPECT_EQ(this->indexOf(2), 1U);
   EXPECT_EQ(this->statistic(R::reconciledMatch), 2U);
   this->finishInit();
   EXPECT_EQ(this->writesSinceRestart(), 0U);
   EXPECT_EQ(this->indicesOf("delete"), (std::set<Asic::Index>{2}));
}

// Replay leaves keys undecided in every way the end of initialisation distinguishes:
//   1 reconciled by a suggestion (decided), 2 changed with a suggestion of its own row,
//   3 changed with a suggestion taken by key 1, 4 new without suggestions,
//   6 new with a suggestion of a row never read back, 5 waiting for its profile.
TYPED_TEST(SuggestionTest, InitCompleteSettlesUndecidedEntriesInTwoPasses) {
   this->restartWith();
   this->replay({{1, 101}, {2, 202}, {3, 303}, {4, 104}, {6, 106}});
   this->replay({{5, 105}}, this->waiting);
   this->suggest(1, {0});
   this->suggest(2, {1});
   this->suggest(3, {0});
   this->suggest(6, {40});
   for (const std::uint64_t key : {2, 3, 4, 6}) {
      ASSERT_EQ(this->handle(key)->entryState(), S::unresolved) << "key " << key;
   }
   this->util().clearCalls();
   this->t().doInitComplete();

   // First pass: 2 and 6 adopt their suggestions unread; second pass: 3 and 4 are new.
   EXPECT_EQ(this->indicesOf("write"), (std::set<Asic::Index>{1, 3, 4, 40}));
   EXPECT_EQ(this->handle(2)->entryState(), S::indexReconciled);
   EXPECT_EQ(this->handle(2)->hwIndex(), 1U);
   EXPECT_EQ(this->handle(6)->entryState(), S::indexReconciled);
   EXPECT_EQ(this->handle(6)->hwIndex(), 40U);
   EXPECT_EQ(this->handle(3)->entryState(), S::inProgress);
   EXPECT_EQ(this->handle(4)->entryState(), S::inProgress);
   EXPECT_EQ(this->handle(5)->entryState(), S::unresolved);
   EXPECT_EQ(this->indexOf(5), Asic::kInvalidIndex);
   EXPECT_EQ(this->statistic(R::reconciledMatch), 1U);
   EXPECT_EQ(this->statistic(R::reconciledMismatch), 2U);
   EXPECT_EQ(this->statistic(R::noSyncedEntry), 2U);
   EXPECT_EQ(this->t().indexHelpers(), 0U);
   EXPECT_EQ(this->t().syncedEntrys(), 1U);  // key 3's old row

   // Key 5 resolves before the purge: programmed as in normal operation, off the stale row.
   this->waiting->hwIndexIs(this->kProfileIndex);
   this->waiting->entryStateIs(S::success);
   EXPECT_EQ(this->indexOf(5), 5U);
   this->t().purgeStaleEntries();
   this->util().ackAll(this->t());
   EXPECT_EQ(this->indicesOf("delete"), (std::set<Asic::Index>{2}));
   EXPECT_EQ(this->statistic(R::noSyncedEntry), 2U);  // key 5 is not a reconciliation outcome
   EXPECT_EQ(this->hardwareDifference({{1, 101}, {2, 202}, {3, 303}, {4, 104}, {5, 105}, {6, 106}}),
             "");
}

}  // namespace
}  // namespace Test
