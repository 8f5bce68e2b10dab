// Clients act while a restart is under way: between the read-back and doInitComplete, and between
// doInitComplete and the purge. Whatever they do, a row read back is never handed to another key
// before its own key claims it or the purge deletes it, a row whose content is right is adopted
// without a write, and at the end hardware holds exactly what clients hold.
#include <functional>

#include "restart/RestartFixture.h"

namespace Test {
namespace {

class LiveClientsTest;
using Move = std::function<void(LiveClientsTest&)>;

struct LiveCase {
   const char* name;
   Move duringReplay;
   Move beforePurge;  // between doInitComplete and purgeStaleEntries
   Move afterPurge;
   Config expected;  // what hardware holds once every write is acknowledged
   std::size_t writes;
   std::size_t deletes;
   friend void PrintTo(const LiveCase& c, std::ostream* os) { *os << c.name; }
};

// Before the restart keys 1, 2, 3 hold rows 0, 1, 2; the restart binds each to its row.
class LiveClientsTest : public RestartFixture, public ::testing::WithParamInterface<LiveCase> {
 public:
   using RestartFixture::replay;
   void commit(std::uint64_t key, std::uint32_t vrf) { t().entryCommit(k(key), e(profile, vrf)); }
   // A commit whose profile entry has no index yet.
   void commitWaiting(std::uint64_t key, std::uint32_t vrf) {
      t().entryCommit(k(key), e(waiting, vrf));
   }
   void ref(std::uint64_t key, std::uint32_t vrf, bool ready = true) {
      held.push_back(t().entryRef(k(key), e(ready ? profile : waiting, vrf)));
   }
   void dropRefs() { held.clear(); }
   void remove(std::uint64_t key) { t().entryRemove(k(key)); }
   void profileBecomesReady() {
      waiting->hwIndexIs(kProfileIndex);
      waiting->entryStateIs(S::success);
   }
   // The replay of keys 1 and 2, key 2 with a changed value.
   void replayOneAndChangedTwo() { replay({{1, 101}, {2, 202}}); }

 protected:
   void SetUp() override {
      RestartFixture::SetUp();
      setUpTable();
      commitAll({{1, 101}, {2, 102}, {3, 103}});
      restartWith({{1, 0}, {2, 1}, {3, 2}});
   }

   Fwk::Ptr<ProfileHandle> waiting = ProfileHandle::make(S::unresolved, Asic::kInvalidIndex);
   std::vector<Fwk::Ptr<const S::EntryHandle>> held;
};

TEST_P(LiveClientsTest, HardwareEndsAsClientsLeftItWithNoRowTouchedNeedlessly) {
   const LiveCase& c = GetParam();
   const auto run = [this](const Move& move) {
      if (move) {
         move(*this);
      }
   };
   run(c.duringReplay);
   t().doInitComplete();
   run(c.beforePurge);
   t().purgeStaleEntries();
   util().ackAll(t());
   run(c.afterPurge);
   util().ackAll(t());

   EXPECT_EQ(hardwareDifference(c.expected), "");
   EXPECT_EQ(writesSinceRestart(), c.writes);
   EXPECT_EQ(deletesSinceRestart(), c.deletes);
   for (const auto& [key, vrf] : c.expected) {
      SCOPED_TRACE("key " + std::to_string(key));
      ASSERT_TRUE(handle(key));
      EXPECT_EQ(handle(key)->hwIndex(), indexOf(key));
      EXPECT_TRUE(t().entryInHwTable(k(key)));
   }
   EXPECT_EQ(t().indexAllocator()->totalUsedIndices(), c.expected.size());
   EXPECT_EQ(t().indexAllocator()->heldBackIndices(), 0U);
   EXPECT_EQ(IngL3IifTable::EntryHandle::liveHandles(), t().entrys());
}

const Config kOneChangedTwoNewFour{{1, 101}, {2, 202}, {4, 104}};

INSTANTIATE_TEST_SUITE_P(
    Restart, LiveClientsTest,
    ::testing::Values(
        // Key 4 must not be written on row 2, which key 3 gave up but the purge deletes.
        LiveCase{"UnresolvedReferenceOfABoundKeyDropped",
                 [](LiveClientsTest& c) {
                    c.replayOneAndChangedTwo();
                    c.ref(3, 103, false);
                    c.dropRefs();
                    c.commit(4, 104);
                 },
                 {},
                 {},
                 kOneChangedTwoNewFour,
                 2,
                 1},
        LiveCase{"BoundKeyRemovedBeforeItResolves",
                 [](LiveClientsTest& c) {
                    c.replayOneAndChangedTwo();
                    c.commitWaiting(3, 103);
                    c.remove(3);
                    c.commit(4, 104);
                 },
                 {},
                 {},
                 kOneChangedTwoNewFour,
                 2,
                 1},
        LiveCase{"UnresolvedReferenceDroppedBetweenInitAndPurge",
                 [](LiveClientsTest& c) {
                    c.replayOneAndChangedTwo();
                    c.ref(3, 103, false);
                 },
                 [](LiveClientsTest& c) {
                    c.dropRefs();
                    c.commit(4, 104);
                 },
                 {},
                 kOneChangedTwoNewFour,
                 2,
                 1},
        // Taken again during the replay, key 3 finds its row and adopts it without a write.
        LiveCase{"BoundKeyReferencedReleasedAndReferencedAgain",
                 [](LiveClientsTest& c) {
                    c.replayOneAndChangedTwo();
                    c.ref(3, 103, false);
                    c.dropRefs();
                    c.commit(3, 103);
                 },
                 {},
                 {},
                 Config{{1, 101}, {2, 202}, {3, 103}},
                 1,
                 0},
        LiveCase{"AdoptedKeyRecommittedWithAChangedValue",
                 [](LiveClientsTest& c) {
                    c.replay({{1, 101}, {2, 202}, {3, 103}});
                    c.commit(3, 303);
                 },
                 {},
                 {},
                 Config{{1, 101}, {2, 202}, {3, 303}},
                 2,
                 0},
        LiveCase{"AdoptedKeyRemovedDuringTheReplay",
                 [](LiveClientsTest& c) {
                    c.replay({{1, 101}, {2, 202}, {3, 103}});
                    c.remove(3);
                 },
                 {},
                 {},
                 Config{{1, 101}, {2, 202}},
                 2,
                 1},
        LiveCase{"LastReferenceOfAReconciledEntryDropped",
                 [](LiveClientsTest& c) {
                    c.replayOneAndChangedTwo();
                    c.ref(3, 103);
                    c.dropRefs();
                 },
                 {},
                 {},
                 Config{{1, 101}, {2, 202}},
                 2,
                 1},
        // A key whose profile entry becomes ready before the purge still adopts its row.
        LiveCase{"ProfileReadyBetweenInitAndPurge",
                 [](LiveClientsTest& c) {
                    c.replayOneAndChangedTwo();
                    c.commitWaiting(3, 103);
                 },
                 [](LiveClientsTest& c) { c.profileBecomesReady(); },
                 {},
                 Config{{1, 101}, {2, 202}, {3, 103}},
                 1,
                 0},
        LiveCase{"ProfileReadyAfterThePurge",
                 [](LiveClientsTest& c) {
                    c.replayOneAndChangedTwo();
                    c.commitWaiting(3, 103);
                 },
                 {},
                 [](LiveClientsTest& c) { c.profileBecomesReady(); },
                 Config{{1, 101}, {2, 202}, {3, 103}},
                 2,
                 1},
        // A value in force that the replay left undecided is written at doInitComplete although
        // a newer value waits for its profile.
        LiveCase{"NewerValueWaitingAtInitComplete",
                 [](LiveClientsTest& c) {
                    c.replay({{1, 101}, {2, 102}, {3, 103}});
                    c.commit(4, 104);
                    c.commitWaiting(4, 204);
                 },
                 {},
                 {},
                 Config{{1, 101}, {2, 102}, {3, 103}, {4, 104}},
                 1,
                 0}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace Test
