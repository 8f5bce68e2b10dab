// The probed hash set against std::unordered_map: the same answers and the same members after
// every step of long random runs, with a well-spread hash and with hashes that pile keys into long
// probe runs. Slots own heap memory and can only be moved, so a slot lost, duplicated or left
// behind by the moves of an erase or a growth shows up under the sanitizers as well.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <unordered_map>

#include "Asic/Types.h"
#include "Fwk/ProbedTable.h"

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

struct SpreadHash {
   std::uint64_t operator()(std::uint32_t type, std::uint64_t bits) const noexcept {
      return Fwk::probeMix(bits + type * 0x9e3779b97f4a7c15ULL);
   }
};
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
struct Traits {
   using Key = Test::Key;
   struct Slot {
      Key key{};
      std::unique_ptr<Index> index;
   };
   static bool occupied(const Slot& slot) noexcept { return slot.index != nullptr; }
   std::uint64_t hash(const Key& key) const noexcept { return Hash()(key.type, key.bits); }
   std::uint64_t hashOf(const Slot& slot) const noexcept { return hash(slot.key); }
   bool holds(const Slot& slot, const Key& key, std::uint64_t) const noexcept {
      return slot.key == key;
   }
};
template <class Hash>
using Table = Fwk::ProbedTable<Traits<Hash>>;
template <class Hash>
typename Traits<Hash>::Slot slot(Key key, Index index) {
   return {key, std::make_unique<Index>(index)};
}
// The key's index in the table, or the invalid index.
template <class Hash>
Index found(const Table<Hash>& table, Key key) {
   const auto* s = table.find(key);
   return s ? *s->index : kInvalidIndex;
}

template <class Hash>
class ProbedTableRun {
 public:
   ProbedTableRun(unsigned seed, std::uint64_t keySpace) : rng_(seed), keySpace_(keySpace) {}

   // `steps` random inserts, erases and finds (insert weighted by `insertShare` out of 4), each
   // checked against the model.
   void churn(int steps, unsigned insertShare) {
      for (int step = 0; step < steps; ++step) {
         const Key key{static_cast<std::uint32_t>(1 + rng_() % 3), rng_() % keySpace_};
         const auto it = model_.find(key);
         const unsigned what = rng_() % 4;
         if (what < insertShare && it == model_.end()) {  // insert takes keys not in the table
            const auto index = static_cast<Index>(rng_() % 1'000'000);
            ASSERT_EQ(*table_.insert(slot<Hash>(key, index)).index, index);
            model_.emplace(key, index);
         } else if (what < insertShare || what == 3) {
            ASSERT_EQ(found(table_, key), it == model_.end() ? kInvalidIndex : it->second);
         } else {
            const auto removed = table_.erase(key);
            ASSERT_EQ(removed.index ? *removed.index : kInvalidIndex,
                      it == model_.end() ? kInvalidIndex : it->second);
            if (it != model_.end()) {
               model_.erase(it);
            }
         }
         ASSERT_EQ(table_.size(), model_.size());
         if (step % 997 == 0) {
            expectAllFound();
         }
      }
      expectAllFound();
   }
   // Every key of the key space against the model; the walk visits each member once.
   void expectAllFound() const {
      Model walked;
      for (const auto& member : table_) {
         ASSERT_TRUE(walked.emplace(member.key, *member.index).second);
      }
      ASSERT_EQ(walked, model_);
      for (std::uint32_t type = 1; type <= 3; ++type) {
         for (std::uint64_t bits = 0; bits < keySpace_; ++bits) {
            const auto it = model_.find(Key{type, bits});
            ASSERT_EQ(found(table_, Key{type, bits}),
                      it == model_.end() ? kInvalidIndex : it->second);
         }
      }
   }
   std::size_t size() const { return model_.size(); }

 private:
   std::mt19937_64 rng_;
   std::uint64_t keySpace_;
   Table<Hash> table_;
   Model model_;
};

template <class Hash>
class ProbedTableTest : public ::testing::Test {};
using Hashes = ::testing::Types<SpreadHash, OneHomeHash, LastSlotHash, FourHomesHash>;
TYPED_TEST_SUITE(ProbedTableTest, Hashes);

TYPED_TEST(ProbedTableTest, EmptiedOrClearedTableFindsErasesAndWalksNothingAndFillsAgain) {
   Table<TypeParam> table;
   EXPECT_EQ(table.erase({1, 0}).index, nullptr);
   for (std::uint64_t bits = 0; bits < 100; ++bits) {
      table.insert(slot<TypeParam>({1, bits}, static_cast<Index>(bits)));
   }
   EXPECT_EQ(*table.erase({1, 7}).index, 7U);
   EXPECT_EQ(table.find({1, 7}), nullptr);
   table.clear();
   EXPECT_TRUE(table.empty());
   EXPECT_EQ(table.begin(), table.end());
   EXPECT_EQ(table.find({1, 5}), nullptr);
   table.insert(slot<TypeParam>({1, 5}, 9));
   EXPECT_EQ(found(table, {1, 5}), 9U);
}

TYPED_TEST(ProbedTableTest, AgreesWithTheModelWhileGrowingAndUnderHeavyChurn) {
   ProbedTableRun<TypeParam> growing(1, 700);
   growing.churn(3000, 3);  // mostly inserts: the table grows several times
   EXPECT_GT(growing.size(), 1000U);
   for (unsigned seed = 2; seed < 6; ++seed) {
      ProbedTableRun<TypeParam> run(seed, 300);
      run.churn(1500, 3);  // fill up
      run.churn(8000, 2);  // as many erases as inserts, at a steady fill
      run.churn(2000, 1);  // mostly erases: down to a nearly empty table
   }
}

}  // namespace
}  // namespace Test
