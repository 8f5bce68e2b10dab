// The synced-entry collection: rows read back from hardware by index, its change rules, and
// removal with and without observers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "support/TableFixture.h"

namespace Test {
namespace {

using S = Asic::SwTableBase;
using Changes = std::vector<std::string>;

Entry row(std::uint32_t vrf, std::uint8_t profileIndex) {
   return Entry(nullptr, profileIndex, false, true, false, vrf);
}

class SyncedEntryTest : public TableFixture {
 protected:
   void SetUp() override {
      TableFixture::SetUp();
      createTable();
   }
   void fill(std::initializer_list<Asic::Index> indices) {
      for (Asic::Index i : indices) {
         t().syncedEntryIs(i, Entry(profile, 0, true, false, false, i));
      }
   }
   std::vector<Asic::Index> members() {
      std::vector<Asic::Index> out;
      for (auto it = t().syncedEntryIter(); !it.done(); it.advance()) {
         out.push_back(it.index());
      }
      return out;
   }
   Fwk::Ptr<ProfileHandle> profile = ProfileHandle::make(S::success, 2);
};

struct RereadCase {
   const char* name;
   Entry second;
   bool published;
   Entry stored;
};

class SyncedEntryRereadTest : public SyncedEntryTest,
                              public ::testing::WithParamInterface<RereadCase> {};

TEST_P(SyncedEntryRereadTest, OnlyADifferentEntryIsStoredAndPublished) {
   const auto& c = GetParam();
   Fwk::RecordingObserver obs(t());
   t().syncedEntryIs(7, row(1, 3));
   t().syncedEntryIs(7, c.second);
   Changes expected{"syncedEntry[7] was " + TalvikL3Decap::toText(Entry())};
   if (c.published) {
      expected.push_back("syncedEntry[7] was " + TalvikL3Decap::toText(row(1, 3)));
   }
   EXPECT_EQ(obs.changes(), expected);
   EXPECT_EQ(t().syncedEntrys(), 1U);
   EXPECT_EQ(fields(t().syncedEntry(7)), fields(c.stored));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SyncedEntryRereadTest,
    ::testing::Values(RereadCase{"SameRow", row(1, 3), false, row(1, 3)},
                      RereadCase{"DependentFieldOnly", row(1, 9), false, row(1, 3)},
                      RereadCase{"OtherVrfReplacesAllFields", row(2, 9), true, row(2, 9)}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(SyncedEntryTest, ReplacingMovesTheHandleReference) {
   const auto other = ProfileHandle::make(S::success, 4);
   fill({7});
   t().syncedEntryIs(7, Entry(other, 0, true, false, false, 7));
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_EQ(other->refCount(), 2U);
}

TEST_F(SyncedEntryTest, AbsentIndexReadsAndDeletesAsDefault) {
   Fwk::RecordingObserver obs(t());
   EXPECT_EQ(fields(t().syncedEntryDel(4)), fields(Entry()));
   EXPECT_EQ(fields(t().syncedEntry(4)), fields(Entry()));
   EXPECT_EQ(t().syncedEntryGet(4), std::nullopt);
   EXPECT_TRUE(obs.changes().empty());
}

TEST_F(SyncedEntryTest, DelReturnsTheEntryAndPublishes) {
   fill({4});
   const Entry stored = t().syncedEntry(4);
   Fwk::RecordingObserver obs(t());
   EXPECT_EQ(fields(t().syncedEntryDel(4)), fields(stored));
   EXPECT_EQ(obs.changes(), Changes{"syncedEntry[4] was " + TalvikL3Decap::toText(stored)});
   EXPECT_FALSE(t().syncedEntryHas(4));
}

TEST_F(SyncedEntryTest, DelAllObservedRemovesInAscendingOrder) {
   fill({9, 3, 7});
   Fwk::RecordingObserver obs(t());
   t().syncedEntryDelAll();
   const std::vector<Asic::Index> ascending{3, 7, 9};
   ASSERT_EQ(obs.changes().size(), ascending.size());
   for (std::size_t i = 0; i < ascending.size(); ++i) {
      EXPECT_THAT(obs.changes()[i],
                  ::testing::StartsWith("syncedEntry[" + std::to_string(ascending[i]) + "] was "));
   }
   EXPECT_EQ(t().syncedEntrys(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
}

TEST_F(SyncedEntryTest, DelAllUnobservedReleasesEveryMember) {
   fill({9, 3, 7});
   t().syncedEntryDelAll();
   EXPECT_EQ(t().syncedEntrys(), 0U);
   EXPECT_TRUE(members().empty());
   EXPECT_EQ(profile->refCount(), 1U);
}

// The walk and the order of rows are the synced rows' own (SyncedRowsTest.cpp); here, that the
// table's removals through a walk release every row's references.
TEST_F(SyncedEntryTest, RowsRemovedDuringAWalkReleaseTheirReferences) {
   for (Asic::Index i = 0; i < 64; ++i) {
      fill({2 * i});
   }
   for (auto it = t().syncedEntryIter(); !it.done(); it.advance()) {
      if (it.index() % 4 == 0) {
         t().syncedEntryDel(it);
      }
   }
   EXPECT_EQ(t().syncedEntrys(), 32U);
   EXPECT_EQ(t().syncedEntryGet(8), std::nullopt);
   EXPECT_EQ(t().syncedEntry(6).vrf, 6U);
   EXPECT_EQ(profile->refCount(), 33U);
}

}  // namespace
}  // namespace Test
