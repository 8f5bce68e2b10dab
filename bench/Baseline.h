// The baseline: what a user would write by hand without the library, over the same kind of
// in-memory chip. A hash map from key to entry (the row's index and the value), a free-index
// stack, and direct row writes and deletes. No dependency on a profile entry, no acknowledgement
// and no restart handling beyond the obvious read-back-and-compare.
#pragma once

#include <unordered_map>
#include <vector>

#include "BenchTable.h"

namespace Bench {

class Baseline {
  public:
   Baseline(std::shared_ptr<Chip> chip, std::uint32_t size) : chip_(std::move(chip)) {
      free_.reserve(size);
      for (std::uint32_t i = size; i > 0; --i) {
         free_.push_back(i - 1);
      }
   }

   // Writes the key's row with `row`, taking an index for a new key. False when full.
   bool commit(L3TunnelIntfKey key, const Row& row) {
      const auto [it, inserted] = entries_.try_emplace(key);
      if (inserted) {
         if (free_.empty()) {
            entries_.erase(it);
            return false;
         }
         it->second.index = free_.back();
         free_.pop_back();
      } else if (it->second.row == row) {
         return true;
      }
      it->second.row = row;
      chip_->rows[it->second.index] = row;
      ++chip_->writes;
      return true;
   }

   void remove(L3TunnelIntfKey key) {
      const auto it = entries_.find(key);
      if (it == entries_.end()) {
         return;
      }
      chip_->rows[it->second.index] = Row{};
      ++chip_->deletes;
      free_.push_back(it->second.index);
      entries_.erase(it);
   }

   // After a restart, with every key's previous index known: read the rows back, take each key's
   // row again (rewriting it when its value changed), delete the rows nobody took.
   void restart(const std::vector<L3TunnelIntfKey>& keys, const std::vector<Asic::Index>& indices,
                const std::vector<Row>& wanted) {
      const std::vector<Row> readBack = chip_->rows;
      std::vector<bool> taken(readBack.size(), false);
      entries_.clear();
      for (std::size_t i = 0; i < keys.size(); ++i) {
         const Asic::Index index = indices[i];
         entries_.try_emplace(keys[i], Slot{index, wanted[i]});
         taken[index] = true;
         if (!(readBack[index] == wanted[i])) {
            chip_->rows[index] = wanted[i];
            ++chip_->writes;
         }
      }
      free_.clear();
      for (std::uint32_t i = static_cast<std::uint32_t>(readBack.size()); i > 0; --i) {
         if (taken[i - 1]) {
            continue;
         }
         if (readBack[i - 1].valid) {
            chip_->rows[i - 1] = Row{};
            ++chip_->deletes;
         }
         free_.push_back(i - 1);
      }
   }

   Asic::Index index(L3TunnelIntfKey key) const { return entries_.at(key).index; }
   std::size_t size() const noexcept { return entries_.size(); }

  private:
   struct Slot {
      Asic::Index index = 0;
      Row row;
   };
   std::shared_ptr<Chip> chip_;
   std::unordered_map<L3TunnelIntfKey, Slot> entries_;
   std::vector<Asic::Index> free_;
};

}  // namespace Bench
