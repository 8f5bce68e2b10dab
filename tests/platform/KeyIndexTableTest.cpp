// The allocator's index by key against std::unordered_map: the same answers after every step of
// long random runs, with the real hash and with hashes that pile keys into long probe runs.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <unordered_map>

#include "Asic/KeyIndexTable.h"

namespace Test {
namespace {

using Asic::Index;
using Asic::kInvalidIndex;

struct Key {
   std::uint32_t type;
   std::uint64_t bits;
   bool operator==(const Key&) const = default;
};
struct ModelHash {
   std::size_t operator()(const Key& k) const noexcept {
      return std::hash<std::uint64_t>()(k.bits) ^ k.type;
   }
};
using Model = std::unordered_map<Key, Index, ModelHash>;

// Every key has the same home: one run holds them all.
struct OneHomeHash {
   std::uint64_t operator()(std::uint32_t, std::uint64_t) const noexcept { return 0; }
};
// Every key's home is the last slot: every run wraps around the end of the array.
struct LastSlotHash {
   std::uint64_t operator()(std::uint32_t, std::uint64_t) const noexcept { return ~0ULL; }
};
// Four homes, a quarter of the array apart: long runs that meet and wrap.
struct FourHomesHash {
   std::uint64_t operator()(std::uint32_t type, std::uint64_t bits) const noexcept {
      return (bits + type) << 62;
   }
};

template <class Hash>
class KeyIndexTableRun {
 public:
   KeyIndexTableRun(unsigned seed, std::uint64_t keySpace) : rng_(seed), keySpace_(keySpace) {}

   Key randomKey() { return Key{static_cast<std::uint32_t>(1 + rng_() % 3), rng_() % keySpace_}; }

   void insert(const Key& key) {
      if (model_.contains(key)) {
         return;  // the table's insert takes keys that are not in it
      }
      const auto index = static_cast<Index>(rng_() % 1'000'000);
      table_.insert(key.type, key.bits, index);
      model_.emplace(key, index);
   }
   void erase(const Key& key) {
      ASSERT_EQ(table_.erase(key.type, key.bits), model_.erase(key) == 1)
          << "type " << key.type << " bits " << key.bits;
   }
   void expectFound(const Key& key) const {
      const auto it = model_.find(key);
      ASSERT_EQ(table_.find(key.type, key.bits), it == model_.end() ? kInvalidIndex : it->second)
          << "type " << key.type << " bits " << key.bits;
   }
   // Every key of the key space, of every type, against the model.
   void expectAllFound() const {
      ASSERT_EQ(table_.size(), model_.size());
      for (std::uint32_t type = 1; type <= 3; ++type) {
         for (std::uint64_t bits = 0; bits < keySpace_; ++bits) {
            expectFound(Key{type, bits});
         }
      }
   }

   // `steps` random inserts, erases and finds (insert weighted by `insertShare` out of 4).
   void churn(int steps, unsigned insertShare) {
      for (int step = 0; step < steps; ++step) {
         const Key key = randomKey();
         const unsigned what = rng_() % 4;
         if (what < insertShare) {
            insert(key);
         } else if (what == 3) {
            expectFound(key);
         } else {
            erase(key);
         }
         ASSERT_EQ(table_.size(), model_.size());
         if (step % 997 == 0) {
            expectAllFound();
         }
      }
      expectAllFound();
   }
   std::size_t size() const { return model_.size(); }

 private:
   std::mt19937_64 rng_;
   std::uint64_t keySpace_;
   Asic::KeyIndexTable<Hash> table_;
   Model model_;
};

template <class Hash>
class KeyIndexTableTest : public ::testing::Test {};
using Hashes = ::testing::Types<Asic::KeyIndexHash, OneHomeHash, LastSlotHash, FourHomesHash>;
TYPED_TEST_SUITE(KeyIndexTableTest, Hashes);

TYPED_TEST(KeyIndexTableTest, EmptyTableFindsAndErasesNothing) {
   Asic::KeyIndexTable<TypeParam> table;
   EXPECT_EQ(table.find(1, 0), kInvalidIndex);
   EXPECT_FALSE(table.erase(1, 0));
   table.insert(1, 0, 7);
   EXPECT_TRUE(table.erase(1, 0));
   EXPECT_EQ(table.find(1, 0), kInvalidIndex);
   EXPECT_EQ(table.size(), 0U);
}

TYPED_TEST(KeyIndexTableTest, SameBitsOfAnotherTypeAreAnotherKey) {
   Asic::KeyIndexTable<TypeParam> table;
   table.insert(1, 42, 3);
   table.insert(2, 42, 4);
   EXPECT_EQ(table.find(1, 42), 3U);
   EXPECT_EQ(table.find(2, 42), 4U);
   EXPECT_EQ(table.find(3, 42), kInvalidIndex);
   EXPECT_TRUE(table.erase(1, 42));
   EXPECT_EQ(table.find(2, 42), 4U);
}

TYPED_TEST(KeyIndexTableTest, AgreesWithTheModelWhileGrowing) {
   KeyIndexTableRun<TypeParam> run(1, 700);
   run.churn(3000, 3);  // mostly inserts: the table grows several times
   EXPECT_GT(run.size(), 1000U);
}

TYPED_TEST(KeyIndexTableTest, AgreesWithTheModelUnderHeavyChurn) {
   for (unsigned seed = 2; seed < 6; ++seed) {
      KeyIndexTableRun<TypeParam> run(seed, 300);
      run.churn(1500, 3);  // fill up
      run.churn(8000, 2);  // as many erases as inserts, at a steady fill
      run.churn(2000, 1);  // mostly erases: down to a nearly empty table
   }
}

TEST(KeyIndexTableTest, ManyKeysWithTheRealHash) {
   KeyIndexTableRun<Asic::KeyIndexHash> run(7, 20'000);
   run.churn(60'000, 3);
   run.churn(60'000, 1);
}

}  // namespace
}  // namespace Test
