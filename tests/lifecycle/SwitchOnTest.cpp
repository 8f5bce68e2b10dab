// With "PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE" on, programming completes a handle itself instead of
// waiting for the hardware's acknowledgement. The switch is read once per process: ctest runs
// these tests again in a process of their own with the switch on (CMakeLists.txt); with it off
// they skip.
#include <cstdlib>

#include "support/Scenario.h"

namespace Test {
namespace {

template <class Kind>
class SwitchOn : public Scenario<Kind> {
 protected:
   void SetUp() override {
      if (!Scenario<Kind>::Engine::publishEntryHandleProgrammedState()) {
         GTEST_SKIP() << "runs with PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE=1 (ctest's switch_on.)";
      }
      Scenario<Kind>::SetUp();
   }
};
TYPED_TEST_SUITE(SwitchOn, TableKinds, KindNames);

TYPED_TEST(SwitchOn, SuccessArrivesInsideProgrammingAndTheSwitchIsReadOnce) {
   ::setenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE", "0", 1);  // too late: read already
   auto p7 = readyProfile(7);
   auto h = this->t().entryCommit(this->k(1), this->e(p7, 100));
   ::setenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE", "1", 1);
   EXPECT_EQ(h->resolvedEntryState(), S::success);
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_FALSE(this->util().publishHwIndexInHandle());
   EXPECT_EQ(h->hwIndex(), 0U);
   const Calls order{"programHwEntry key: 1, entryState:inProgress",
                     "handleEntryState entryhandle state: success at key : 1"};
   EXPECT_EQ(this->tracedAmong(order), order);

   // A new value: the previous one is dropped from the handle as soon as the new one is written.
   this->t().entryCommit(this->k(1), this->e(readyProfile(8), 200));
   EXPECT_EQ(h->entryState(), S::success);
   EXPECT_EQ(this->own(1).pendingEntrys(), 0U);
   EXPECT_EQ(p7->refCount(), 1U);

   // The hardware's later acknowledgements change nothing.
   this->util().ackAll(this->t());
   EXPECT_EQ(h->entryState(), S::success);
}

TYPED_TEST(SwitchOn, DeleteDanceCompletesWithinOneRelease) {
   auto profile = readyProfile(7);
   auto h = this->t().entryCommit(this->k(1), this->e(profile, 100));
   this->t().entryRemove(this->k(1));
   const auto name = track(h);
   this->util().clearCalls();
   h = nullptr;
   EXPECT_EQ(this->util().calls(),
             (Calls{"tracker 0 empty", "write 0 empty", "tracker 0 releaseEmpty", "delete 0"}));
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(this->t().entrys(), 0U);
   EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(profile->refCount(), 1U);
   EXPECT_EQ(this->tracker().users(0), 0U);
   EXPECT_EQ(this->tracker().underflows(), 0U);
}

TYPED_TEST(SwitchOn, ExhaustedIndexIsReportedInsideProgramming) {
   this->freshTable(TableOptions{.size = 1});
   auto profile = readyProfile(7);
   auto h1 = this->t().entryCommit(this->k(1), this->e(profile, 100));
   auto h2 = this->t().entryCommit(this->k(2), this->e(profile, 200));
   EXPECT_EQ(h2->resolvedEntryState(), S::hwIndexExhausted);
   EXPECT_EQ(h2->entryState(), S::hwIndexExhausted);
   EXPECT_EQ(h2->hwIndex(), Asic::kInvalidIndex);
   EXPECT_EQ(h1->resolvedEntryState(), S::success);
}

TYPED_TEST(SwitchOn, WithoutUtilTheHandleCompletesWithItsIndexAndLeavesWithinOneRelease) {
   this->freshTable(TableOptions{.withUtil = false});
   auto profile = readyProfile(7);
   auto h = this->t().entryCommit(this->k(1), this->e(profile, 100));
   EXPECT_EQ(h->resolvedEntryState(), S::success);
   EXPECT_EQ(h->hwIndex(), 0U);
   this->t().entryRemove(this->k(1));
   const auto name = track(h);
   h = nullptr;
   EXPECT_FALSE(alive(name));
   EXPECT_EQ(this->indexOf(1), Asic::kInvalidIndex);
   EXPECT_EQ(this->chip->writes + this->chip->deletes, 0U);
}

}  // namespace
}  // namespace Test
