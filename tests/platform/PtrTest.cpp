// Reference counting: lastUserGone runs exactly once when the last user goes, an uncounted holder
// keeps the object alive past it, and the object is destroyed exactly when no holder is left, in
// both threading modes.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <functional>
#include <thread>
#include <vector>

#include "Fwk/Ptr.h"

namespace Test {
namespace {

struct Life {
   std::atomic<int> live{0};
   std::atomic<int> hooks{0};
   int liveInHook = -1;
};

class Counted : public Fwk::PtrInterface {
 public:
   explicit Counted(Life& life) : life_(life) { ++life_.live; }
   std::function<void(Counted&)> onLastUserGone;

 protected:
   ~Counted() override { --life_.live; }
   void lastUserGone() override {
      ++life_.hooks;
      if (onLastUserGone) {
         onLastUserGone(*this);
      }
      life_.liveInHook = life_.live;
   }

 private:
   Life& life_;
};

class PtrTest : public ::testing::TestWithParam<Fwk::ThreadingMode> {
 protected:
   void SetUp() override {
      Fwk::threadingModeIs(GetParam());
      ASSERT_EQ(Fwk::threadingMode(), GetParam());
   }
   void TearDown() override { Fwk::threadingModeIs(Fwk::ThreadingMode::singleThreaded); }
   Fwk::Ptr<Counted> make() { return Fwk::Ptr<Counted>(new Counted(life)); }
   Life life;
};

TEST_P(PtrTest, LastUserGoneRunsOnceThenTheObjectIsDestroyed) {
   auto a = make();
   auto b = a;
   auto c = std::move(b);
   EXPECT_FALSE(b);  // NOLINT(bugprone-use-after-move): a moved-from Ptr is null; checked here
   EXPECT_EQ(c->refCount(), 2U);
   a.reset();
   EXPECT_EQ(life.hooks, 0);
   EXPECT_EQ(life.live, 1);
   c.reset();
   EXPECT_EQ(life.hooks, 1);
   EXPECT_EQ(life.live, 0);
}

TEST_P(PtrTest, UncountedHolderOutlivesTheLastUser) {
   auto container = make();
   auto client = container;
   container->uncountedHolderIs(true);
   EXPECT_EQ(container->refCount(), 1U);
   EXPECT_EQ(container->holderCount(), 2U);
   client.reset();
   EXPECT_EQ(life.hooks, 1);
   EXPECT_EQ(life.live, 1);
   container.reset();
   EXPECT_EQ(life.hooks, 1);
   EXPECT_EQ(life.live, 0);
}

TEST_P(PtrTest, MarkingTheOnlyHolderUncountedEndsTheLastUse) {
   auto container = make();
   container->uncountedHolderIs(true);
   EXPECT_EQ(life.hooks, 1);
   EXPECT_EQ(life.live, 1);
   container.reset();
   EXPECT_EQ(life.hooks, 1);
   EXPECT_EQ(life.live, 0);
}

TEST_P(PtrTest, ReferencesTakenInsideTheHookNeitherReenterNorDestroy) {
   auto p = make();
   p->onLastUserGone = [](Counted& self) {
      Fwk::Ptr<Counted> again(&self);
      again.reset();
   };
   p.reset();
   EXPECT_EQ(life.hooks, 1);
   EXPECT_EQ(life.liveInHook, 1);
   EXPECT_EQ(life.live, 0);
}

TEST_P(PtrTest, UncountedHolderLeavingInsideTheHookDestroysAfterIt) {
   auto container = make();
   auto client = container;
   container->uncountedHolderIs(true);
   client->onLastUserGone = [&container](Counted&) { container.reset(); };
   client.reset();
   EXPECT_EQ(life.hooks, 1);
   EXPECT_EQ(life.liveInHook, 1);
   EXPECT_EQ(life.live, 0);
}

// Threads drop their references to shared objects at once: every object sees its hook exactly
// once and is destroyed, however the last drops interleave.
class PtrRaceTest : public PtrTest {};

TEST_P(PtrRaceTest, LastDropsOnSeveralThreads) {
   constexpr int kThreads = 4;
   constexpr int kObjects = 10000;
   std::vector<Fwk::Ptr<Counted>> objects(kObjects);
   for (auto& o : objects) {
      o = make();
   }
   std::barrier start(kThreads + 1);
   std::vector<std::thread> threads;
   threads.reserve(kThreads);
   for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&] {
         std::vector<Fwk::Ptr<Counted>> mine(objects.begin(), objects.end());
         start.arrive_and_wait();
         mine.clear();
      });
   }
   start.arrive_and_wait();
   EXPECT_EQ(life.hooks, 0);
   objects.clear();
   for (auto& th : threads) {
      th.join();
   }
   EXPECT_EQ(life.hooks, kObjects);
   EXPECT_EQ(life.live, 0);
}

INSTANTIATE_TEST_SUITE_P(Modes, PtrTest,
                         ::testing::Values(Fwk::ThreadingMode::singleThreaded,
                                           Fwk::ThreadingMode::multiThreaded),
                         [](const auto& info) {
                            return info.param == Fwk::ThreadingMode::singleThreaded ? "Single"
                                                                                    : "Multi";
                         });

INSTANTIATE_TEST_SUITE_P(Modes, PtrRaceTest, ::testing::Values(Fwk::ThreadingMode::multiThreaded),
                         [](const auto&) { return "Multi"; });

}  // namespace
}  // namespace Test
