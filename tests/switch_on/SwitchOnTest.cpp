// With "PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE" on (set for this binary), programming completes a
// handle itself instead of waiting for the hardware's acknowledgement.
#include <cstdlib>

#include "support/Scenario.h"

namespace Test {
namespace {

using Calls = std::vector<std::string>;

class SwitchOn : public Scenario {
 protected:
   void SetUp() override {
      ASSERT_TRUE(Engine::publishEntryHandleProgrammedState())
          << "run with PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE=1 (ctest sets it)";
      Scenario::SetUp();
   }
};

TEST_F(SwitchOn, SuccessArrivesInsideProgramming) {
   auto p7 = readyProfile(7);
   auto h = t().entryCommit(k(1), e(p7, 100));
   EXPECT_EQ(h->resolvedEntryState(), S::success);
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_FALSE(util().publishHwIndexInHandle());
   EXPECT_EQ(h->hwIndex(), 0U);
   EXPECT_EQ(tracedAmong({"programHwEntry key: 1, entryState:inProgress",
                          "handleEntryState entryhandle state: success at key : 1"}),
             (Calls{"programHwEntry key: 1, entryState:inProgress",
                    "handleEntryState entryhandle state: success at key : 1"}));

   // A new value: the previous one is dropped from the handle as soon as the new one is written.
   t().entryCommit(k(1), e(readyProfile(8), 200));
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(own(1).pendingEntrys(), 0U);
   EXPECT_EQ(p7->refCount(), 1U);

   // The hardware's later acknowledgements change nothing.
   util().ackAll(t());
   EXPECT_EQ(h->entryState(), S::success);
}

TEST_F(SwitchOn, IsReadOnceForTheProcess) {
   ::setenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE", "0", 1);
   auto h = t().entryCommit(k(1), e(readyProfile(7), 100));
   ::setenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE", "1", 1);
   EXPECT_TRUE(Engine::publishEntryHandleProgrammedState());
   EXPECT_EQ(h->resolvedEntryState(), S::success);
}

TEST_F(SwitchOn, DeleteDanceCompletesWithinOneRelease) {
   auto profile = readyProfile(7);
   auto h = t().entryCommit(k(1), e(profile, 100));
   t().entryRemove(k(1));
   const auto name = track(h);
   util().clearCalls();
   h = nullptr;
   EXPECT_EQ(util().calls(),
             (Calls{"tracker 0 empty", "write 0 empty", "tracker 0 releaseEmpty", "delete 0"}));
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(t().entrys(), 0U);
   EXPECT_EQ(t().resolvedEntrys(), 0U);
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(chip->validRows(), 0U);
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_TRUE(traced("cleanup begin delete dance, key : 1"));
   EXPECT_EQ(tracker().users(0), 0U);
   EXPECT_EQ(tracker().underflows(), 0U);
}

class SwitchOnSmallTable : public SwitchOn {
 protected:
   TableOptions tableOptions() const override {
      TableOptions o;
      o.size = 1;
      return o;
   }
};

TEST_F(SwitchOnSmallTable, ExhaustedIndexIsReportedInsideProgramming) {
   auto profile = readyProfile(7);
   auto h1 = t().entryCommit(k(1), e(profile, 100));
   util().clearCalls();
   auto h2 = t().entryCommit(k(2), e(profile, 200));
   EXPECT_EQ(h2->resolvedEntryState(), S::hwIndexExhausted);
   EXPECT_EQ(h2->entryState(), S::hwIndexExhausted);
   EXPECT_EQ(h2->hwIndex(), Asic::kInvalidIndex);
   EXPECT_TRUE(util().calls().empty());
   EXPECT_EQ(h1->resolvedEntryState(), S::success);
}

class SwitchOnWithoutUtil : public SwitchOn {
 protected:
   TableOptions tableOptions() const override {
      TableOptions o;
      o.withUtil = false;
      return o;
   }
};

TEST_F(SwitchOnWithoutUtil, HandleCompletesWithItsIndexAndLeavesWithinOneRelease) {
   auto profile = readyProfile(7);
   auto h = t().entryCommit(k(1), e(profile, 100));
   EXPECT_EQ(h->resolvedEntryState(), S::success);
   EXPECT_EQ(h->hwIndex(), 0U);
   t().entryRemove(k(1));
   const auto name = track(h);
   h = nullptr;
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(chip->writes + chip->deletes, 0U);
   EXPECT_EQ(profile->refCount(), 1U);
}

}  // namespace
}  // namespace Test
