// A client commits entries: the needed profile entry is ready or becomes ready later, fails on the
// way, or has an index too wide for the row; values are replaced and repeated; acknowledgements
// come back in any order.
#include <gmock/gmock.h>

#include "support/Scenario.h"

namespace Test {
namespace {

using Calls = std::vector<std::string>;

class CommitScenario : public Scenario {};

TEST_F(CommitScenario, ProfileNotReadyYetWaitsAndResolvesWhenItBecomesReady) {
   auto profile = pendingProfile();
   auto h = t().entryCommit(k(1), e(profile, 100));
   EXPECT_EQ(h->entryType(), EH::committed);
   EXPECT_EQ(h->entryState(), S::unresolved);
   ASSERT_EQ(t().unresolvedEntrys(), 1U);
   EXPECT_EQ(t().unresolvedEntry(k(1))->neededEntryHandleSms(), 1U);
   EXPECT_EQ(t().resolvedEntrys(), 0U);
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);

   profile->hwIndexIs(9);  // an index alone does not confirm the profile entry
   EXPECT_EQ(h->entryState(), S::unresolved);
   EXPECT_TRUE(util().calls().empty());

   profile->entryStateIs(S::success);
   EXPECT_EQ(t().unresolvedEntrys(), 0U);
   EXPECT_EQ(profile->watchers(), 0U);
   EXPECT_EQ(h->entryState(), S::inProgress);
   EXPECT_EQ(h->resolvedEntryState(), S::inProgress);
   EXPECT_EQ(util().calls(), (Calls{"tracker 0 acquire", "write 0 {p9 v4 vrf100}"}));
   EXPECT_EQ(tracedAmong({"entryCommit : Writing new entry at key: 1", "initUnresolvedEntry: key:1",
                          "doResolve: key:1", "handleEntry key: 1, configReplayComplete: true",
                          "programHwEntry key: 1, entryState:inProgress",
                          "traceHwIndex Acquired hwIndex : 0", "hwTableEntryIs : key: 1"}),
             (Calls{"entryCommit : Writing new entry at key: 1", "initUnresolvedEntry: key:1",
                    "doResolve: key:1", "handleEntry key: 1, configReplayComplete: true",
                    "programHwEntry key: 1, entryState:inProgress",
                    "traceHwIndex Acquired hwIndex : 0", "hwTableEntryIs : key: 1"}));

   EXPECT_TRUE(util().ackNext(t()));
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(h->resolvedEntryState(), S::success);
   EXPECT_TRUE(traced("handleEntryState entryhandle state: COMPLETE  success at key : 1"));
   EXPECT_EQ(tracker().users(0), 1U);
}

TEST_F(CommitScenario, OneProfileBecomingReadyResolvesEveryKeyWaitingForIt) {
   auto profile = pendingProfile();
   auto h1 = t().entryCommit(k(1), e(profile, 100));
   auto h2 = t().entryCommit(k(2), e(profile, 200));
   EXPECT_EQ(profile->watchers(), 2U);
   makeReady(*profile, 5);
   EXPECT_EQ(t().unresolvedEntrys(), 0U);
   ASSERT_NE(indexOf(1), indexOf(2));
   EXPECT_EQ(rowAt(indexOf(1)), "{p5 v4 vrf100}");
   EXPECT_EQ(rowAt(indexOf(2)), "{p5 v4 vrf200}");
   EXPECT_EQ(util().ackAll(t()), 2U);
   EXPECT_EQ(h1->entryState(), S::success);
   EXPECT_EQ(h2->entryState(), S::success);
}

TEST_F(CommitScenario, UtilPublishingIndicesMakesAnIndexedProfileReady) {
   util().publishHwIndexInHandleIs(true);
   auto indexed = ProfileHandle::make(S::unresolved, 10);
   auto h1 = t().entryCommit(k(1), e(indexed, 100));
   EXPECT_EQ(util().callsMatching("write"), (Calls{"write 0 {p10 v4 vrf100}"}));
   EXPECT_EQ(h1->hwIndex(), 0U);

   auto later = pendingProfile();
   auto h2 = t().entryCommit(k(2), e(later, 200));
   EXPECT_EQ(h2->entryState(), S::unresolved);
   later->hwIndexIs(11);
   EXPECT_EQ(h2->entryState(), S::inProgress);
   EXPECT_EQ(h2->hwIndex(), 1U);
   EXPECT_EQ(util().callsMatching("write").back(), "write 1 {p11 v4 vrf200}");
}

TEST_F(CommitScenario, NullProfileHandleKeepsTheClientsIndexAndADefaultValueIsNotQueued) {
   auto h = commitAcked(1, Entry());
   EXPECT_EQ(util().callsMatching("write"), (Calls{"write 0 {p0 vrf0}"}));
   t().entryCommit(k(1), Entry(nullptr, 42, false, true, false, 9));
   EXPECT_EQ(own(1).pendingEntrys(), 0U);  // the default value in force is not kept
   EXPECT_EQ(util().callsMatching("write").back(), "write 0 {p42 v6 vrf9}");
   util().ackAll(t());
   EXPECT_EQ(h->entryState(), S::success);
}

TEST_F(CommitScenario, NewerValueWhileWaitingReplacesTheWaitingOne) {
   auto first = pendingProfile();
   auto second = pendingProfile();
   auto h = t().entryCommit(k(1), e(first, 100));
   t().entryCommit(k(1), e(second, 200));
   EXPECT_TRUE(traced("entryCommit : Deleting existing unresolved entry at key : 1"));
   EXPECT_EQ(first->watchers(), 0U);
   EXPECT_EQ(first->refCount(), 1U);
   EXPECT_EQ(second->watchers(), 1U);
   makeReady(*first, 1);  // the replaced value no longer waits for it
   EXPECT_TRUE(util().calls().empty());
   EXPECT_EQ(h->entryState(), S::unresolved);
   makeReady(*second, 2);
   EXPECT_EQ(util().callsMatching("write"), (Calls{"write 0 {p2 v4 vrf200}"}));
}

TEST_F(CommitScenario, ReturningToTheValueInForceDropsTheWaitingOne) {
   auto ready = readyProfile(7);
   auto waiting = pendingProfile();
   auto h = commitAcked(1, e(ready, 100));
   util().clearCalls();
   t().entryCommit(k(1), e(waiting, 200));
   EXPECT_EQ(h->entryState(), S::unresolved);
   t().entryCommit(k(1), e(ready, 100));
   EXPECT_EQ(t().unresolvedEntrys(), 0U);
   EXPECT_EQ(waiting->watchers(), 0U);
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(own(1).pendingEntrys(), 0U);
   EXPECT_TRUE(util().calls().empty());
}

// A failing profile entry marks the handle; the value keeps waiting and resolves once the profile
// entry recovers.
class FailingProfile : public CommitScenario,
                       public ::testing::WithParamInterface<S::EntryState> {};

TEST_P(FailingProfile, MarksTheHandleAndTheEntryKeepsWaiting) {
   auto profile = pendingProfile();
   auto h = t().entryCommit(k(1), e(profile, 100));
   profile->entryStateIs(GetParam());
   EXPECT_EQ(h->entryState(), S::failedNeededEntry);
   EXPECT_TRUE(traced("handleEntryState entryhandle state: failedNeededEntry at key : 1"));
   ASSERT_EQ(t().unresolvedEntrys(), 1U);
   EXPECT_EQ(t().unresolvedEntry(k(1))->neededEntryHandleSms(), 1U);
   EXPECT_TRUE(t().entryHas(k(1)));
   EXPECT_FALSE(t().entryInHwTable(k(1)));
   EXPECT_TRUE(util().calls().empty());

   makeReady(*profile, 4);
   EXPECT_EQ(h->entryState(), S::inProgress);
   EXPECT_EQ(util().calls(), (Calls{"tracker 0 acquire", "write 0 {p4 v4 vrf100}"}));
}

INSTANTIATE_TEST_SUITE_P(States, FailingProfile,
                         ::testing::Values(S::failedNeededEntry, S::hwIndexExhausted),
                         [](const auto& info) { return S::entryStateName(info.param); });

TEST_F(CommitScenario, RecommitQueuesThePreviousValueUntilTheNewOneIsAcknowledged) {
   auto p7 = readyProfile(7);
   auto p8 = readyProfile(8);
   auto h = commitAcked(1, e(p7, 100));
   util().clearCalls();
   Fwk::RecordingObserver observed(*h);

   EXPECT_EQ(t().entryCommit(k(1), e(p8, 200)), h);
   auto& eh = own(1);
   ASSERT_EQ(eh.pendingEntrys(), 1U);
   EXPECT_EQ(eh.pendingEntryFront(), e(p7, 100));
   EXPECT_EQ(eh.pendingEntryFront().l3IifProfileIndex, 7);  // as it was resolved
   EXPECT_EQ(p7->refCount(), 2U);                           // the queued value holds its profile
   EXPECT_EQ(util().calls(), (Calls{"write 0 {p8 v4 vrf200}"}));  // same row: no tracker report
   EXPECT_EQ(h->entryState(), S::inProgress);
   EXPECT_EQ(h->resolvedEntryState(), S::inProgress);

   EXPECT_TRUE(util().ackNext(t()));
   EXPECT_EQ(eh.pendingEntrys(), 0U);
   EXPECT_EQ(p7->refCount(), 1U);
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(observed.changes(),
             (Calls{"entryState", "pendingEntry[1]", "entryState", "resolvedEntryState",
                    "entryState", "resolvedEntryState", "pendingEntry[1]", "entryState"}));
   EXPECT_EQ(tracker().users(0), 1U);
}

TEST_F(CommitScenario, SameValueAgainChangesNothing) {
   auto profile = readyProfile(7);
   auto h = commitAcked(1, e(profile, 100));
   util().clearCalls();
   Entry again = e(profile, 100);
   again.l3IifProfileIndex = 3;  // the dependent field is derived, not compared
   EXPECT_EQ(t().entryCommit(k(1), again), h);
   EXPECT_TRUE(util().calls().empty());
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(own(1).pendingEntrys(), 0U);
   EXPECT_EQ(t().entry(k(1)).l3IifProfileIndex, 7);
   EXPECT_TRUE(traced("entryCommit : Found already existing resolved entry at key : 1, entry : " +
                      toText(again)));
}

TEST_F(CommitScenario, SameValueWhileWaitingKeepsTheWaitingEntry) {
   auto profile = pendingProfile();
   auto h = t().entryCommit(k(1), e(profile, 100));
   const auto waiting = t().unresolvedEntry(k(1));
   EXPECT_EQ(t().entryCommit(k(1), e(profile, 100)), h);
   EXPECT_EQ(t().unresolvedEntry(k(1)), waiting);
   EXPECT_EQ(waiting->neededEntryHandleSms(), 1U);
   EXPECT_EQ(profile->watchers(), 1U);
   EXPECT_TRUE(traced("entryCommit : Found existing unresolved entry at key : 1, entry : " +
                      toText(e(profile, 100))));
}

// The row's profile field is 8 bits wide: the needed handle's index is checked, except for a
// handle in stateThree whose index is taken modulo 256.
struct Derivation {
   const char* name;
   S::EntryState state;
   Asic::Index index;
   int field;  // -1: refused
   friend void PrintTo(const Derivation& d, std::ostream* os) { *os << d.name; }
};

class DerivedProfileIndex : public CommitScenario,
                            public ::testing::WithParamInterface<Derivation> {};

TEST_P(DerivedProfileIndex, FitsTheRowOrIsRefused) {
   const auto [name, state, index, field] = GetParam();
   auto profile = ProfileHandle::make(state, index);
   if (field < 0) {
      EXPECT_THAT([&] { t().entryCommit(k(1), e(profile, 100)); },
                  ::testing::ThrowsMessage<std::range_error>(::testing::StrEq(
                      "Casting values: cast from unsigned int{ " + std::to_string(index) +
                      " } to unsigned char (max = 255) failed.")));
      EXPECT_EQ(t().resolvedEntrys(), 0U);
      EXPECT_EQ(t().unresolvedEntrys(), 1U);
      EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
      EXPECT_TRUE(util().calls().empty());
      return;
   }
   t().entryCommit(k(1), e(profile, 100));
   EXPECT_EQ(t().entry(k(1)).l3IifProfileIndex, field);
   EXPECT_EQ(chip->rows.at(0).profileIndex, field);
}

INSTANTIATE_TEST_SUITE_P(Indices, DerivedProfileIndex,
                         ::testing::Values(Derivation{"Zero", S::success, 0, 0},
                                           Derivation{"Widest", S::success, 255, 255},
                                           Derivation{"TooWide", S::success, 256, -1},
                                           Derivation{"StateThreeTakesLowBits", S::stateThree, 300,
                                                      44},
                                           Derivation{"ReconciledWithoutIndex", S::indexReconciled,
                                                      Asic::kInvalidIndex, -1}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(CommitScenario, TooWideProfileIndexLosesNothingAndThePreviousValueStaysInForce) {
   auto p7 = readyProfile(7);
   auto wide = readyProfile(256);
   auto h = commitAcked(1, e(p7, 100));
   util().clearCalls();
   EXPECT_THROW(t().entryCommit(k(1), e(wide, 200)), std::range_error);

   EXPECT_EQ(rowAt(0), "{p7 v4 vrf100}");
   EXPECT_TRUE(util().calls().empty());
   const auto* resolved = t().resolvedEntry(k(1));
   ASSERT_TRUE(resolved && resolved->has_value());
   EXPECT_EQ(**resolved, e(p7, 100));
   ASSERT_EQ(t().unresolvedEntrys(), 1U);
   EXPECT_EQ(t().unresolvedEntry(k(1))->entry.l3IifProfileIndex, 0);  // untouched
   EXPECT_EQ(t().entry(k(1)).vrf, 200U);                              // the newest value
   EXPECT_EQ(own(1).pendingEntrys(), 1U);
   EXPECT_EQ(h->resolvedEntryState(), S::success);
   EXPECT_TRUE(t().entryInHwTable(k(1)));

   // A fitting value replaces both.
   t().entryCommit(k(1), e(readyProfile(8), 300));
   EXPECT_EQ(util().calls(), (Calls{"write 0 {p8 v4 vrf300}"}));
   util().ackAll(t());
   EXPECT_EQ(own(1).pendingEntrys(), 0U);
   EXPECT_EQ(wide->refCount(), 1U);
   EXPECT_EQ(p7->refCount(), 1U);
}

TEST_F(CommitScenario, TooWideProfileIndexFromTheReadinessCallbackReachesThePlatform) {
   auto profile = pendingProfile();
   t().entryCommit(k(1), e(profile, 100));
   profile->hwIndexIs(256);
   const auto errorsBefore = S::resolutionErrors();
   profile->entryStateIs(S::success);
   EXPECT_EQ(S::resolutionErrors(), errorsBefore + 1);  // the platform took the range error
   ASSERT_EQ(t().unresolvedEntrys(), 1U);
   EXPECT_EQ(t().resolvedEntrys(), 0U);
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
   EXPECT_TRUE(util().calls().empty());
   EXPECT_EQ(own(1).entryState(), S::unresolved);
}

TEST_F(CommitScenario, AcknowledgementsOutOfOrderCompleteTheirOwnKeys) {
   auto profile = readyProfile(7);
   std::vector<HandlePtr> h;
   for (std::uint64_t key = 1; key <= 3; ++key) {
      h.push_back(t().entryCommit(k(key), e(profile, 100 + key)));
   }
   ASSERT_EQ(util().pendingAcks(), 3U);
   EXPECT_TRUE(util().ackNext(t(), 2));
   EXPECT_EQ(h[2]->entryState(), S::success);
   EXPECT_EQ(h[0]->entryState(), S::inProgress);
   EXPECT_EQ(h[1]->entryState(), S::inProgress);
   EXPECT_TRUE(util().ackNext(t(), 0));
   EXPECT_EQ(h[0]->entryState(), S::success);
   EXPECT_EQ(h[1]->entryState(), S::inProgress);
   EXPECT_TRUE(util().ackNext(t()));
   EXPECT_EQ(h[1]->entryState(), S::success);

   // Two removals whose acknowledgements arrive the other way round.
   t().entryRemove(k(1));
   t().entryRemove(k(2));
   h[0] = nullptr;
   h[1] = nullptr;
   util().clearCalls();
   ASSERT_EQ(util().pendingAcks(), 2U);
   EXPECT_TRUE(util().ackNext(t(), 1));  // key 2's empty row
   EXPECT_EQ(t().entryHandle(k(1))->entryType(), EH::inDeletion);
   EXPECT_TRUE(util().ackNext(t()));  // key 1's empty row
   EXPECT_EQ(util().callsMatching("delete"), (Calls{"delete 1", "delete 0"}));
   EXPECT_EQ(t().entrys(), 1U);
   EXPECT_EQ(tracker().users(0), 0U);
   EXPECT_EQ(tracker().users(1), 0U);
   EXPECT_EQ(tracker().underflows(), 0U);
   auto h4 = t().entryCommit(k(4), e(profile, 104));
   EXPECT_EQ(indexOf(4), 0U);  // the lowest freed row
}

// A table of two rows.
class ExhaustionScenario : public Scenario {
 protected:
   TableOptions tableOptions() const override {
      TableOptions o;
      o.size = 2;
      return o;
   }
};

TEST_F(ExhaustionScenario, ThirdKeyFindsNoIndexUntilOneIsFreedAndChanged) {
   auto profile = readyProfile(7);
   auto h1 = commitAcked(1, e(profile, 100));
   auto h2 = commitAcked(2, e(profile, 200));
   util().clearCalls();

   auto h3 = t().entryCommit(k(3), e(profile, 300));
   EXPECT_EQ(h3->resolvedEntryState(), S::hwIndexExhausted);
   EXPECT_EQ(h3->entryState(), S::hwIndexExhausted);
   EXPECT_TRUE(util().calls().empty());
   EXPECT_EQ(util().pendingAcks(), 0U);
   EXPECT_TRUE(t().entryHas(k(3)));
   EXPECT_FALSE(t().entryInHwTable(k(3)));
   EXPECT_EQ(indexOf(3), Asic::kInvalidIndex);
   EXPECT_TRUE(traced("traceHwIndex Acquired hwIndex : 4294967295"));
   EXPECT_TRUE(traced("handleEntryState entryhandle state: hwIndexExhausted at key : 3"));

   // Freeing a row does not retry by itself, nor does the same value again.
   t().entryRemove(k(1));
   h1 = nullptr;
   util().ackAll(t());
   util().clearCalls();
   EXPECT_EQ(t().entryCommit(k(3), e(profile, 300)), h3);
   EXPECT_TRUE(util().calls().empty());
   EXPECT_EQ(h3->resolvedEntryState(), S::hwIndexExhausted);

   // A new value is programmed; the old one never reached hardware, so the row is a first use.
   t().entryCommit(k(3), e(profile, 301));
   EXPECT_EQ(util().calls(), (Calls{"tracker 0 acquire", "write 0 {p7 v4 vrf301}"}));
   util().ackAll(t());
   EXPECT_EQ(h3->entryState(), S::success);
   EXPECT_EQ(tracker().users(0), 1U);
   EXPECT_EQ(tracker().underflows(), 0U);
}

TEST_F(ExhaustionScenario, RemovingAnExhaustedEntryTouchesNoHardware) {
   auto profile = readyProfile(7);
   auto h1 = commitAcked(1, e(profile, 100));
   auto h2 = commitAcked(2, e(profile, 200));
   auto h3 = t().entryCommit(k(3), e(profile, 300));
   const auto name = track(h3);
   util().clearCalls();
   t().entryRemove(k(3));
   h3 = nullptr;
   EXPECT_FALSE(alive(name));
   EXPECT_FALSE(t().entryHandleHas(k(3)));
   EXPECT_FALSE(t().resolvedEntryHas(k(3)));
   EXPECT_TRUE(util().calls().empty());
   EXPECT_FALSE(traced("cleanup begin delete dance, key : 3"));
   EXPECT_TRUE(traced("handleEntryNo entry in HwTable for this key. Skip delete"));
   EXPECT_EQ(profile->refCount(), 3U);  // the test and keys 1 and 2
}

}  // namespace
}  // namespace Test
