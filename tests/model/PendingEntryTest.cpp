// The entry handle's pending-entry queue: serial positions, notifications, the references its
// entries hold, and how its storage grows and shrinks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <utility>

#include "support/TableFixture.h"

namespace Test {
namespace {

using S = Asic::SwTableBase;
using Changes = std::vector<std::string>;
using Queue = TalvikL3Decap::PendingEntryQueue<int>;

class PendingEntryTest : public TableFixture {
 protected:
   void SetUp() override {
      TableFixture::SetUp();
      createTable();
      h = t().entryHandleIs(k(1), &t());
   }
   Entry withVrf(std::uint32_t vrf) { return Entry(profile, 0, false, false, false, vrf); }
   void enq(std::initializer_list<std::uint32_t> vrfs) {
      for (auto vrf : vrfs) {
         h->pendingEntryEnq(withVrf(vrf));
      }
   }

   Fwk::Ptr<ProfileHandle> profile = ProfileHandle::make(S::success, 3);
   Fwk::Ptr<IngL3IifTable::EntryHandle> h;
};

TEST_F(PendingEntryTest, PositionsStartAtOneAndAreNeverReused) {
   Fwk::RecordingObserver obs(*h);
   enq({10, 20, 30});
   EXPECT_EQ(h->pendingEntry(1).vrf, 10U);
   EXPECT_EQ(h->pendingEntry(2).vrf, 20U);
   EXPECT_EQ(profile->refCount(), 4U);
   for (std::uint32_t vrf : {10, 20, 30}) {
      EXPECT_EQ(h->pendingEntryDeq().vrf, vrf);
   }
   EXPECT_EQ(profile->refCount(), 1U);
   enq({40});
   EXPECT_EQ(obs.changes(),
             (Changes{"pendingEntry[1]", "pendingEntry[2]", "pendingEntry[3]", "pendingEntry[1]",
                      "pendingEntry[2]", "pendingEntry[3]", "pendingEntry[4]"}));
   for (std::uint32_t p : {1, 2, 3}) {
      EXPECT_FALSE(h->pendingEntryHas(p));
   }
   EXPECT_TRUE(h->pendingEntryHas(4));
   EXPECT_EQ(h->pendingEntry(4).vrf, 40U);
}

TEST_F(PendingEntryTest, EmptyQueueGivesDefaultEntriesAndNotifiesNothing) {
   Fwk::RecordingObserver obs(*h);
   for (const Entry& e :
        {h->pendingEntryDeq(), h->pendingEntryFront(), h->pendingEntryBack(), h->pendingEntry(1)}) {
      EXPECT_TRUE(e == Entry());
   }
   EXPECT_FALSE(h->pendingEntryHas(0));
   EXPECT_TRUE(obs.changes().empty());
}

TEST_F(PendingEntryTest, OnlyQueuedPositionsAreFound) {
   enq({10, 20, 30});
   EXPECT_EQ(h->pendingEntryFront().vrf, 10U);
   EXPECT_EQ(h->pendingEntryBack().vrf, 30U);
   EXPECT_EQ(h->pendingEntry(3).vrf, 30U);
   for (std::uint32_t p : {0U, 4U, 0x80000001U, 0xFFFFFFFFU}) {
      EXPECT_FALSE(h->pendingEntryHas(p)) << p;
      EXPECT_TRUE(h->pendingEntry(p) == Entry()) << p;
   }
}

TEST_F(PendingEntryTest, DelAllUnobservedDropsEverythingAndKeepsCounting) {
   enq({10, 20});
   h->pendingEntryDelAll();
   EXPECT_EQ(h->pendingEntrys(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
   Fwk::RecordingObserver obs(*h);
   enq({30});
   EXPECT_EQ(obs.changes(), Changes{"pendingEntry[3]"});
}

TEST_F(PendingEntryTest, DelAllObservedNotifiesEachRemovalFrontFirst) {
   enq({10, 20});
   Fwk::RecordingObserver obs(*h);
   h->pendingEntryDelAll();
   EXPECT_EQ(obs.changes(), (Changes{"pendingEntry[1]", "pendingEntry[2]"}));
   EXPECT_EQ(h->pendingEntrys(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
}

TEST_F(PendingEntryTest, SwTableIsPublishesOnlyAChangeAndKeyStays) {
   const auto other = TalvikL3Decap::ingL3IifTableFactory();
   Fwk::RecordingObserver obs(*h);
   h->swTableIs(&t());
   EXPECT_TRUE(obs.changes().empty());
   h->swTableIs(other.get());
   EXPECT_EQ(obs.changes(), Changes{"swTable was " + t().entityText()});
   EXPECT_EQ(h->key(), k(1));
   h->swTableIs(&t());
}

// --- the queue itself ---

struct SerialCase {
   Queue::Position p, q;
   bool before;
};

class SerialOrderTest : public ::testing::TestWithParam<SerialCase> {};

TEST_P(SerialOrderTest, ComparesModulo2To32) {
   EXPECT_EQ(Queue::before(GetParam().p, GetParam().q), GetParam().before);
}

INSTANTIATE_TEST_SUITE_P(
    NearWrap, SerialOrderTest,
    ::testing::Values(SerialCase{1, 2, true}, SerialCase{2, 1, false}, SerialCase{7, 7, false},
                      SerialCase{0xFFFFFFFF, 0, true}, SerialCase{0xFFFFFFF0, 5, true},
                      SerialCase{5, 0xFFFFFFF0, false}, SerialCase{0, 0x7FFFFFFF, true},
                      SerialCase{0, 0x80000000, false}, SerialCase{0x80000000, 0, false},
                      SerialCase{0x80000001, 0, true}));

// A script of appends (positive counts) and removals (negative counts), and the capacities of the
// storage blocks afterwards, front to back.
struct GrowthCase {
   const char* name;
   std::vector<int> script;
   std::vector<std::uint32_t> capacities;
};

class QueueGrowthTest : public ::testing::TestWithParam<GrowthCase> {};

TEST_P(QueueGrowthTest, BlocksAndContentsFollowTheScript) {
   Queue queue;
   std::deque<std::pair<Queue::Position, int>> model;
   Queue::Position next = 1;
   for (int step : GetParam().script) {
      for (int i = 0; i < step; ++i, ++next) {
         ASSERT_EQ(queue.enq(static_cast<int>(next) * 3), next);
         model.emplace_back(next, static_cast<int>(next) * 3);
      }
      for (int i = 0; i < -step; ++i) {
         Queue::Position position = 0;
         EXPECT_EQ(queue.deq(position), model.front().second);
         EXPECT_EQ(position, model.front().first);
         model.pop_front();
      }
   }
   std::vector<std::uint32_t> capacities;
   queue.forEachBlockCapacity([&](std::uint32_t c) { capacities.push_back(c); });
   EXPECT_EQ(capacities, GetParam().capacities);
   ASSERT_EQ(queue.size(), model.size());
   for (const auto& [position, v] : model) {
      const int* found = queue.at(position);
      ASSERT_NE(found, nullptr) << position;
      ASSERT_EQ(*found, v);
   }
   EXPECT_EQ(queue.at(next), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, QueueGrowthTest,
    ::testing::Values(GrowthCase{"FirstBlockHoldsFour", {1}, {4}},
                      GrowthCase{"FullFirstBlockAddsEight", {5}, {4, 8}},
                      GrowthCase{"ThenSixteen", {13}, {4, 8, 16}},
                      GrowthCase{"FewQueuedAddsFour", {4, -3, 1}, {4, 4}},
                      GrowthCase{"SevenQueuedAddsEight", {12, -5, 1}, {8, 8}},
                      GrowthCase{"EightQueuedAddsSixteen", {12, -4, 1}, {8, 16}},
                      GrowthCase{"EmptiedBlocksAreReleased", {12, -12}, {}},
                      GrowthCase{"EmptiedQueueStartsAgainAtFour", {5, -5, 1}, {4}},
                      GrowthCase{"BlocksStopGrowingAt8192",
                                 {20000},
                                 {4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 8192}},
                      GrowthCase{"AlmostDrainedLargeBlockAddsFour", {16380, -16379, 1}, {8192, 4}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(QueueStorageTest, FreedFirstBlockIsReusedByTheNextQueue) {
   Queue::Position position = 0;
   Queue first;
   first.enq(1);
   const int* slot = &first.frontEntry();
   EXPECT_EQ(first.deq(position), 1);  // its block is freed
   // Had the block gone back to the heap, allocations of its size (a 16-byte header and four
   // entries) would take its memory.
   std::vector<std::unique_ptr<char[]>> sameSize;
   sameSize.reserve(16);
   for (int i = 0; i < 16; ++i) {
      sameSize.push_back(std::make_unique<char[]>(16 + 4 * sizeof(int)));
   }
   Queue second;
   EXPECT_EQ(second.enq(2), 1U);
   EXPECT_EQ(&second.frontEntry(), slot);
   EXPECT_EQ(*second.at(1), 2);
}

}  // namespace
}  // namespace Test
