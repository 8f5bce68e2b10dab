// The rows a table read back from hardware after a restart, by index: each row by value (its
// index and entry) in one vector in ascending index order. Removing a row leaves a gap in its
// place (no entry, its references released), so positions do not move; the gaps are closed once
// they outnumber the rows eight to one, which keeps a walk's cost amortised constant per row.
//
// Rows are read back in index order: a new row is known to lie beyond the last, and in a range of
// indices without holes (gaps keep their index) a row's position is its distance from the first,
// so most rows are found without a search.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Asic/Types.h"

namespace Asic {

// A row read back from hardware, or a gap it left (`present` false).
template <class Entry>
struct SyncedRow {
   Index index;
   bool present;
   Entry entry;
};

template <class Entry>
class SyncedRows {
 public:
   using Row = SyncedRow<Entry>;
   class Iterator;

   // Rows, gaps not counted.
   std::uint32_t size() const noexcept { return count_; }
   // The row at the index, or null.
   const Row* find(Index index) const {
      const std::size_t at = position(index);
      if (at == rows_.size()) {
         return nullptr;
      }
      const Row& row = rows_[at];
      return row.index == index && row.present ? &row : nullptr;
   }
   Row* find(Index index) { return const_cast<Row*>(std::as_const(*this).find(index)); }
   // Stores the row of an index that holds none.
   void insert(Index index, const Entry& entry) {
      const bool last = rows_.empty() || rows_.back().index < index;
      const std::size_t at = last ? rows_.size() : position(index);
      if (at < rows_.size() && rows_[at].index == index) {
         rows_[at].entry = entry;  // the row comes back into its gap
         rows_[at].present = true;
      } else {
         rows_.insert(rows_.begin() + static_cast<std::ptrdiff_t>(at), Row{index, true, entry});
      }
      ++count_;
      ++version_;
   }
   // Takes the row out of a present member, leaving a gap; returns its entry.
   Entry erase(Row& row) {
      Entry entry = std::exchange(row.entry, Entry());
      row.present = false;
      --count_;
      ++version_;
      compactGaps();
      return entry;
   }
   void clear() noexcept {
      rows_.clear();
      count_ = 0;
      ++version_;
   }
   // Gives back what growing by doubling left unused (rows arrive only during the read-back).
   void shrinkToFit() { rows_.shrink_to_fit(); }
   // A walk in ascending index order from the first row whose index is not below `from`.
   Iterator iter(Index from) const { return Iterator(this, from); }

 private:
   // The position of the first row or gap whose index is not below (`after`: is above) `index`.
   std::size_t position(Index index, bool after = false) const {
      if (rows_.empty() || index > rows_.back().index) {
         return rows_.size();
      }
      if (index >= rows_.front().index) {
         const std::size_t guess = index - rows_.front().index;
         if (guess < rows_.size() && rows_[guess].index == index) {
            return after ? guess + 1 : guess;
         }
      }
      const auto byIndex = [](const Row& row, Index i) { return row.index < i; };
      const auto beyond = [](Index i, const Row& row) { return i < row.index; };
      const auto it = after ? std::upper_bound(rows_.begin(), rows_.end(), index, beyond)
                            : std::lower_bound(rows_.begin(), rows_.end(), index, byIndex);
      return static_cast<std::size_t>(it - rows_.begin());
   }
   void compactGaps() {
      if (rows_.size() - count_ > std::size_t{8} * count_) {
         std::erase_if(rows_, [](const Row& row) { return !row.present; });
      }
   }

   std::vector<Row> rows_;  // by ascending index
   std::uint32_t count_ = 0;
   std::uint64_t version_ = 0;  // bumped by every change of membership
};

// A walk over the rows in ascending index order. It holds a copy of its current row, so the row
// stays readable when removed; when the rows changed since the walk last moved, it finds the
// successor by index instead of by position, so rows may be removed while walking.
template <class Entry>
class SyncedRows<Entry>::Iterator {
 public:
   bool done() const noexcept { return done_; }
   // The current row's index and entry; only while not done.
   Index index() const noexcept { return index_; }
   const Entry& entry() const noexcept { return entry_; }
   // To the row with the next higher index.
   void advance() {
      if (done_) {
         return;
      }
      if (version_ != rows_->version_) {
         position_ = rows_->position(index_, true);
         version_ = rows_->version_;
      } else {
         ++position_;
      }
      settle();
   }

 private:
   friend class SyncedRows;
   Iterator(const SyncedRows* rows, Index from)
       : rows_(rows), position_(rows->position(from)), version_(rows->version_) {
      settle();
   }
   // Takes the first row at or after position_ as the current one, or ends the walk.
   void settle() {
      const auto& all = rows_->rows_;
      while (position_ < all.size() && !all[position_].present) {
         ++position_;
      }
      if (position_ == all.size()) {
         done_ = true;
         entry_ = Entry();
         return;
      }
      index_ = all[position_].index;
      entry_ = all[position_].entry;
   }

   const SyncedRows* rows_;
   std::size_t position_;
   std::uint64_t version_;
   Index index_ = 0;
   Entry entry_;
   bool done_ = false;
};

}  // namespace Asic
