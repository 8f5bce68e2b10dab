// A client commits entries, over every table kind: the needed profile entry is ready or becomes
// ready later, fails on the way, or has an index too wide for the row's field; values are replaced
// and repeated; acknowledgements come back in any order; a small table runs out of rows.
#include <gmock/gmock.h>

#include "support/Scenario.h"

namespace Test {
namespace {

template <class Kind>
class CommitScenario : public Scenario<Kind> {};
TYPED_TEST_SUITE(CommitScenario, TableKinds, KindNames);

TYPED_TEST(CommitScenario, ProfileNotReadyYetWaitsAndResolvesWhenItBecomesReady) {
   auto profile = pendingProfile();
   auto h = this->t().entryCommit(this->k(1), this->e(profile, 100));
   EXPECT_EQ(h->entryType(), EH::committed);
   EXPECT_EQ(h->entryState(), S::unresolved);
   ASSERT_EQ(this->t().unresolvedEntrys(), 1U);
   EXPECT_EQ(this->t().unresolvedEntry(this->k(1))->neededEntryHandleSms(), 1U);
   EXPECT_EQ(this->t().resolvedEntrys(), 0U);
   EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);

   profile->hwIndexIs(9);  // an index alone does not confirm the profile entry
   EXPECT_EQ(h->entryState(), S::unresolved);
   EXPECT_TRUE(this->util().calls().empty());

   profile->entryStateIs(S::success);
   EXPECT_EQ(this->t().unresolvedEntrys(), 0U);
   EXPECT_EQ(profile->watchers(), 0U);
   EXPECT_EQ(h->entryState(), S::inProgress);
   EXPECT_EQ(h->resolvedEntryState(), S::inProgress);
   EXPECT_EQ(this->util().calls(), (Calls{"tracker 0 acquire", "write 0 {p9 vrf100}"}));
   const Calls road{"entryCommit : Writing new entry at key: 1",
                    "initUnresolvedEntry: key:1",
                    "doResolve: key:1",
                    "handleEntry key: 1, configReplayComplete: true",
                    "programHwEntry key: 1, entryState:inProgress",
                    "traceHwIndex Acquired hwIndex : 0",
                    "hwTableEntryIs : key: 1"};
   EXPECT_EQ(this->tracedAmong(road), road);

   EXPECT_TRUE(this->util().ackNext(this->t()));
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(h->resolvedEntryState(), S::success);
   EXPECT_TRUE(this->traced("handleEntryState entryhandle state: COMPLETE  success at key : 1"));
   EXPECT_EQ(this->tracker().users(0), 1U);
}

TYPED_TEST(CommitScenario, OneProfileBecomingReadyResolvesEveryKeyWaitingForIt) {
   auto profile = pendingProfile();
   auto h1 = this->t().entryCommit(this->k(1), this->e(profile, 100));
   auto h2 = this->t().entryCommit(this->k(2), this->e(profile, 200));
   EXPECT_EQ(profile->watchers(), 2U);
   makeReady(*profile, 5);
   EXPECT_EQ(this->t().unresolvedEntrys(), 0U);
   EXPECT_EQ(this->rowAt(this->indexOf(1)), "{p5 vrf100}");
   EXPECT_EQ(this->rowAt(this->indexOf(2)), "{p5 vrf200}");
   EXPECT_EQ(this->util().ackAll(this->t()), 2U);
   EXPECT_EQ(h1->entryState(), S::success);
   EXPECT_EQ(h2->entryState(), S::success);
}

TYPED_TEST(CommitScenario, UtilPublishingIndicesMakesAnIndexedProfileReady) {
   this->util().publishHwIndexInHandleIs(true);
   auto indexed = ProfileHandle::make(S::unresolved, 10);
   auto h1 = this->t().entryCommit(this->k(1), this->e(indexed, 100));
   EXPECT_EQ(this->util().callsMatching("write"), (Calls{"write 0 {p10 vrf100}"}));
   EXPECT_EQ(h1->hwIndex(), 0U);

   auto later = pendingProfile();
   auto h2 = this->t().entryCommit(this->k(2), this->e(later, 200));
   EXPECT_EQ(h2->entryState(), S::unresolved);
   later->hwIndexIs(11);
   EXPECT_EQ(h2->entryState(), S::inProgress);
   EXPECT_EQ(h2->hwIndex(), 1U);
   EXPECT_EQ(this->util().callsMatching("write").back(), "write 1 {p11 vrf200}");
}

TYPED_TEST(CommitScenario, NullProfileHandleKeepsTheClientsIndexAndADefaultValueIsNotQueued) {
   auto h = this->commitAcked(1, {});
   EXPECT_EQ(this->util().callsMatching("write"), (Calls{"write 0 {p0 vrf0}"}));
   this->t().entryCommit(this->k(1), TypeParam::value(nullptr, 9, 42));
   EXPECT_EQ(this->own(1).pendingEntrys(), 0U);  // the default value in force is not kept
   EXPECT_EQ(this->util().callsMatching("write").back(), "write 0 {p42 vrf9}");
   this->util().ackAll(this->t());
   EXPECT_EQ(h->entryState(), S::success);
}

TYPED_TEST(CommitScenario, NewerValueWhileWaitingReplacesTheWaitingOne) {
   auto first = pendingProfile();
   auto second = pendingProfile();
   auto h = this->t().entryCommit(this->k(1), this->e(first, 100));
   this->t().entryCommit(this->k(1), this->e(second, 200));
   EXPECT_TRUE(this->traced("entryCommit : Deleting existing unresolved entry at key : 1"));
   EXPECT_EQ(first->watchers(), 0U);
   EXPECT_EQ(first->refCount(), 1U);
   EXPECT_EQ(second->watchers(), 1U);
   makeReady(*first, 1);  // the replaced value no longer waits for it
   EXPECT_TRUE(this->util().calls().empty());
   EXPECT_EQ(h->entryState(), S::unresolved);
   makeReady(*second, 2);
   EXPECT_EQ(this->util().callsMatching("write"), (Calls{"write 0 {p2 vrf200}"}));
}

TYPED_TEST(CommitScenario, ReturningToTheValueInForceDropsTheWaitingOne) {
   auto ready = readyProfile(7);
   auto waiting = pendingProfile();
   auto h = this->commitAcked(1, this->e(ready, 100));
   this->util().clearCalls();
   this->t().entryCommit(this->k(1), this->e(waiting, 200));
   EXPECT_EQ(h->entryState(), S::unresolved);
   this->t().entryCommit(this->k(1), this->e(ready, 100));
   EXPECT_EQ(this->t().unresolvedEntrys(), 0U);
   EXPECT_EQ(waiting->watchers(), 0U);
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(this->own(1).pendingEntrys(), 0U);
   EXPECT_TRUE(this->util().calls().empty());
}

// A failing profile entry marks the handle; the value keeps waiting and resolves once the profile
// entry recovers.
TYPED_TEST(CommitScenario, FailingProfileMarksTheHandleAndTheEntryKeepsWaiting) {
   for (const S::EntryState failure : {S::failedNeededEntry, S::hwIndexExhausted}) {
      SCOPED_TRACE(S::entryStateName(failure));
      this->freshTable();
      auto profile = pendingProfile();
      auto h = this->t().entryCommit(this->k(1), this->e(profile, 100));
      profile->entryStateIs(failure);
      EXPECT_EQ(h->entryState(), S::failedNeededEntry);
      EXPECT_TRUE(this->traced("handleEntryState entryhandle state: failedNeededEntry at key : 1"));
      ASSERT_EQ(this->t().unresolvedEntrys(), 1U);
      EXPECT_EQ(this->t().unresolvedEntry(this->k(1))->neededEntryHandleSms(), 1U);
      EXPECT_TRUE(this->t().entryHas(this->k(1)));
      EXPECT_FALSE(this->t().entryInHwTable(this->k(1)));
      EXPECT_TRUE(this->util().calls().empty());

      makeReady(*profile, 4);
      EXPECT_EQ(h->entryState(), S::inProgress);
      EXPECT_EQ(this->util().calls(), (Calls{"tracker 0 acquire", "write 0 {p4 vrf100}"}));
      h = nullptr;
   }
}

TYPED_TEST(CommitScenario, RecommitQueuesThePreviousValueUntilTheNewOneIsAcknowledged) {
   auto p7 = readyProfile(7);
   auto p8 = readyProfile(8);
   auto h = this->commitAcked(1, this->e(p7, 100));
   this->util().clearCalls();
   Fwk::RecordingObserver observed(*h);

   EXPECT_EQ(this->t().entryCommit(this->k(1), this->e(p8, 200)), h);
   auto& eh = this->own(1);
   ASSERT_EQ(eh.pendingEntrys(), 1U);
   EXPECT_EQ(eh.pendingEntryFront(), this->e(p7, 100));
   EXPECT_EQ(TypeParam::field(eh.pendingEntryFront()), 7U);  // as it was resolved
   EXPECT_EQ(p7->refCount(), 2U);                            // the queued value holds its profile
   EXPECT_EQ(this->util().calls(), (Calls{"write 0 {p8 vrf200}"}));  // same row: no tracker report
   EXPECT_EQ(h->entryState(), S::inProgress);
   EXPECT_EQ(h->resolvedEntryState(), S::inProgress);

   EXPECT_TRUE(this->util().ackNext(this->t()));
   EXPECT_EQ(eh.pendingEntrys(), 0U);
   EXPECT_EQ(p7->refCount(), 1U);
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(observed.changes(),
             (Calls{"entryState", "pendingEntry[1]", "entryState", "resolvedEntryState",
                    "entryState", "resolvedEntryState", "pendingEntry[1]", "entryState"}));
   EXPECT_EQ(this->tracker().users(0), 1U);
}

TYPED_TEST(CommitScenario, SameValueAgainChangesNothing) {
   auto profile = readyProfile(7);
   auto h = this->commitAcked(1, this->e(profile, 100));
   this->util().clearCalls();
   const auto again = TypeParam::value(profile, 100, 3);  // the dependent field is not compared
   EXPECT_EQ(this->t().entryCommit(this->k(1), again), h);
   EXPECT_TRUE(this->util().calls().empty());
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(this->own(1).pendingEntrys(), 0U);
   EXPECT_EQ(TypeParam::field(this->t().entry(this->k(1))), 7U);
   EXPECT_TRUE(
       this->traced("entryCommit : Found already existing resolved entry at key : 1, entry : " +
                    entryText(again)));
}

TYPED_TEST(CommitScenario, SameValueWhileWaitingKeepsTheWaitingEntry) {
   auto profile = pendingProfile();
   auto h = this->t().entryCommit(this->k(1), this->e(profile, 100));
   const auto waiting = this->t().unresolvedEntry(this->k(1));
   EXPECT_EQ(this->t().entryCommit(this->k(1), this->e(profile, 100)), h);
   EXPECT_EQ(this->t().unresolvedEntry(this->k(1)), waiting);
   EXPECT_EQ(waiting->neededEntryHandleSms(), 1U);
   EXPECT_EQ(profile->watchers(), 1U);
   EXPECT_TRUE(this->traced("entryCommit : Found existing unresolved entry at key : 1, entry : " +
                            entryText(this->e(profile, 100))));
}

// The row's dependent field has the width of its kind: the needed handle's index is checked,
// except for a handle in stateThree whose index gives its low bits.
TYPED_TEST(CommitScenario, DerivedProfileIndexFitsTheFieldOrIsRefused) {
   constexpr Asic::Index max = TypeParam::kFieldMax;
   struct Derivation {
      S::EntryState state;
      Asic::Index index;
      long field;  // -1: refused
   };
   for (const auto& [state, index, field] :
        {Derivation{S::success, 0, 0}, Derivation{S::success, max, max},
         Derivation{S::success, max + 1, -1}, Derivation{S::stateThree, max + 1 + 44, 44},
         Derivation{S::indexReconciled, Asic::kInvalidIndex, -1}}) {
      SCOPED_TRACE(std::string(S::entryStateName(state)) + " " + std::to_string(index));
      this->freshTable();
      auto profile = ProfileHandle::make(state, index);
      if (field < 0) {
         EXPECT_THAT([&] { this->t().entryCommit(this->k(1), this->e(profile, 100)); },
                     ::testing::ThrowsMessage<std::range_error>(::testing::StrEq(
                         "Casting values: cast from unsigned int{ " + std::to_string(index) +
                         " } to " + std::string(TypeParam::kFieldType) +
                         " (max = " + std::to_string(max) + ") failed.")));
         EXPECT_EQ(this->t().resolvedEntrys(), 0U);
         EXPECT_EQ(this->t().unresolvedEntrys(), 1U);
         EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);
         EXPECT_TRUE(this->util().calls().empty());
         continue;
      }
      this->t().entryCommit(this->k(1), this->e(profile, 100));
      EXPECT_EQ(TypeParam::field(this->t().entry(this->k(1))), field);
      EXPECT_EQ(this->rowAt(0), "{p" + std::to_string(field) + " vrf100}");
   }
}

TYPED_TEST(CommitScenario, TooWideProfileIndexLosesNothingAndThePreviousValueStaysInForce) {
   auto p7 = readyProfile(7);
   auto wide = readyProfile(TypeParam::kFieldMax + 1);
   auto h = this->commitAcked(1, this->e(p7, 100));
   this->util().clearCalls();
   EXPECT_THROW(this->t().entryCommit(this->k(1), this->e(wide, 200)), std::range_error);

   EXPECT_EQ(this->rowAt(0), "{p7 vrf100}");
   EXPECT_TRUE(this->util().calls().empty());
   const auto* resolved = this->t().resolvedEntry(this->k(1));
   ASSERT_TRUE(resolved && resolved->has_value());
   EXPECT_EQ(**resolved, this->e(p7, 100));
   ASSERT_EQ(this->t().unresolvedEntrys(), 1U);
   EXPECT_EQ(TypeParam::field(this->t().unresolvedEntry(this->k(1))->entry), 0U);  // untouched
   EXPECT_EQ(TypeParam::vrf(this->t().entry(this->k(1))), 200U);  // the newest value
   EXPECT_EQ(this->own(1).pendingEntrys(), 1U);
   EXPECT_EQ(h->resolvedEntryState(), S::success);
   EXPECT_TRUE(this->t().entryInHwTable(this->k(1)));

   // A fitting value replaces both.
   this->t().entryCommit(this->k(1), this->e(readyProfile(8), 300));
   EXPECT_EQ(this->util().calls(), (Calls{"write 0 {p8 vrf300}"}));
   this->util().ackAll(this->t());
   EXPECT_EQ(this->own(1).pendingEntrys(), 0U);
   EXPECT_EQ(wide->refCount(), 1U);
   EXPECT_EQ(p7->refCount(), 1U);
}

TYPED_TEST(CommitScenario, TooWideProfileIndexFromTheReadinessCallbackReachesThePlatform) {
   auto profile = pendingProfile();
   this->t().entryCommit(this->k(1), this->e(profile, 100));
   profile->hwIndexIs(TypeParam::kFieldMax + 1);
   const auto errorsBefore = S::resolutionErrors();
   profile->entryStateIs(S::success);
   EXPECT_EQ(S::resolutionErrors(), errorsBefore + 1);  // the platform took the range error
   ASSERT_EQ(this->t().unresolvedEntrys(), 1U);
   EXPECT_EQ(this->t().resolvedEntrys(), 0U);
   EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);
   EXPECT_TRUE(this->util().calls().empty());
   EXPECT_EQ(this->own(1).entryState(), S::unresolved);
}

TYPED_TEST(CommitScenario, AcknowledgementsOutOfOrderCompleteTheirOwnKeys) {
   auto profile = readyProfile(7);
   std::vector<HandlePtr> h;
   for (std::uint64_t key = 1; key <= 3; ++key) {
      h.push_back(this->t().entryCommit(this->k(key), this->e(profile, 100 + key)));
   }
   ASSERT_EQ(this->util().pendingAcks(), 3U);
   EXPECT_TRUE(this->util().ackNext(this->t(), 2));
   EXPECT_EQ(h[2]->entryState(), S::success);
   EXPECT_EQ(h[0]->entryState(), S::inProgress);
   EXPECT_EQ(h[1]->entryState(), S::inProgress);
   EXPECT_TRUE(this->util().ackNext(this->t(), 0));
   EXPECT_EQ(h[0]->entryState(), S::success);
   EXPECT_EQ(h[1]->entryState(), S::inProgress);
   EXPECT_TRUE(this->util().ackNext(this->t()));
   EXPECT_EQ(h[1]->entryState(), S::success);

   // Two removals whose acknowledgements arrive the other way round.
   this->t().entryRemove(this->k(1));
   this->t().entryRemove(this->k(2));
   h[0] = nullptr;
   h[1] = nullptr;
   this->util().clearCalls();
   ASSERT_EQ(this->util().pendingAcks(), 2U);
   EXPECT_TRUE(this->util().ackNext(this->t(), 1));  // key 2's empty row
   EXPECT_EQ(this->own(1).entryType(), EH::inDeletion);
   EXPECT_TRUE(this->util().ackNext(this->t()));  // key 1's empty row
   EXPECT_EQ(this->util().callsMatching("delete"), (Calls{"delete 1", "delete 0"}));
   EXPECT_EQ(this->t().entrys(), 1U);
   EXPECT_EQ(this->tracker().users(0), 0U);
   EXPECT_EQ(this->tracker().users(1), 0U);
   EXPECT_EQ(this->tracker().underflows(), 0U);
   auto h4 = this->t().entryCommit(this->k(4), this->e(profile, 104));
   EXPECT_EQ(this->indexOf(4), 0U);  // the lowest freed row
}

// A table of two rows.
template <class Kind>
class ExhaustionScenario : public Scenario<Kind> {
 protected:
   TableOptions tableOptions() const override { return TableOptions{.size = 2}; }
};
TYPED_TEST_SUITE(ExhaustionScenario, TableKinds, KindNames);

TYPED_TEST(ExhaustionScenario, ThirdKeyFindsNoIndexUntilOneIsFreedAndChanged) {
   auto profile = readyProfile(7);
   auto h1 = this->commitAcked(1, this->e(profile, 100));
   auto h2 = this->commitAcked(2, this->e(profile, 200));
   this->util().clearCalls();

   auto h3 = this->t().entryCommit(this->k(3), this->e(profile, 300));
   EXPECT_EQ(h3->resolvedEntryState(), S::hwIndexExhausted);
   EXPECT_EQ(h3->entryState(), S::hwIndexExhausted);
   EXPECT_TRUE(this->util().calls().empty());
   EXPECT_EQ(this->util().pendingAcks(), 0U);
   EXPECT_TRUE(this->t().entryHas(this->k(3)));
   EXPECT_FALSE(this->t().entryInHwTable(this->k(3)));
   EXPECT_EQ(this->indexOf(3), Asic::kInvalidIndex);
   EXPECT_TRUE(this->traced("traceHwIndex Acquired hwIndex : 4294967295"));
   EXPECT_TRUE(this->traced("handleEntryState entryhandle state: hwIndexExhausted at key : 3"));

   // Freeing a row does not retry by itself, nor does the same value again.
   this->t().entryRemove(this->k(1));
   h1 = nullptr;
   this->util().ackAll(this->t());
   this->util().clearCalls();
   EXPECT_EQ(this->t().entryCommit(this->k(3), this->e(profile, 300)), h3);
   EXPECT_TRUE(this->util().calls().empty());
   EXPECT_EQ(h3->resolvedEntryState(), S::hwIndexExhausted);

   // A new value is programmed; the old one never reached hardware, so the row is a first use.
   this->t().entryCommit(this->k(3), this->e(profile, 301));
   EXPECT_EQ(this->util().calls(), (Calls{"tracker 0 acquire", "write 0 {p7 vrf301}"}));
   this->util().ackAll(this->t());
   EXPECT_EQ(h3->entryState(), S::success);
   EXPECT_EQ(this->tracker().users(0), 1U);
   EXPECT_EQ(this->tracker().underflows(), 0U);
}

TYPED_TEST(ExhaustionScenario, RemovingAnExhaustedEntryTouchesNoHardware) {
   auto profile = readyProfile(7);
   auto h1 = this->commitAcked(1, this->e(profile, 100));
   auto h2 = this->commitAcked(2, this->e(profile, 200));
   auto h3 = this->t().entryCommit(this->k(3), this->e(profile, 300));
   const auto name = track(h3);
   this->util().clearCalls();
   this->t().entryRemove(this->k(3));
   h3 = nullptr;
   EXPECT_FALSE(alive(name));
   EXPECT_FALSE(this->t().entryHandleHas(this->k(3)));
   EXPECT_FALSE(this->t().resolvedEntryHas(this->k(3)));
   EXPECT_TRUE(this->util().calls().empty());
   EXPECT_FALSE(this->traced("cleanup begin delete dance, key : 3"));
   EXPECT_TRUE(this->traced("handleEntryNo entry in HwTable for this key. Skip delete"));
   EXPECT_EQ(profile->refCount(), 3U);  // the test and keys 1 and 2
}

}  // namespace
}  // namespace Test
