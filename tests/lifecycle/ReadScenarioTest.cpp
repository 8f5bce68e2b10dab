// Clients read entries along their life and walk the table; a table without a chip Util keeps its
// states and indices without touching hardware.
#include <set>

#include "support/Scenario.h"

namespace Test {
namespace {

class ReadScenario : public Scenario {
 protected:
   void expectReads(std::uint64_t key, bool has, bool inHw, std::uint32_t vrf) {
      SCOPED_TRACE("key " + std::to_string(key));
      EXPECT_EQ(t().entryHas(k(key)), has);
      EXPECT_EQ(t().entryInHwTable(k(key)), inHw);
      EXPECT_EQ(t().entry(k(key)).vrf, vrf);
   }
   // Keys of a walk from the first entry, in walk order.
   std::vector<std::uint64_t> walk() {
      std::vector<std::uint64_t> keys;
      for (auto it = t().entryIteratorConst(); !it.done(); it.advance()) {
         EXPECT_EQ(it.entry(), t().entry(it.key()));
         keys.push_back(it.key().value());
      }
      return keys;
   }
};

TEST_F(ReadScenario, ReadsAlongTheWholeLifeOfAnEntry) {
   auto profile = pendingProfile();
   expectReads(1, false, false, 0);
   EXPECT_EQ(Engine(table.get()).doRetrieveHwIndex(k(1)), std::optional(Asic::kInvalidIndex));

   auto h = t().entryCommit(k(1), e(profile, 100));
   expectReads(1, true, false, 100);  // waiting
   makeReady(*profile, 3);
   expectReads(1, true, true, 100);  // written, not yet acknowledged
   util().ackAll(t());
   expectReads(1, true, true, 100);

   // A newer value waits for another profile entry: reads give it, hardware holds the older one.
   auto later = pendingProfile();
   t().entryCommit(k(1), e(later, 200));
   expectReads(1, true, true, 200);
   EXPECT_EQ(Engine(table.get()).doRetrieveHwIndex(k(1)), std::optional<Asic::Index>(0));

   t().entryRemove(k(1));  // drops the waiting value; the client still holds the handle
   expectReads(1, true, true, 100);
   h = nullptr;  // delete dance: the row is being emptied
   expectReads(1, false, true, 0);
   EXPECT_TRUE(t().entryIteratorConst(k(1)).done());
   util().ackAll(t());
   expectReads(1, false, false, 0);
}

TEST_F(ReadScenario, WalkVisitsWaitingKeysFirstThenResolvedOnesOnce) {
   auto ready = readyProfile(7);
   auto waitFor = pendingProfile();
   auto h1 = commitAcked(1, e(ready, 100));
   auto h2 = commitAcked(2, e(ready, 200));
   t().entryCommit(k(2), e(waitFor, 201));  // resolved and a newer waiting value
   auto h3 = t().entryCommit(k(3), e(waitFor, 300));
   auto h5 = commitAcked(5, e(ready, 500));
   auto h4 = commitAcked(4, e(ready, 400));
   t().entryRemove(k(4));
   h4 = nullptr;  // in its delete dance: visited by no walk
   ASSERT_EQ(own(4).entryType(), EH::inDeletion);

   const auto keys = walk();
   ASSERT_EQ(keys.size(), 4U);
   EXPECT_EQ((std::set<std::uint64_t>{keys[0], keys[1]}), (std::set<std::uint64_t>{2, 3}));
   EXPECT_EQ((std::set<std::uint64_t>{keys[2], keys[3]}), (std::set<std::uint64_t>{1, 5}));
   EXPECT_EQ(t().entryIteratorConst(k(2)).entry().vrf, 201U);
   EXPECT_TRUE(t().entryIteratorConst(k(4)).done());
   EXPECT_TRUE(t().entryIteratorConst(k(99)).done());

   // Walking on from a key continues in walk order.
   std::vector<std::uint64_t> rest;
   for (auto it = t().entryIteratorConst(k(keys[1])); !it.done(); it.advance()) {
      rest.push_back(it.key().value());
   }
   EXPECT_EQ(rest, (std::vector<std::uint64_t>(keys.begin() + 1, keys.end())));

   // Once everything is resolved the walk starts among the resolved entries.
   makeReady(*waitFor, 9);
   util().ackAll(t());
   const auto resolved = walk();
   EXPECT_EQ(std::set<std::uint64_t>(resolved.begin(), resolved.end()),
             (std::set<std::uint64_t>{1, 2, 3, 5}));
   EXPECT_EQ(resolved.size(), 4U);
   EXPECT_EQ(t().entry(k(2)).vrf, 201U);
}

// Without a chip Util the handle still moves through its states and the key keeps its index;
// nothing reaches hardware and the platform's write responses still drive the removal.
class NoUtilScenario : public ReadScenario {
 protected:
   TableOptions tableOptions() const override {
      TableOptions o;
      o.withUtil = false;
      return o;
   }
};

TEST_F(NoUtilScenario, StatesAndIndicesWithoutHardware) {
   auto profile = readyProfile(7);
   auto h = t().entryCommit(k(1), e(profile, 100));
   EXPECT_EQ(h->entryState(), S::inProgress);
   EXPECT_EQ(h->resolvedEntryState(), S::inProgress);
   EXPECT_EQ(indexOf(1), 0U);
   EXPECT_EQ(t().entry(k(1)).l3IifProfileIndex, 7);
   EXPECT_TRUE(traced("traceHwIndex Acquired hwIndex : 0"));
   EXPECT_FALSE(traced("hwTableEntryIs : key: 1"));
   EXPECT_TRUE(ack(1));
   EXPECT_EQ(h->entryState(), S::success);
   expectReads(1, true, true, 100);

   t().entryRemove(k(1));
   const auto name = track(h);
   h = nullptr;
   EXPECT_EQ(own(1).entryType(), EH::inDeletion);
   EXPECT_EQ(indexOf(1), 0U);
   EXPECT_TRUE(ack(1));  // the empty row: the resolved entry goes and the index is released
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
   EXPECT_FALSE(traced("hwTableEntryDel: Deleting entry at key:1"));
   EXPECT_FALSE(traced("handleEntryNo entry in HwTable for this key. Skip delete"));
   EXPECT_EQ(chip->validRows(), 0U);
   EXPECT_EQ(chip->writes + chip->deletes, 0U);
   EXPECT_EQ(tracker().operations(Asic::IndexUserTracker::acquire), 0U);
   EXPECT_EQ(t().statistics().count(Asic::SwTable::hwEntryDeleted), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
}

}  // namespace
}  // namespace Test
