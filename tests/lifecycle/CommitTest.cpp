// A client commit reaches hardware and comes back acknowledged.
#include "support/TableFixture.h"

namespace Test {
namespace {

using S = Asic::SwTableBase;

class CommitTest : public TableFixture {
  protected:
   void SetUp() override {
      TableFixture::SetUp();
      createTable();
   }
};

TEST_F(CommitTest, ReadyProfileIsProgrammedAndAcknowledged) {
   auto profile = ProfileHandle::make(S::success, 7);
   auto h = t().entryCommit(k(1), e(profile, 100));
   EXPECT_EQ(h->entryState(), S::inProgress);
   EXPECT_EQ(h->resolvedEntryState(), S::inProgress);
   EXPECT_EQ(util().calls(),
             (std::vector<std::string>{"tracker 0 acquire", "write 0 {p7 v4 vrf100}"}));
   EXPECT_TRUE(util().ackNext(t()));
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(h->resolvedEntryState(), S::success);
   EXPECT_EQ(t().entry(k(1)).l3IifProfileIndex, 7);
}

TEST_F(CommitTest, RemovalLeavesNoRowNoIndexNoHandle) {
   auto profile = ProfileHandle::make(S::success, 7);
   auto h = t().entryCommit(k(1), e(profile, 100));
   util().ackAll(t());
   t().entryRemove(k(1));
   EXPECT_EQ(t().entrys(), 1U);
   h = nullptr;  // the last client goes: the row is rewritten empty
   EXPECT_EQ(util().callsMatching("write").back(), "write 0 empty");
   util().ackAll(t());
   EXPECT_EQ(util().callsMatching("delete"), (std::vector<std::string>{"delete 0"}));
   EXPECT_EQ(t().entrys(), 0U);
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(chip->validRows(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_FALSE(tracesContaining("delete dance complete").empty());
}

}  // namespace
}  // namespace Test
