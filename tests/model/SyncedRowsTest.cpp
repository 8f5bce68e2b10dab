// The synced rows on their own (AsicSwTable/SyncedRows.h): ascending order whatever the order
// rows arrive in, gaps that removals leave and that are closed later, and the walk that goes on
// from its current row while rows are removed and added.
#include <gtest/gtest.h>

#include <vector>

#include "AsicSwTable/SyncedRows.h"

namespace Test {
namespace {

using Asic::Index;
using Rows = Asic::SyncedRows<int>;  // a row's entry: an int

class SyncedRowsTest : public ::testing::Test {
 protected:
   void fill(std::initializer_list<Index> indices) {
      for (const Index i : indices) {
         rows.insert(i, static_cast<int>(i));
      }
   }
   void erase(Index i) { EXPECT_EQ(rows.erase(*rows.find(i)), static_cast<int>(i)); }
   std::vector<Index> walk(Index from = 0) const {
      std::vector<Index> out;
      for (auto it = rows.iter(from); !it.done(); it.advance()) {
         EXPECT_EQ(it.entry(), static_cast<int>(it.index()));
         out.push_back(it.index());
      }
      return out;
   }
   Rows rows;
};

TEST_F(SyncedRowsTest, RowsComeBackInAscendingOrderIntoTheirGaps) {
   fill({10, 20, 30, 40, 50, 60});
   erase(20);
   erase(30);
   fill({30, 35, 5, 70});
   EXPECT_EQ(walk(), (std::vector<Index>{5, 10, 30, 35, 40, 50, 60, 70}));
   EXPECT_EQ(rows.size(), 8U);
   EXPECT_EQ(rows.find(20), nullptr);
   ASSERT_NE(rows.find(35), nullptr);
   EXPECT_EQ(rows.find(35)->entry, 35);
   EXPECT_EQ(walk(11), (std::vector<Index>{30, 35, 40, 50, 60, 70}));
   EXPECT_TRUE(walk(71).empty());
}

TEST_F(SyncedRowsTest, WalkFindsTheSuccessorAfterRemovalsAndInsertions) {
   fill({10, 20, 30, 40, 50});
   std::vector<Index> visited;
   for (auto it = rows.iter(0); !it.done(); it.advance()) {
      visited.push_back(it.index());
      if (it.index() == 20) {
         erase(20);
         erase(30);
         EXPECT_EQ(it.entry(), 20);  // the removed current row stays readable
      } else if (it.index() == 40) {
         fill({45});
      }
   }
   EXPECT_EQ(visited, (std::vector<Index>{10, 20, 40, 45, 50}));
   EXPECT_EQ(walk(), (std::vector<Index>{10, 40, 45, 50}));
}

// Removing all but one row of a range without holes: the gaps get closed on the way (eight to
// one), and a walk that removes rows as it goes still visits every row once.
TEST_F(SyncedRowsTest, ClosingTheGapsLosesNoRowAndKeepsTheWalk) {
   for (Index i = 0; i < 64; ++i) {
      fill({100 + i});
   }
   std::size_t visited = 0;
   for (auto it = rows.iter(0); !it.done(); it.advance()) {
      ++visited;
      if (it.index() != 163) {
         erase(it.index());
      }
   }
   EXPECT_EQ(visited, 64U);
   EXPECT_EQ(walk(), (std::vector<Index>{163}));
   fill({99, 200, 150});
   EXPECT_EQ(walk(), (std::vector<Index>{99, 150, 163, 200}));
   EXPECT_EQ(rows.size(), 4U);
   rows.clear();
   EXPECT_TRUE(walk().empty());
   EXPECT_EQ(rows.size(), 0U);
}

}  // namespace
}  // namespace Test
