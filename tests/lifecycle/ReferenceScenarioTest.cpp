// Clients reference, commit, remove and let go of entries, over every table kind: a handle lives
// exactly as long as the table or a client needs it, and a row in hardware goes through the
// delete dance (rewritten empty, deleted once the empty row is acknowledged).
#include "support/Scenario.h"

namespace Test {
namespace {

template <class Kind>
class ReferenceScenario : public Scenario<Kind> {
 protected:
   // Lets the last client go and completes the delete dance; the handle must be gone afterwards.
   void releaseAndAcknowledge(HandlePtr& h, std::uint64_t key) {
      const std::string name = track(h);
      h = nullptr;
      this->util().ackAll(this->t());
      EXPECT_FALSE(alive(name));
      EXPECT_FALSE(this->t().entryHandleHas(this->k(key)));
      EXPECT_EQ(this->indexOf(key), Asic::kInvalidIndex);
   }
};
TYPED_TEST_SUITE(ReferenceScenario, TableKinds, KindNames);

TYPED_TEST(ReferenceScenario, RefThenCommitKeepsTheEntryWhenTheClientsLetGo) {
   auto profile = pendingProfile();
   auto ref = this->t().entryRef(this->k(1), this->e(profile, 100));
   EXPECT_EQ(ref->entryType(), EH::referenceOnly);
   EXPECT_EQ(this->users(1), 1U);
   EXPECT_TRUE(this->traced("entryRef : Writing new entry at key: 1, entry:" +
                            entryText(this->e(profile, 100))));

   auto committed = this->t().entryCommit(this->k(1), this->e(profile, 100));
   EXPECT_EQ(committed, ref);
   EXPECT_EQ(ref->entryType(), EH::committed);
   EXPECT_EQ(this->users(1), 3U);  // the table and two clients
   const auto name = track(ref);
   ref = nullptr;
   committed = nullptr;
   EXPECT_TRUE(alive(name));
   EXPECT_EQ(this->users(1), 1U);
   EXPECT_EQ(this->t().unresolvedEntrys(), 1U);

   makeReady(*profile, 3);
   this->util().ackAll(this->t());
   EXPECT_EQ(this->own(1).entryState(), S::success);

   // No client is left: removal starts the delete dance at once.
   this->t().entryRemove(this->k(1));
   EXPECT_EQ(this->util().callsMatching("write").back(), "write 0 empty");
   this->util().ackAll(this->t());
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(this->t().entrys(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
}

TYPED_TEST(ReferenceScenario, CommitThenRefStaysCommitted) {
   auto profile = readyProfile(7);
   auto committed = this->commitAcked(1, this->e(profile, 100));
   this->util().clearCalls();
   auto ref = this->t().entryRef(this->k(1), this->e(profile, 100));
   EXPECT_EQ(ref, committed);
   EXPECT_EQ(ref->entryType(), EH::committed);
   EXPECT_EQ(ref->entryState(), S::success);
   EXPECT_TRUE(
       this->traced("entryRef : Found already existing resolved entry at key : 1, entry : " +
                    entryText(this->e(profile, 100))));
   const auto name = track(ref);
   ref = nullptr;
   committed = nullptr;
   EXPECT_TRUE(alive(name));
   EXPECT_EQ(this->users(1), 1U);
   EXPECT_TRUE(this->util().calls().empty());
   EXPECT_EQ(this->chip->validRows(), 1U);
}

TYPED_TEST(ReferenceScenario, ReferencedEntryLivesUntilTheLastClientLetsGo) {
   auto profile = readyProfile(7);
   auto first = this->t().entryRef(this->k(1), this->e(profile, 100));
   auto second = this->t().entryRef(this->k(1), this->e(profile, 100));
   this->util().ackAll(this->t());
   EXPECT_EQ(first, second);
   EXPECT_EQ(this->users(1), 2U);
   this->util().clearCalls();
   first = nullptr;
   EXPECT_TRUE(this->util().calls().empty());
   EXPECT_EQ(this->own(1).entryType(), EH::referenceOnly);
   this->releaseAndAcknowledge(second, 1);
   EXPECT_EQ(this->util().calls(),
             (Calls{"tracker 0 empty", "write 0 empty", "tracker 0 releaseEmpty", "delete 0"}));
}

TYPED_TEST(ReferenceScenario, ReferenceToAWaitingEntryGoesAtOnceWithoutADance) {
   auto profile = pendingProfile();
   auto ref = this->t().entryRef(this->k(1), this->e(profile, 100));
   const auto name = track(ref);
   ref = nullptr;
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(this->t().entrys(), 0U);
   EXPECT_EQ(this->t().unresolvedEntrys(), 0U);
   EXPECT_EQ(profile->watchers(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_FALSE(this->traced("cleanup begin delete dance, key : 1"));
   EXPECT_TRUE(this->util().calls().empty());
}

TYPED_TEST(ReferenceScenario, RemovalWhileAClientHoldsTheHandleWaitsForTheRelease) {
   auto profile = readyProfile(7);
   auto h = this->commitAcked(1, this->e(profile, 100));
   Fwk::RecordingObserver tableChanges(this->t());
   this->util().clearCalls();

   this->t().entryRemove(this->k(1));
   EXPECT_TRUE(this->traced("entryRemove: key:1, entryType:2, refCnt:3"));
   EXPECT_TRUE(this->traced("entryRemove : Removing entry at key : 1"));
   EXPECT_EQ(h->entryType(), EH::referenceOnly);
   EXPECT_EQ(this->users(1), 1U);
   EXPECT_TRUE(this->util().calls().empty());
   EXPECT_TRUE(this->t().entryHas(this->k(1)));
   EXPECT_TRUE(tableChanges.changes().empty());

   // The last client goes: the row is rewritten empty and the old value waits on the handle.
   const auto name = track(h);
   h = nullptr;
   EXPECT_EQ(this->util().calls(), (Calls{"tracker 0 empty", "write 0 empty"}));
   auto& eh = this->own(1);
   EXPECT_EQ(eh.entryType(), EH::inDeletion);
   EXPECT_EQ(eh.entryState(), S::inProgress);
   EXPECT_EQ(eh.resolvedEntryState(), S::inProgress);
   EXPECT_EQ(eh.pendingEntrys(), 1U);
   EXPECT_EQ(profile->refCount(), 2U);  // held by the queued value
   EXPECT_EQ(this->plain(tableChanges.changes()), (Calls{"resolvedEntry[1]"}));

   EXPECT_TRUE(this->util().ackNext(this->t()));
   EXPECT_EQ(this->util().calls(),
             (Calls{"tracker 0 empty", "write 0 empty", "tracker 0 releaseEmpty", "delete 0"}));
   EXPECT_EQ(this->plain(tableChanges.changes()),
             (Calls{"resolvedEntry[1]", "resolvedEntry[1]", "entryHandle[1]"}));
   EXPECT_TRUE(this->traced("hwTableEntryDel: Deleting entry at key:1"));
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(this->t().entrys(), 0U);
   EXPECT_EQ(this->t().resolvedEntrys(), 0U);
   EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(this->chip->validRows(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_EQ(this->tracker().users(0), 0U);
   EXPECT_EQ(this->tracker().underflows(), 0U);
   EXPECT_EQ(this->t().statistics().count(Asic::SwTable::hwEntryDeleted), 0U);  // not a replay
   const std::string cleanupLine = "cleanup : entryhandle cleanup, eh : ";
   auto lines = this->steps();
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

TYPED_TEST(ReferenceScenario, RemoveOfAKeyWithoutCommittedEntryChangesNothing) {
   this->t().entryRemove(this->k(5));
   EXPECT_TRUE(this->traced("entryRemove: key:5, entryType:-1, refCnt:0"));
   EXPECT_TRUE(this->traced("entryRemove : Found no committed entry at key : 5"));

   auto ref = this->t().entryRef(this->k(6), this->e(readyProfile(7), 100));
   this->t().entryRemove(this->k(6));
   EXPECT_TRUE(this->traced("entryRemove : Found no committed entry at key : 6"));
   EXPECT_EQ(ref->entryType(), EH::referenceOnly);
   EXPECT_EQ(this->users(6), 1U);
   EXPECT_EQ(this->t().entrys(), 1U);
}

// A client takes the key again while its empty row waits for the acknowledgement, with a value
// that must wait for its profile entry: the acknowledgement deletes the old row but keeps the
// handle, and the new value is later programmed as a first use of a row.
TYPED_TEST(ReferenceScenario, CommitDuringTheDeleteDanceKeepsTheHandle) {
   auto h = this->commitAcked(1, this->e(readyProfile(7), 100));
   this->t().entryRemove(this->k(1));
   const auto name = track(h);
   h = nullptr;
   auto profile = pendingProfile();
   h = this->t().entryCommit(this->k(1), this->e(profile, 200));
   EXPECT_EQ(h->entryType(), EH::committed);
   EXPECT_EQ(h->entryState(), S::unresolved);
   EXPECT_TRUE(this->t().entryHas(this->k(1)));
   this->util().clearCalls();

   EXPECT_TRUE(this->util().ackNext(this->t()));
   EXPECT_EQ(this->util().calls(), (Calls{"tracker 0 releaseEmpty", "delete 0"}));
   EXPECT_TRUE(alive(name));
   EXPECT_TRUE(this->t().entryHandleHas(this->k(1)));
   EXPECT_EQ(this->own(1).pendingEntrys(), 0U);
   EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(h->entryState(), S::unresolved);

   makeReady(*profile, 4);
   EXPECT_EQ(this->util().callsMatching("write"), (Calls{"write 0 {p4 vrf200}"}));
   EXPECT_EQ(this->util().callsMatching("tracker").back(), "tracker 0 acquire");
   this->util().ackAll(this->t());
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(this->tracker().users(0), 1U);
   this->t().entryRemove(this->k(1));
   this->releaseAndAcknowledge(h, 1);
}

// A reference with a new value revives a handle in deletion; the row is refilled in place.
TYPED_TEST(ReferenceScenario, RefDuringTheDeleteDanceRevivesTheHandle) {
   auto profile = readyProfile(7);
   auto h = this->commitAcked(1, this->e(profile, 100));
   this->t().entryRemove(this->k(1));
   h = nullptr;
   ASSERT_EQ(this->own(1).entryType(), EH::inDeletion);
   this->util().clearCalls();

   auto ref = this->t().entryRef(this->k(1), this->e(profile, 300));
   EXPECT_EQ(ref->entryType(), EH::referenceOnly);
   EXPECT_EQ(this->users(1), 1U);
   EXPECT_EQ(this->util().calls(), (Calls{"tracker 0 refill", "write 0 {p7 vrf300}"}));
   this->util().ackAll(this->t());
   EXPECT_TRUE(this->t().entryHandleHas(this->k(1)));
   EXPECT_EQ(ref->entryState(), S::success);
   EXPECT_EQ(this->own(1).pendingEntrys(), 0U);
   EXPECT_EQ(this->rowAt(0), "{p7 vrf300}");

   this->releaseAndAcknowledge(ref, 1);
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_EQ(this->tracker().users(0), 0U);
   EXPECT_EQ(this->tracker().underflows(), 0U);
}

// A reference with a value that must wait is taken while the empty row waits for its
// acknowledgement, and dropped before or after that acknowledgement: either way nothing is left.
TYPED_TEST(ReferenceScenario, RefDroppedDuringTheDeleteDanceLeavesNoRowNoIndexNoHandle) {
   for (const bool acknowledgeFirst : {true, false}) {
      SCOPED_TRACE(acknowledgeFirst ? "acknowledged first" : "released first");
      this->freshTable();
      auto ready = readyProfile(7);
      auto h = this->commitAcked(1, this->e(ready, 100));
      this->t().entryRemove(this->k(1));
      h = nullptr;
      auto waiting = pendingProfile();
      auto ref = this->t().entryRef(this->k(1), this->e(waiting, 300));
      EXPECT_EQ(ref->entryType(), EH::referenceOnly);
      EXPECT_EQ(waiting->watchers(), 1U);
      const auto name = track(ref);
      this->util().clearCalls();
      if (acknowledgeFirst) {
         EXPECT_TRUE(this->util().ackNext(this->t()));
         EXPECT_TRUE(alive(name));
         EXPECT_EQ(ref->entryState(), S::unresolved);
         ref = nullptr;
      } else {
         ref = nullptr;
         EXPECT_EQ(this->own(1).entryType(), EH::inDeletion);
         EXPECT_EQ(this->own(1).entryState(), S::inProgress);
         EXPECT_TRUE(this->util().ackNext(this->t()));
      }
      EXPECT_EQ(this->util().calls(), (Calls{"tracker 0 releaseEmpty", "delete 0"}));
      EXPECT_FALSE(alive(name));
      EXPECT_EQ(this->t().entrys(), 0U);
      EXPECT_EQ(this->t().unresolvedEntrys(), 0U);
      EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);
      EXPECT_EQ(waiting->watchers(), 0U);
      EXPECT_EQ(waiting->refCount(), 1U);
      EXPECT_EQ(ready->refCount(), 1U);
   }
}

}  // namespace
}  // namespace Test
