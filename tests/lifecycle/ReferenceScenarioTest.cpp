// Clients reference, commit, remove and let go of entries: a handle lives exactly as long as the
// table or a client needs it, and a row in hardware goes through the delete dance (rewritten
// empty, deleted once the empty row is acknowledged).
#include "support/Scenario.h"

namespace Test {
namespace {

using Calls = std::vector<std::string>;

class ReferenceScenario : public Scenario {
 protected:
   // Lets the last client go and completes the delete dance; the handle must be gone afterwards.
   void releaseAndAcknowledge(HandlePtr& h, std::uint64_t key) {
      const std::string name = track(h);
      h = nullptr;
      util().ackAll(t());
      EXPECT_FALSE(alive(name));
      EXPECT_FALSE(t().entryHandleHas(k(key)));
      EXPECT_EQ(indexOf(key), Asic::kInvalidIndex);
   }
};

TEST_F(ReferenceScenario, RefThenCommitKeepsTheEntryWhenTheClientsLetGo) {
   auto profile = pendingProfile();
   auto ref = t().entryRef(k(1), e(profile, 100));
   EXPECT_EQ(ref->entryType(), EH::referenceOnly);
   EXPECT_EQ(users(1), 1U);
   EXPECT_TRUE(traced("entryRef : Writing new entry at key: 1, entry:" + toText(e(profile, 100))));

   auto committed = t().entryCommit(k(1), e(profile, 100));
   EXPECT_EQ(committed, ref);
   EXPECT_EQ(ref->entryType(), EH::committed);
   EXPECT_EQ(users(1), 3U);  // the table and two clients
   const auto name = track(ref);
   ref = nullptr;
   committed = nullptr;
   EXPECT_TRUE(alive(name));
   EXPECT_EQ(users(1), 1U);
   EXPECT_EQ(t().unresolvedEntrys(), 1U);

   makeReady(*profile, 3);
   util().ackAll(t());
   EXPECT_EQ(own(1).entryState(), S::success);

   // No client is left: removal starts the delete dance at once.
   t().entryRemove(k(1));
   EXPECT_EQ(util().callsMatching("write").back(), "write 0 empty");
   util().ackAll(t());
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(t().entrys(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
}

TEST_F(ReferenceScenario, CommitThenRefStaysCommitted) {
   auto profile = readyProfile(7);
   auto committed = commitAcked(1, e(profile, 100));
   util().clearCalls();
   auto ref = t().entryRef(k(1), e(profile, 100));
   EXPECT_EQ(ref, committed);
   EXPECT_EQ(ref->entryType(), EH::committed);
   EXPECT_EQ(ref->entryState(), S::success);
   EXPECT_TRUE(util().calls().empty());
   EXPECT_TRUE(traced("entryRef : Found already existing resolved entry at key : 1, entry : " +
                      toText(e(profile, 100))));
   const auto name = track(ref);
   ref = nullptr;
   committed = nullptr;
   EXPECT_TRUE(alive(name));
   EXPECT_EQ(users(1), 1U);
   EXPECT_TRUE(util().calls().empty());
   EXPECT_EQ(chip->validRows(), 1U);
}

TEST_F(ReferenceScenario, ReferencedEntryLivesUntilTheLastClientLetsGo) {
   auto profile = readyProfile(7);
   auto first = t().entryRef(k(1), e(profile, 100));
   auto second = t().entryRef(k(1), e(profile, 100));
   util().ackAll(t());
   EXPECT_EQ(first, second);
   EXPECT_EQ(users(1), 2U);
   util().clearCalls();
   first = nullptr;
   EXPECT_TRUE(util().calls().empty());
   EXPECT_EQ(own(1).entryType(), EH::referenceOnly);
   releaseAndAcknowledge(second, 1);
   EXPECT_EQ(util().calls(),
             (Calls{"tracker 0 empty", "write 0 empty", "tracker 0 releaseEmpty", "delete 0"}));
}

TEST_F(ReferenceScenario, ReferenceToAWaitingEntryGoesAtOnceWithoutADance) {
   auto profile = pendingProfile();
   auto ref = t().entryRef(k(1), e(profile, 100));
   const auto name = track(ref);
   ref = nullptr;
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(t().entrys(), 0U);
   EXPECT_EQ(t().unresolvedEntrys(), 0U);
   EXPECT_EQ(profile->watchers(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_FALSE(traced("cleanup begin delete dance, key : 1"));
   EXPECT_TRUE(util().calls().empty());
}

TEST_F(ReferenceScenario, RemovalWhileAClientHoldsTheHandleWaitsForTheRelease) {
   auto profile = readyProfile(7);
   auto h = commitAcked(1, e(profile, 100));
   Fwk::RecordingObserver tableChanges(t());
   util().clearCalls();

   t().entryRemove(k(1));
   EXPECT_TRUE(traced("entryRemove: key:1, entryType:2, refCnt:3"));
   EXPECT_TRUE(traced("entryRemove : Removing entry at key : 1"));
   EXPECT_EQ(h->entryType(), EH::referenceOnly);
   EXPECT_EQ(users(1), 1U);
   EXPECT_TRUE(util().calls().empty());
   EXPECT_TRUE(t().entryHas(k(1)));
   EXPECT_TRUE(tableChanges.changes().empty());

   // The last client goes: the row is rewritten empty and the old value waits on the handle.
   const auto name = track(h);
   h = nullptr;
   EXPECT_EQ(util().calls(), (Calls{"tracker 0 empty", "write 0 empty"}));
   auto& eh = own(1);
   EXPECT_EQ(eh.entryType(), EH::inDeletion);
   EXPECT_EQ(eh.entryState(), S::inProgress);
   EXPECT_EQ(eh.resolvedEntryState(), S::inProgress);
   EXPECT_EQ(eh.pendingEntrys(), 1U);
   EXPECT_EQ(profile->refCount(), 2U);  // held by the queued value
   EXPECT_EQ(tableChanges.changes(), (Calls{"resolvedEntry[1]"}));

   EXPECT_TRUE(util().ackNext(t()));
   EXPECT_EQ(util().calls(),
             (Calls{"tracker 0 empty", "write 0 empty", "tracker 0 releaseEmpty", "delete 0"}));
   EXPECT_EQ(tableChanges.changes(),
             (Calls{"resolvedEntry[1]", "resolvedEntry[1]", "entryHandle[1]"}));
   EXPECT_TRUE(traced("hwTableEntryDel: Deleting entry at key:1"));
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(t().entrys(), 0U);
   EXPECT_EQ(t().resolvedEntrys(), 0U);
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(chip->validRows(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_EQ(tracker().users(0), 0U);
   EXPECT_EQ(tracker().underflows(), 0U);
   EXPECT_EQ(t().statistics().count(Asic::SwTable::hwEntryDeleted), 0U);  // not a replay
   const std::string cleanupLine = "cleanup : entryhandle cleanup, eh : ";
   auto lines = steps();
   std::erase_if(lines, [&](const std::string& s) {
      return !s.starts_with(cleanupLine) && s != "cleanup begin delete dance, key : 1" &&
             s != "cleanup delete dance complete, key : 1";
   });
   ASSERT_EQ(lines.size(), 4U);
   EXPECT_TRUE(lines[0].starts_with(cleanupLine));
   EXPECT_EQ(lines[1], "cleanup begin delete dance, key : 1");
   EXPECT_TRUE(lines[2].starts_with(cleanupLine));
   EXPECT_EQ(lines[3], "cleanup delete dance complete, key : 1");
}

TEST_F(ReferenceScenario, RemoveOfAKeyWithoutCommittedEntryChangesNothing) {
   t().entryRemove(k(5));
   EXPECT_TRUE(traced("entryRemove: key:5, entryType:-1, refCnt:0"));
   EXPECT_TRUE(traced("entryRemove : Found no committed entry at key : 5"));

   auto profile = readyProfile(7);
   auto ref = t().entryRef(k(6), e(profile, 100));
   t().entryRemove(k(6));
   EXPECT_TRUE(traced("entryRemove : Found no committed entry at key : 6"));
   EXPECT_EQ(ref->entryType(), EH::referenceOnly);
   EXPECT_EQ(users(6), 1U);
   EXPECT_EQ(t().entrys(), 1U);
}

// A client takes the key again while its empty row waits for the acknowledgement, with a value
// that must wait for its profile entry: the acknowledgement deletes the old row but keeps the
// handle, and the new value is later programmed as a first use of a row.
TEST_F(ReferenceScenario, CommitDuringTheDeleteDanceKeepsTheHandle) {
   auto h = commitAcked(1, e(readyProfile(7), 100));
   t().entryRemove(k(1));
   const auto name = track(h);
   h = nullptr;
   auto profile = pendingProfile();
   h = t().entryCommit(k(1), e(profile, 200));
   EXPECT_EQ(h->entryType(), EH::committed);
   EXPECT_EQ(h->entryState(), S::unresolved);
   EXPECT_TRUE(t().entryHas(k(1)));
   util().clearCalls();

   EXPECT_TRUE(util().ackNext(t()));
   EXPECT_EQ(util().calls(), (Calls{"tracker 0 releaseEmpty", "delete 0"}));
   EXPECT_TRUE(alive(name));
   EXPECT_TRUE(t().entryHandleHas(k(1)));
   EXPECT_EQ(own(1).pendingEntrys(), 0U);
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(h->entryState(), S::unresolved);

   makeReady(*profile, 4);
   EXPECT_EQ(util().callsMatching("write"), (Calls{"write 0 {p4 v4 vrf200}"}));
   EXPECT_EQ(util().callsMatching("tracker").back(), "tracker 0 acquire");
   util().ackAll(t());
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(tracker().users(0), 1U);
   t().entryRemove(k(1));
   releaseAndAcknowledge(h, 1);
}

// A reference with a new value revives a handle in deletion; the row is refilled in place.
TEST_F(ReferenceScenario, RefDuringTheDeleteDanceRevivesTheHandle) {
   auto profile = readyProfile(7);
   auto h = commitAcked(1, e(profile, 100));
   t().entryRemove(k(1));
   h = nullptr;
   ASSERT_EQ(own(1).entryType(), EH::inDeletion);
   util().clearCalls();

   auto ref = t().entryRef(k(1), e(profile, 300));
   EXPECT_EQ(ref->entryType(), EH::referenceOnly);
   EXPECT_EQ(users(1), 1U);
   EXPECT_EQ(util().calls(), (Calls{"tracker 0 refill", "write 0 {p7 v4 vrf300}"}));
   util().ackAll(t());
   EXPECT_TRUE(t().entryHandleHas(k(1)));
   EXPECT_EQ(ref->entryState(), S::success);
   EXPECT_EQ(own(1).pendingEntrys(), 0U);
   EXPECT_EQ(rowAt(0), "{p7 v4 vrf300}");

   releaseAndAcknowledge(ref, 1);
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_EQ(tracker().users(0), 0U);
   EXPECT_EQ(tracker().underflows(), 0U);
}

// A reference with a value that must wait is taken while the empty row waits for its
// acknowledgement, and dropped before or after that acknowledgement: either way nothing is left.
class RefDroppedDuringTheDeleteDance : public ReferenceScenario,
                                       public ::testing::WithParamInterface<bool> {};

TEST_P(RefDroppedDuringTheDeleteDance, LeavesNoRowNoIndexNoHandle) {
   const bool acknowledgeFirst = GetParam();
   auto ready = readyProfile(7);
   auto h = commitAcked(1, e(ready, 100));
   t().entryRemove(k(1));
   h = nullptr;
   auto waiting = pendingProfile();
   auto ref = t().entryRef(k(1), e(waiting, 300));
   EXPECT_EQ(ref->entryType(), EH::referenceOnly);
   EXPECT_EQ(waiting->watchers(), 1U);
   const auto name = track(ref);
   util().clearCalls();
   if (acknowledgeFirst) {
      EXPECT_TRUE(util().ackNext(t()));
      EXPECT_TRUE(alive(name));
      EXPECT_EQ(ref->entryState(), S::unresolved);
      ref = nullptr;
   } else {
      ref = nullptr;
      EXPECT_EQ(own(1).entryType(), EH::inDeletion);
      EXPECT_EQ(own(1).entryState(), S::inProgress);
      EXPECT_TRUE(util().ackNext(t()));
   }
   EXPECT_EQ(util().calls(), (Calls{"tracker 0 releaseEmpty", "delete 0"}));
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(t().entrys(), 0U);
   EXPECT_EQ(t().unresolvedEntrys(), 0U);
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(waiting->watchers(), 0U);
   EXPECT_EQ(waiting->refCount(), 1U);
   EXPECT_EQ(ready->refCount(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Orders, RefDroppedDuringTheDeleteDance, ::testing::Bool(),
                         [](const auto& info) {
                            return info.param ? "AcknowledgedFirst" : "ReleasedFirst";
                         });

}  // namespace
}  // namespace Test
