// The node pool and the reference-counted pointer whose objects it holds: nodes never overlap
// however many chunks the pool takes, freed nodes come back first, other sizes go to the heap; a
// pointer's last user runs lastUserGone once, an uncounted holder keeps the object past it, and
// the object goes exactly when no holder is left, in both threading modes.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Fwk/NodePool.h"
#include "Fwk/Ptr.h"

namespace Test {
namespace {

struct Node {
   std::uint64_t stamp[5];
};

TEST(NodePoolTest, NodesAreDistinctKeepTheirContentsAndComeBackLastFreedFirst) {
   Fwk::NodePool pool;
   Fwk::PoolAllocator<Node> alloc(&pool);
   std::vector<Node*> nodes;
   for (std::uint64_t i = 0; i < 40'000; ++i) {  // far more chunks than the chunk size doubles
      nodes.push_back(alloc.allocate(1));
      std::fill(std::begin(nodes.back()->stamp), std::end(nodes.back()->stamp), i);
   }
   EXPECT_EQ(pool.nodesInUse(), nodes.size());
   EXPECT_LT(pool.bytesFree(), 64 * sizeof(Node));  // no more than a chunk's tail unused
   EXPECT_EQ(std::set<Node*>(nodes.begin(), nodes.end()).size(), nodes.size());
   for (std::uint64_t i = 0; i < nodes.size(); ++i) {
      for (const auto word : nodes[i]->stamp) {
         ASSERT_EQ(word, i) << "node " << i << " was overwritten";
      }
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(nodes[i]) % alignof(Node), 0U);
   }
   alloc.deallocate(nodes[7], 1);
   alloc.deallocate(nodes[3], 1);
   EXPECT_EQ(alloc.allocate(1), nodes[3]);
   EXPECT_EQ(alloc.allocate(1), nodes[7]);
   Fwk::PoolAllocator<std::uint64_t> words(alloc);  // other sizes and arrays: from the heap
   std::uint64_t* word = words.allocate(1);
   Node* array = alloc.allocate(3);
   EXPECT_TRUE(words == alloc);
   EXPECT_EQ(pool.nodesInUse(), nodes.size());
   EXPECT_EQ(pool.nodeSize(), sizeof(Node));
   words.deallocate(word, 1);
   alloc.deallocate(array, 3);
   for (Node* n : nodes) {
      alloc.deallocate(n, 1);
   }
   EXPECT_EQ(pool.nodesInUse(), 0U);
   EXPECT_GE(pool.bytesFree(), nodes.size() * sizeof(Node));  // all kept for reuse
}

TEST(NodePoolTest, AHashMapOverThePoolAgreesWithAPlainOne) {
   using Alloc = Fwk::PoolAllocator<std::pair<const std::uint64_t, std::uint64_t>>;
   Fwk::NodePool pool;
   std::unordered_map<std::uint64_t, std::uint64_t, std::hash<std::uint64_t>,
                      std::equal_to<std::uint64_t>, Alloc>
       pooled{Alloc(&pool)};
   std::map<std::uint64_t, std::uint64_t> model;
   std::mt19937_64 rng(3);
   for (std::uint64_t step = 0; step < 50'000; ++step) {
      const std::uint64_t key = rng() % 5'000;
      if (rng() % 3 == 0) {
         ASSERT_EQ(pooled.erase(key), model.erase(key));
      } else {
         pooled[key] = model[key] = step;
      }
      ASSERT_EQ(pool.nodesInUse(), pooled.size());
   }
   const std::map<std::uint64_t, std::uint64_t> walked(pooled.begin(), pooled.end());
   EXPECT_EQ(walked, model);
}

// Nodes made on one thread and freed on others stay whole in multi-threaded mode.
TEST(SharedNodePoolTest, NodesFreedOnOtherThreadsComeBackWholeOtherSizesGoToTheHeap) {
   Fwk::threadingModeIs(Fwk::ThreadingMode::multiThreaded);
   Fwk::SharedNodePool pool;
   constexpr std::size_t kThreads = 4, kPerThread = 5'000;
   const auto make = [&pool] { return pool.allocate(sizeof(Node), alignof(Node)); };
   const auto drop = [&pool](void* n) { pool.deallocate(n, sizeof(Node), alignof(Node)); };
   std::vector<std::vector<void*>> made(kThreads);
   for (auto& nodes : made) {
      std::generate_n(std::back_inserter(nodes), kPerThread, make);
   }
   std::vector<std::thread> threads;
   threads.reserve(kThreads);
   for (auto& nodes : made) {
      threads.emplace_back([&, &nodes = nodes] {
         for (void* n : nodes) {
            drop(n);
            void* again = make();  // may be any thread's freed node
            static_cast<Node*>(again)->stamp[0] = 1;
            drop(again);
         }
      });
   }
   for (auto& t : threads) {
      t.join();
   }
   Fwk::threadingModeIs(Fwk::ThreadingMode::singleThreaded);
   EXPECT_EQ(pool.nodesInUse(), 0U);
   std::set<void*> distinct;
   std::generate_n(std::inserter(distinct, distinct.end()), kThreads * kPerThread, make);
   EXPECT_EQ(distinct.size(), kThreads * kPerThread);
   struct alignas(64) Wide {
      char bytes[64];
   };
   void* wide = pool.allocate(sizeof(Wide), alignof(Wide));
   void* bigger = pool.allocate(2 * sizeof(Node), alignof(Node));
   EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wide) % 64, 0U);
   EXPECT_EQ(pool.nodesInUse(), distinct.size());
   pool.deallocate(wide, sizeof(Wide), alignof(Wide));
   pool.deallocate(bigger, 2 * sizeof(Node), alignof(Node));
   std::for_each(distinct.begin(), distinct.end(), drop);
   EXPECT_EQ(pool.nodesInUse(), 0U);
}

#if defined(__SANITIZE_ADDRESS__)
// A pooled object used after it was freed is caught as a heap object would be.
TEST(NodePoolDeathTest, UseOfAFreedNodeIsReported) {
   Fwk::NodePool pool;
   Fwk::PoolAllocator<Node> alloc(&pool);
   Node* n = alloc.allocate(1);
   alloc.deallocate(n, 1);
   EXPECT_DEATH({ [[maybe_unused]] volatile std::uint64_t read = n->stamp[2]; },
                "use-after-poison");
}
#endif

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
   void SetUp() override { Fwk::threadingModeIs(GetParam()); }
   void TearDown() override { Fwk::threadingModeIs(Fwk::ThreadingMode::singleThreaded); }
   Fwk::Ptr<Counted> make() { return Fwk::Ptr<Counted>(new Counted(life)); }
   // After `hooks` runs of lastUserGone, `live` objects.
   void expectLife(int hooks, int live) {
      EXPECT_EQ(life.hooks, hooks);
      EXPECT_EQ(life.live, live);
   }
   Life life;
};

TEST_P(PtrTest, LastUserGoneRunsOnceThenTheObjectIsDestroyed) {
   auto a = make();
   auto b = a;
   auto c = std::move(b);
   EXPECT_FALSE(b);  // NOLINT(bugprone-use-after-move): a moved-from Ptr is null; checked here
   EXPECT_EQ(c->refCount(), 2U);
   a.reset();
   expectLife(0, 1);
   c.reset();
   expectLife(1, 0);
}

TEST_P(PtrTest, UncountedHolderOutlivesTheLastUser) {
   auto container = make();
   auto client = container;
   container->uncountedHolderIs(true);
   EXPECT_EQ(container->refCount(), 1U);
   EXPECT_EQ(container->holderCount(), 2U);
   client.reset();
   expectLife(1, 1);
   container.reset();
   expectLife(1, 0);
   auto only = make();
   only->uncountedHolderIs(true);  // the only holder marked uncounted: the last use ends
   expectLife(2, 1);
   only.reset();
   expectLife(2, 0);
}

TEST_P(PtrTest, HookMayTakeReferencesOrLetTheUncountedHolderGoAndDestroysOnlyAfterIt) {
   auto p = make();
   p->onLastUserGone = [](Counted& self) { Fwk::Ptr<Counted>(&self).reset(); };
   p.reset();
   EXPECT_EQ(life.liveInHook, 1);
   expectLife(1, 0);
   auto container = make();
   auto client = container;
   container->uncountedHolderIs(true);
   client->onLastUserGone = [&container](Counted&) { container.reset(); };
   client.reset();
   EXPECT_EQ(life.liveInHook, 1);
   expectLife(2, 0);
}

// Threads drop their references at once: each object's hook runs once however the drops meet.
class PtrRaceTest : public PtrTest {};

TEST_P(PtrRaceTest, LastDropsOnSeveralThreads) {
   constexpr int kThreads = 4, kObjects = 10000;
   std::vector<Fwk::Ptr<Counted>> objects(kObjects);
   std::generate(objects.begin(), objects.end(), [this] { return make(); });
   std::barrier start(kThreads + 1);
   std::vector<std::thread> threads;
   threads.reserve(kThreads);
   for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&] {
         std::vector<Fwk::Ptr<Counted>> mine(objects.begin(), objects.end());
         start.arrive_and_wait();
      });
   }
   start.arrive_and_wait();
   objects.clear();
   for (auto& th : threads) {
      th.join();
   }
   expectLife(kObjects, 0);
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
