// The node pool: nodes never overlap however many chunks it takes, freed nodes come back, other
// sizes go to the heap, and a hash map over the pool agrees with a plain one under churn.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Fwk/NodePool.h"

namespace Test {
namespace {

struct Node {
   std::uint64_t stamp[5];
};

TEST(NodePoolTest, NodesOfManyChunksAreDistinctAndKeepWhatIsWrittenInThem) {
   Fwk::NodePool pool;
   Fwk::PoolAllocator<Node> alloc(&pool);
   std::vector<Node*> nodes;
   for (std::uint64_t i = 0; i < 40'000; ++i) {  // far more chunks than the chunk size doubles
      Node* n = alloc.allocate(1);
      for (auto& word : n->stamp) {
         word = i;
      }
      nodes.push_back(n);
   }
   EXPECT_EQ(pool.nodesInUse(), nodes.size());
   EXPECT_EQ(pool.nodeSize(), sizeof(Node));
   EXPECT_LT(pool.bytesFree(), 64 * sizeof(Node));  // no more than a chunk's tail unused
   const std::set<Node*> distinct(nodes.begin(), nodes.end());
   EXPECT_EQ(distinct.size(), nodes.size());
   for (std::uint64_t i = 0; i < nodes.size(); ++i) {
      for (const auto word : nodes[i]->stamp) {
         ASSERT_EQ(word, i) << "node " << i << " was overwritten";
      }
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(nodes[i]) % alignof(Node), 0U);
   }
   for (Node* n : nodes) {
      alloc.deallocate(n, 1);
   }
   EXPECT_EQ(pool.nodesInUse(), 0U);
   EXPECT_GE(pool.bytesFree(), nodes.size() * sizeof(Node));  // all kept for reuse
}

TEST(NodePoolTest, AFreedNodeIsTheNextOneHandedOut) {
   Fwk::NodePool pool;
   Fwk::PoolAllocator<Node> alloc(&pool);
   Node* a = alloc.allocate(1);
   Node* b = alloc.allocate(1);
   alloc.deallocate(a, 1);
   EXPECT_EQ(alloc.allocate(1), a);
   alloc.deallocate(b, 1);
   alloc.deallocate(a, 1);
   EXPECT_EQ(alloc.allocate(1), a);  // last freed, first out
   EXPECT_EQ(alloc.allocate(1), b);
   EXPECT_EQ(pool.nodesInUse(), 2U);
   alloc.deallocate(a, 1);
   alloc.deallocate(b, 1);
}

TEST(NodePoolTest, ArraysAndOtherSizesComeFromTheHeap) {
   Fwk::NodePool pool;
   Fwk::PoolAllocator<Node> nodes(&pool);
   Node* n = nodes.allocate(1);
   Fwk::PoolAllocator<std::uint64_t> words(nodes);
   std::uint64_t* w = words.allocate(1);
   Node* array = nodes.allocate(3);
   EXPECT_EQ(pool.nodesInUse(), 1U);
   EXPECT_EQ(pool.nodeSize(), sizeof(Node));
   EXPECT_TRUE(words == nodes);
   words.deallocate(w, 1);
   nodes.deallocate(array, 3);
   nodes.deallocate(n, 1);
   EXPECT_EQ(pool.nodesInUse(), 0U);
}

TEST(NodePoolTest, AHashMapOverThePoolAgreesWithAPlainOne) {
   using Alloc = Fwk::PoolAllocator<std::pair<const std::uint64_t, std::uint64_t>>;
   Fwk::NodePool pool;
   std::unordered_map<std::uint64_t, std::uint64_t, std::hash<std::uint64_t>,
                      std::equal_to<std::uint64_t>, Alloc>
       pooled{Alloc(&pool)};
   std::map<std::uint64_t, std::uint64_t> model;
   std::mt19937_64 rng(3);
   for (int step = 0; step < 50'000; ++step) {
      const std::uint64_t key = rng() % 5'000;
      if (rng() % 3 == 0) {
         ASSERT_EQ(pooled.erase(key), model.erase(key));
      } else {
         pooled[key] = static_cast<std::uint64_t>(step);
         model[key] = static_cast<std::uint64_t>(step);
      }
      ASSERT_EQ(pool.nodesInUse(), pooled.size());
   }
   ASSERT_EQ(pooled.size(), model.size());
   for (const auto& [key, value] : model) {
      ASSERT_EQ(pooled.at(key), value);
   }
}

// Objects made on one thread and freed on others, as handles whose last reference drops
// elsewhere: in multi-threaded mode the shared pool stays consistent.
TEST(SharedNodePoolTest, NodesFreedOnOtherThreadsComeBackWhole) {
   Fwk::threadingModeIs(Fwk::ThreadingMode::multiThreaded);
   Fwk::SharedNodePool pool;
   constexpr int kThreads = 4;
   constexpr int kPerThread = 5'000;
   std::vector<std::vector<Node*>> made(kThreads);
   for (auto& nodes : made) {
      nodes.reserve(kPerThread);
      for (int i = 0; i < kPerThread; ++i) {
         nodes.push_back(static_cast<Node*>(pool.allocate(sizeof(Node), alignof(Node))));
      }
   }
   std::vector<std::thread> threads;
   threads.reserve(kThreads);
   for (auto& nodes : made) {
      threads.emplace_back([&pool, &nodes] {
         for (Node* n : nodes) {
            pool.deallocate(n, sizeof(Node), alignof(Node));
            // and at once another one, which may be any thread's freed node
            Node* again = static_cast<Node*>(pool.allocate(sizeof(Node), alignof(Node)));
            again->stamp[0] = 1;
            pool.deallocate(again, sizeof(Node), alignof(Node));
         }
      });
   }
   for (auto& t : threads) {
      t.join();
   }
   Fwk::threadingModeIs(Fwk::ThreadingMode::singleThreaded);
   EXPECT_EQ(pool.nodesInUse(), 0U);
   std::set<void*> distinct;
   for (int i = 0; i < kThreads * kPerThread; ++i) {
      distinct.insert(pool.allocate(sizeof(Node), alignof(Node)));
   }
   EXPECT_EQ(distinct.size(), static_cast<std::size_t>(kThreads * kPerThread));
   for (void* n : distinct) {
      pool.deallocate(n, sizeof(Node), alignof(Node));
   }
}

TEST(SharedNodePoolTest, OtherSizesAndAlignmentsComeFromTheHeap) {
   Fwk::SharedNodePool pool;
   void* node = pool.allocate(sizeof(Node), alignof(Node));
   void* bigger = pool.allocate(2 * sizeof(Node), alignof(Node));
   struct alignas(64) Wide {
      char bytes[64];
   };
   void* wide = pool.allocate(sizeof(Wide), alignof(Wide));
   EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wide) % 64, 0U);
   EXPECT_EQ(pool.nodesInUse(), 1U);
   pool.deallocate(wide, sizeof(Wide), alignof(Wide));
   pool.deallocate(bigger, 2 * sizeof(Node), alignof(Node));
   pool.deallocate(node, sizeof(Node), alignof(Node));
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

}  // namespace
}  // namespace Test
