// The node pool: nodes never overlap however many chunks it takes, freed nodes come back, other
// sizes go to the heap, and a hash map over the pool agrees with a plain one under churn.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <set>
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

}  // namespace
}  // namespace Test
