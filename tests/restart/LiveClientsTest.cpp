// Clients act while a restart is under way: between the read-back and doInitComplete, and between
// doInitComplete and the purge. Whatever they do, a row read back is never handed to another key
// before its own key claims it or the purge deletes it, a row whose content is right is adopted
// without a write, and at the end hardware holds exactly what clients hold.
#include <functional>

#include "restart/RestartFixture.h"

namespace Test {
namespace {

// What clients do in the cases below.
class Client {
 public:
   virtual ~Client() = default;
   virtual void replay(const Config& config) = 0;
   virtual void commit(std::uint64_t key, std::uint32_t vrf) = 0;
   // A commit whose profile entry has no index yet.
   virtual void commitWaiting(std::uint64_t key, std::uint32_t vrf) = 0;
   virtual void ref(std::uint64_t key, std::uint32_t vrf, bool ready = true) = 0;
   virtual void dropRefs() = 0;
   virtual void remove(std::uint64_t key) = 0;
   virtual void profileBecomesReady() = 0;
   // The replay of keys 1 and 2, key 2 with a changed value.
   void replayOneAndChangedTwo() { replay({{1, 101}, {2, 202}}); }
};
using Move = std::function<void(Client&)>;

struct LiveCase {
   const char* name;
   Move duringReplay;
   Move beforePurge;  // between doInitComplete and purgeStaleEntries
   Move afterPurge;
   Config expected;  // what hardware holds once every write is acknowledged
   std::size_t writes;
   std::size_t deletes;
};

const Config kOneChangedTwoNewFour{{1, 101}, {2, 202}, {4, 104}};

const LiveCase kCases[] = {
    // Key 4 must not be written on row 2, which key 3 gave up but the purge deletes.
    LiveCase{"UnresolvedReferenceOfABoundKeyDropped",
             [](Client& c) {
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
             [](Client& c) {
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
             [](Client& c) {
                c.replayOneAndChangedTwo();
                c.ref(3, 103, false);
             },
             [](Client& c) {
                c.dropRefs();
                c.commit(4, 104);
             },
             {},
             kOneChangedTwoNewFour,
             2,
             1},
    // Taken again during the replay, key 3 finds its row and adopts it without a write.
    LiveCase{"BoundKeyReferencedReleasedAndReferencedAgain",
             [](Client& c) {
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
             [](Client& c) {
                c.replay({{1, 101}, {2, 202}, {3, 103}});
                c.commit(3, 303);
             },
             {},
             {},
             Config{{1, 101}, {2, 202}, {3, 303}},
             2,
             0},
    LiveCase{"AdoptedKeyRemovedDuringTheReplay",
             [](Client& c) {
                c.replay({{1, 101}, {2, 202}, {3, 103}});
                c.remove(3);
             },
             {},
             {},
             Config{{1, 101}, {2, 202}},
             2,
             1},
    LiveCase{"LastReferenceOfAReconciledEntryDropped",
             [](Client& c) {
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
             [](Client& c) {
                c.replayOneAndChangedTwo();
                c.commitWaiting(3, 103);
             },
             [](Client& c) { c.profileBecomesReady(); },
             {},
             Config{{1, 101}, {2, 202}, {3, 103}},
             1,
             0},
    LiveCase{"ProfileReadyAfterThePurge",
             [](Client& c) {
                c.replayOneAndChangedTwo();
                c.commitWaiting(3, 103);
             },
             {},
             [](Client& c) { c.profileBecomesReady(); },
             Config{{1, 101}, {2, 202}, {3, 103}},
             2,
             1},
    // A value in force that the replay left undecided is written at doInitComplete although
    // a newer value waits for its profile.
    LiveCase{"NewerValueWaitingAtInitComplete",
             [](Client& c) {
                c.replay({{1, 101}, {2, 102}, {3, 103}});
                c.commit(4, 104);
                c.commitWaiting(4, 204);
             },
             {},
             {},
             Config{{1, 101}, {2, 102}, {3, 103}, {4, 104}},
             1,
             0},
};

// Before the restart keys 1, 2, 3 hold rows 0, 1, 2; the restart binds each to its row.
template <class Kind>
class LiveClientsTest : public RestartFixture<Kind>, public Client {
 public:
   void replay(const Config& config) override { RestartFixture<Kind>::replay(config); }
   void commit(std::uint64_t key, std::uint32_t vrf) override {
      this->t().entryCommit(this->k(key), this->e(this->profile, vrf));
   }
   void commitWaiting(std::uint64_t key, std::uint32_t vrf) override {
      this->t().entryCommit(this->k(key), this->e(waiting, vrf));
   }
   void ref(std::uint64_t key, std::uint32_t vrf, bool ready) override {
      held.push_back(
          this->t().entryRef(this->k(key), this->e(ready ? this->profile : waiting, vrf)));
   }
   void dropRefs() override { held.clear(); }
   void remove(std::uint64_t key) override { this->t().entryRemove(this->k(key)); }
   void profileBecomesReady() override { makeReady(*waiting, this->kProfileIndex); }

 protected:
   void run(const LiveCase& c) {
      waiting = pendingProfile();
      this->startWith({{1, 101}, {2, 102}, {3, 103}});
      this->restartWith({{1, 0}, {2, 1}, {3, 2}});
      const auto act = [this](const Move& move) {
         if (move) {
            move(*this);
         }
      };
      act(c.duringReplay);
      this->t().doInitComplete();
      act(c.beforePurge);
      this->t().purgeStaleEntries();
      this->util().ackAll(this->t());
      act(c.afterPurge);
      this->util().ackAll(this->t());
      EXPECT_EQ(this->hardwareDifference(c.expected), "");
      EXPECT_EQ(this->writesSinceRestart(), c.writes);
      EXPECT_EQ(this->deletesSinceRestart(), c.deletes);
      for (const auto& [key, vrf] : c.expected) {
         SCOPED_TRACE("key " + std::to_string(key));
         ASSERT_TRUE(this->handle(key));
         EXPECT_EQ(this->handle(key)->hwIndex(), this->indexOf(key));
         EXPECT_TRUE(this->t().entryInHwTable(this->k(key)));
      }
      EXPECT_EQ(this->t().indexAllocator()->totalUsedIndices(), c.expected.size());
      EXPECT_EQ(this->t().indexAllocator()->heldBackIndices(), 0U);
      EXPECT_EQ(Kind::Table::EntryHandle::liveHandles(), this->t().entrys());
      held.clear();
   }

   Fwk::Ptr<ProfileHandle> waiting;
   std::vector<HandlePtr> held;
};
TYPED_TEST_SUITE(LiveClientsTest, TableKinds, KindNames);

TYPED_TEST(LiveClientsTest, HardwareEndsAsClientsLeftItWithNoRowTouchedNeedlessly) {
   for (const LiveCase& c : kCases) {
      SCOPED_TRACE(c.name);
      this->run(c);
   }
}

}  // namespace
}  // namespace Test
