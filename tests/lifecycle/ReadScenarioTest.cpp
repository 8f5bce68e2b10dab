// Clients read entries along their life and walk the table, over every table kind; a table
// without a chip Util keeps its states and indices without touching hardware.
#include <set>

#include "support/Scenario.h"

namespace Test {
namespace {

template <class Kind>
class ReadScenario : public Scenario<Kind> {
 protected:
   void expectReads(std::uint64_t key, bool has, bool inHw, std::uint32_t vrf) {
      SCOPED_TRACE("key " + std::to_string(key));
      EXPECT_EQ(this->t().entryHas(this->k(key)), has);
      EXPECT_EQ(this->t().entryInHwTable(this->k(key)), inHw);
      EXPECT_EQ(Kind::vrf(this->t().entry(this->k(key))), vrf);
   }
   // Keys of a walk from `from` (the first entry when none), in walk order.
   std::vector<std::uint64_t> walk(std::optional<std::uint64_t> from = std::nullopt) {
      std::vector<std::uint64_t> keys;
      auto it =
          from ? this->t().entryIteratorConst(this->k(*from)) : this->t().entryIteratorConst();
      for (; !it.done(); it.advance()) {
         EXPECT_EQ(it.entry(), this->t().entry(it.key()));
         keys.push_back(Kind::number(it.key()));
      }
      return keys;
   }
   Asic::Index retrievedIndex(std::uint64_t key) {
      return *typename Scenario<Kind>::Engine(this->table.get()).doRetrieveHwIndex(this->k(key));
   }
};
TYPED_TEST_SUITE(ReadScenario, TableKinds, KindNames);

TYPED_TEST(ReadScenario, ReadsAlongTheWholeLifeOfAnEntry) {
   auto profile = pendingProfile();
   this->expectReads(1, false, false, 0);
   EXPECT_EQ(this->retrievedIndex(1), Asic::kInvalidIndex);

   auto h = this->t().entryCommit(this->k(1), this->e(profile, 100));
   this->expectReads(1, true, false, 100);  // waiting
   makeReady(*profile, 3);
   this->expectReads(1, true, true, 100);  // written, not yet acknowledged
   this->util().ackAll(this->t());
   this->expectReads(1, true, true, 100);

   // A newer value waits for another profile entry: reads give it, hardware holds the older one.
   auto later = pendingProfile();
   this->t().entryCommit(this->k(1), this->e(later, 200));
   this->expectReads(1, true, true, 200);
   EXPECT_EQ(this->retrievedIndex(1), 0U);

   this->t().entryRemove(this->k(1));  // drops the waiting value; the client still holds the handle
   this->expectReads(1, true, true, 100);
   h = nullptr;  // delete dance: the row is being emptied
   this->expectReads(1, false, true, 0);
   EXPECT_TRUE(this->walk(1).empty());
   this->util().ackAll(this->t());
   this->expectReads(1, false, false, 0);
}

TYPED_TEST(ReadScenario, WalkVisitsWaitingKeysFirstThenResolvedOnesOnce) {
   auto ready = readyProfile(7);
   auto waitFor = pendingProfile();
   auto h1 = this->commitAcked(1, this->e(ready, 100));
   auto h2 = this->commitAcked(2, this->e(ready, 200));
   this->t().entryCommit(this->k(2), this->e(waitFor, 201));  // resolved and a newer waiting value
   auto h3 = this->t().entryCommit(this->k(3), this->e(waitFor, 300));
   auto h5 = this->commitAcked(5, this->e(ready, 500));
   auto h4 = this->commitAcked(4, this->e(ready, 400));
   this->t().entryRemove(this->k(4));
   h4 = nullptr;  // in its delete dance: visited by no walk
   ASSERT_EQ(this->own(4).entryType(), EH::inDeletion);

   const auto keys = this->walk();
   ASSERT_EQ(keys.size(), 4U);
   EXPECT_EQ((std::set<std::uint64_t>{keys[0], keys[1]}), (std::set<std::uint64_t>{2, 3}));
   EXPECT_EQ((std::set<std::uint64_t>{keys[2], keys[3]}), (std::set<std::uint64_t>{1, 5}));
   EXPECT_EQ(TypeParam::vrf(this->t().entryIteratorConst(this->k(2)).entry()), 201U);
   EXPECT_TRUE(this->walk(4).empty());
   EXPECT_TRUE(this->walk(99).empty());
   // Walking on from a key continues in walk order.
   EXPECT_EQ(this->walk(keys[1]), (std::vector<std::uint64_t>(keys.begin() + 1, keys.end())));

   // Once everything is resolved the walk starts among the resolved entries.
   makeReady(*waitFor, 9);
   this->util().ackAll(this->t());
   const auto resolved = this->walk();
   EXPECT_EQ(std::set<std::uint64_t>(resolved.begin(), resolved.end()),
             (std::set<std::uint64_t>{1, 2, 3, 5}));
   EXPECT_EQ(resolved.size(), 4U);
   EXPECT_EQ(TypeParam::vrf(this->t().entry(this->k(2))), 201U);
}

// Without a chip Util the handle still moves through its states and the key keeps its index;
// nothing reaches hardware and the platform's write responses still drive the removal.
template <class Kind>
class NoUtilScenario : public ReadScenario<Kind> {
 protected:
   TableOptions tableOptions() const override { return TableOptions{.withUtil = false}; }
};
TYPED_TEST_SUITE(NoUtilScenario, TableKinds, KindNames);

TYPED_TEST(NoUtilScenario, StatesAndIndicesWithoutHardware) {
   auto profile = readyProfile(7);
   auto h = this->t().entryCommit(this->k(1), this->e(profile, 100));
   EXPECT_EQ(h->entryState(), S::inProgress);
   EXPECT_EQ(h->resolvedEntryState(), S::inProgress);
   EXPECT_EQ(this->indexOf(1), 0U);
   EXPECT_EQ(TypeParam::field(this->t().entry(this->k(1))), 7U);
   EXPECT_TRUE(this->traced("traceHwIndex Acquired hwIndex : 0"));
   EXPECT_FALSE(this->traced("hwTableEntryIs : key: 1"));
   EXPECT_TRUE(this->ack(1));
   EXPECT_EQ(h->entryState(), S::success);
   this->expectReads(1, true, true, 100);

   this->t().entryRemove(this->k(1));
   const auto name = track(h);
   h = nullptr;
   EXPECT_EQ(this->own(1).entryType(), EH::inDeletion);
   EXPECT_EQ(this->indexOf(1), 0U);
   EXPECT_TRUE(this->ack(1));  // the empty row: the resolved entry goes and the index is released
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);
   EXPECT_FALSE(this->traced("hwTableEntryDel: Deleting entry at key:1"));
   EXPECT_FALSE(this->traced("handleEntryNo entry in HwTable for this key. Skip delete"));
   EXPECT_EQ(this->chip->writes + this->chip->deletes, 0U);
   EXPECT_EQ(this->tracker().operations(Asic::IndexUserTracker::acquire), 0U);
   EXPECT_EQ(this->t().statistics().count(Asic::SwTable::hwEntryDeleted), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
}

}  // namespace
}  // namespace Test
