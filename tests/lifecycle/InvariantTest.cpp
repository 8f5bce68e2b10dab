// Broken agreements between the engine's steps stop the process, and so do operations off the
// table's owning thread; and how the value of the "PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE" switch
// reads.
#include <functional>
#include <thread>

#include "support/Scenario.h"

namespace Test {
namespace {

using DecapEngine = Asic::SwTable::Accessor<IngL3IifTable>;

class LifecycleDeathTest : public Scenario<DecapKind> {};

TEST_F(LifecycleDeathTest, ResolvingWhileTheProfileIsStillAwaitedIsFatal) {
   auto profile = pendingProfile();
   t().entryCommit(k(1), e(profile, 100));
   const auto waiting = t().unresolvedEntry(k(1));
   ASSERT_EQ(waiting->neededEntryHandleSms(), 1U);
   EXPECT_DEATH(Engine(table.get()).doResolve(waiting.get()),
                literally("ue->neededEntryHandleSms() == 0") + ".*" +
                    literally("function should not have been called"));
}

// A needed entry cannot fail for a handle whose row is being removed.
TEST_F(LifecycleDeathTest, FailedNeededEntryOnAHandleInDeletionIsFatal) {
   auto h = commitAcked(1, e(readyProfile(7), 100));
   t().entryRemove(k(1));
   h = nullptr;
   auto& eh = own(1);
   ASSERT_EQ(eh.entryType(), EH::inDeletion);
   EXPECT_DEATH(eh.entryStateIs(S::failedNeededEntry),
                literally("entryHandle->entryType() != EntryHandle::inDeletion()"));
}

// The hardware's answer reported for a handle whose value never became the resolved entry.
TEST_F(LifecycleDeathTest, HardwareAnswerWithoutResolvedEntryIsFatal) {
   t().entryCommit(k(1), e(pendingProfile(), 100));
   EXPECT_DEATH(Engine(table.get()).handleResolvedEntryState(&own(1)),
                literally("swTable_->resolvedEntryHas( key )"));
}

// A table belongs to the thread that made it: an operation, or the release that leaves one of its
// handles without users, on another thread stops a build with debug checks.
TEST_F(LifecycleDeathTest, OperationsAndLastReleasesOffTheOwningThreadAreFatal) {
#if defined(NDEBUG)
   GTEST_SKIP() << "debug checks are compiled out of this build";
#endif
   const auto elsewhere = [](const std::function<void()>& run) { std::thread(run).join(); };
   const std::string message = literally("run on the thread that made the table");
   auto profile = readyProfile(7);
   EXPECT_DEATH(elsewhere([&] { t().entryCommit(k(1), e(profile, 100)); }), message);
   EXPECT_DEATH(elsewhere([&] { static_cast<void>(t().entryHas(k(1))); }), message);
   HandlePtr h = t().entryRef(k(2), e(pendingProfile(), 200));
   HandlePtr other = h;
   elsewhere([&] { other = nullptr; });  // not the last user: the handle's clean-up does not run
   EXPECT_DEATH(elsewhere([&] { h = nullptr; }), message);
   h = nullptr;  // here its clean-up runs: a waiting reference goes at once
   EXPECT_FALSE(t().entryHandleHas(k(2)));
}

struct SwitchValue {
   const char* name;
   const char* text;  // null: the variable is not set
   bool on;
   friend void PrintTo(const SwitchValue& v, std::ostream* os) { *os << v.name; }
};

class SwitchValueTest : public ::testing::TestWithParam<SwitchValue> {};

TEST_P(SwitchValueTest, ParsesAsABaseTenIntegerAndIsOnWhenNotZero) {
   EXPECT_EQ(DecapEngine::switchValueOn(GetParam().text), GetParam().on);
}

INSTANTIATE_TEST_SUITE_P(
    Values, SwitchValueTest,
    ::testing::Values(SwitchValue{"Unset", nullptr, false}, SwitchValue{"Empty", "", false},
                      SwitchValue{"Zero", "0", false}, SwitchValue{"Word", "no", false},
                      SwitchValue{"HexReadAsZero", "0x10", false},
                      SwitchValue{"BlankMinusZero", " -0", false}, SwitchValue{"One", "1", true},
                      SwitchValue{"MinusOne", "-1", true}, SwitchValue{"LeadingBlank", " 7", true},
                      SwitchValue{"PlusSign", "+3", true},
                      SwitchValue{"TrailingLetters", "2abc", true}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace Test
