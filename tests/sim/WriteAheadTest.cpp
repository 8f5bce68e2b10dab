// The simulated chip's write queue and the state store: whatever prefix of the queued writes a
// kill lets reach the chip, the store's committed bindings name the key of every valued row.
// Random row operations in the order the table's engine issues them (a row goes to a key, is
// rewritten, emptied, deleted, reused), with reads and commits of every batch size between them.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <random>

#include "sim/SimChip.h"
#include "sim/StateStore.h"
#include "support/ScratchDir.h"

namespace {

using Sim::DecapRow;
using Sim::RowState;

constexpr std::uint32_t kRows = 16;
constexpr std::uint64_t kKeys = 24;

// A row's content names its key (vrf), so the chip tells whose each valued row is.
DecapRow rowFor(std::uint64_t key, std::uint8_t version) {
   return DecapRow{RowState::valued, version, true, false, false, static_cast<std::uint32_t>(key)};
}

// Row to key of the bindings a store has committed.
std::map<std::uint32_t, std::uint64_t> durableBindings(const std::string& path) {
   std::map<std::uint32_t, std::uint64_t> durable;
   const auto store = Sim::StateStore::open(path, true);
   for (const Sim::Binding& b : store->bindings()) {
      durable.emplace(b.row, b.key);
   }
   return durable;
}

// The store, checked each time it commits: its durable bindings must cover the rows already on
// the chip and the rows queued for it.
class CheckedJournal : public Sim::RowJournal {
 public:
   CheckedJournal(Sim::StateStore& store, const Sim::ChipState& chip)
       : store_(store), chip_(chip) {}

   bool mustWaitForQueue(std::uint32_t index, std::uint64_t key) const override {
      return store_.mustWaitForQueue(index, key);
   }
   void ownerIs(std::uint32_t index, std::uint64_t key) override {
      store_.ownerIs(index, key);
      queuedOwners_[index] = key;
   }
   void rowDeleted(std::uint32_t index, std::optional<std::uint64_t> owner) override {
      store_.rowDeleted(index, owner);
   }
   void commit() override {
      store_.commit();
      const auto durable = durableBindings(store_.path());
      for (std::uint32_t i = 0; i < kRows; ++i) {
         const DecapRow row = chip_.decapRow(i);
         const auto queued = queuedOwners_.find(i);
         if (queued != queuedOwners_.end() || row.state == RowState::valued) {
            const auto bound = durable.find(i);
            EXPECT_EQ(bound == durable.end() ? ~0ULL : bound->second,
                      queued != queuedOwners_.end() ? queued->second : row.vrf)
                << "row " << i << " is on the chip or queued for it without its key's binding";
         }
      }
   }
   void applied() override {
      store_.applied();
      queuedOwners_.clear();
   }

 private:
   Sim::StateStore& store_;
   const Sim::ChipState& chip_;
   std::map<std::uint32_t, std::uint64_t> queuedOwners_;
};

class WriteAheadTest : public ::testing::TestWithParam<std::uint64_t> {
 protected:
   const ::Test::ScratchDir scratch{"l3decap-writeahead"};
};

TEST_P(WriteAheadTest, EveryRowOnTheChipOrQueuedForItHasItsKeysDurableBinding) {
   std::mt19937_64 rng(GetParam());
   const auto pick = [&](std::uint64_t n) {
      return std::uniform_int_distribution<std::uint64_t>(0, n - 1)(rng);
   };
   Sim::SimChip chip(Sim::ChipState::inMemory(kRows));
   const auto store = Sim::StateStore::create((scratch.path() / "chip.db").string(), chip.state());
   CheckedJournal journal(*store, chip.state());
   chip.journalIs(&journal, 1 + pick(8));

   std::map<std::uint64_t, std::uint32_t> rowOf;  // the allocator: key to row
   std::map<std::uint32_t, DecapRow> expected;    // every row, queued writes included
   for (int step = 0; step < 400; ++step) {
      const std::uint64_t key = pick(kKeys);
      const auto it = rowOf.find(key);
      const DecapRow content = rowFor(key, static_cast<std::uint8_t>(step));
      if (it == rowOf.end()) {
         // A new entry takes the first free row, as the allocator gives it.
         std::uint32_t row = 0;
         while (row < kRows && expected[row].state != RowState::free) {
            ++row;
         }
         if (row < kRows) {
            chip.decapRowIs(row, content, key);
            expected[row] = content;
            rowOf[key] = row;
         }
         continue;
      }
      switch (pick(4)) {
         case 0:  // rewritten
            chip.decapRowIs(it->second, content, key);
            expected[it->second] = content;
            break;
         case 1:  // emptied: the delete dance's first step
            chip.decapRowIs(it->second, DecapRow{RowState::emptied}, key);
            expected[it->second] = DecapRow{RowState::emptied};
            break;
         case 2:  // deleted: the row and the index are free again
            chip.decapRowDel(it->second, key);
            expected[it->second] = DecapRow{};
            rowOf.erase(it);
            break;
         default:  // read back, queued writes included
            EXPECT_EQ(chip.decapRow(it->second), expected[it->second]);
      }
      if (pick(16) == 0) {
         chip.applyQueued();
      }
      ASSERT_FALSE(HasFailure()) << "step " << step;
   }
   chip.applyQueued();
   store->finish([](const Sim::Binding&) { return true; });
   std::map<std::uint32_t, std::uint64_t> expectedBindings;
   for (const auto& [key, row] : rowOf) {
      expectedBindings.emplace(row, key);
   }
   EXPECT_EQ(durableBindings(store->path()), expectedBindings);
}

INSTANTIATE_TEST_SUITE_P(Seeds, WriteAheadTest, ::testing::Range<std::uint64_t>(1, 41));

// A commit that fails stops the chip: nothing queued, nor written later, reaches it.
TEST(WriteAheadFailureTest, AFailedCommitStopsEveryLaterWrite) {
   struct FailingJournal : Sim::RowJournal {
      bool mustWaitForQueue(std::uint32_t, std::uint64_t) const override { return false; }
      void ownerIs(std::uint32_t, std::uint64_t) override {}
      void rowDeleted(std::uint32_t, std::optional<std::uint64_t>) override {}
      void commit() override { throw std::runtime_error("disk full"); }
      void applied() override {}
   } journal;
   Sim::SimChip chip(Sim::ChipState::inMemory(kRows));
   chip.journalIs(&journal, 2);
   chip.decapRowIs(0, rowFor(1, 1), 1);
   chip.decapRowIs(1, rowFor(2, 1), 2);  // the batch is full: its commit fails
   chip.decapRowIs(2, rowFor(3, 1), 3);
   chip.applyQueued();
   ASSERT_TRUE(chip.failure());
   EXPECT_EQ(*chip.failure(), "disk full");
   for (std::uint32_t i = 0; i < 3; ++i) {
      EXPECT_EQ(chip.state().decapRow(i), DecapRow{}) << "row " << i;
   }
}

}  // namespace
