#include "sim/SimChip.h"

#include <exception>

namespace Sim {

namespace {
SimChip* currentChip = nullptr;
}  // namespace

SimChip::SimChip(ChipState state)
    : state_(std::move(state)), touched_(state_.decapRows(), untouched) {
   currentChip = this;
}

SimChip::~SimChip() {
   if (currentChip == this) {
      currentChip = nullptr;
   }
}

SimChip* SimChip::current() noexcept { return currentChip; }

void SimChip::decapRowIs(std::uint32_t index, const DecapRow& row,
                         std::optional<std::uint64_t> owner) {
   if (journal_ == nullptr) {
      state_.decapRowIs(index, row);
   } else {
      if (owner) {
         if (journal_->mustWaitForQueue(index, *owner)) {
            applyQueued();
         }
         journal_->ownerIs(index, *owner);
      }
      queue(QueuedWrite{index, false, row, {}});
   }
   ++counters_.decapWrites;
   touched_.at(index) |= written;
}

void SimChip::decapRowDel(std::uint32_t index, std::optional<std::uint64_t> owner) {
   if (journal_ == nullptr) {
      state_.decapRowIs(index, DecapRow{});
   } else {
      journal_->rowDeleted(index, owner);
      queue(QueuedWrite{index, false, DecapRow{}, {}});
   }
   ++counters_.decapDeletes;
   touched_.at(index) |= deleted;
}

void SimChip::profileRowIs(std::uint32_t index, const ProfileRow& row) {
   putProfileRow(index, row);
   ++counters_.profileWrites;
}

void SimChip::profileRowDel(std::uint32_t index) {
   putProfileRow(index, ProfileRow{});
   ++counters_.profileDeletes;
}

void SimChip::putProfileRow(std::uint32_t index, const ProfileRow& row) {
   if (journal_ == nullptr) {
      state_.profileRowIs(index, row);
   } else {
      queue(QueuedWrite{index, true, {}, row});
   }
}

DecapRow SimChip::decapRow(std::uint32_t index) {
   if (journal_ != nullptr && queuedDecap_.at(index)) {
      applyQueued();
   }
   return state_.decapRow(index);
}

ProfileRow SimChip::profileRow(std::uint32_t index) {
   if (journal_ != nullptr && queuedProfile_.at(index)) {
      applyQueued();
   }
   return state_.profileRow(index);
}

void SimChip::journalIs(RowJournal* journal, std::size_t batch) {
   applyQueued();
   journal_ = journal;
   batch_ = batch;
   queuedDecap_.assign(journal != nullptr ? state_.decapRows() : 0, false);
   queuedProfile_.assign(journal != nullptr ? state_.profileRows() : 0, false);
}

void SimChip::queue(const QueuedWrite& write) {
   if (failure_) {
      return;  // nothing reaches the chip after a failed commit
   }
   queue_.push_back(write);
   queuedRows(write.profile)[write.index] = true;
   if (queue_.size() >= batch_) {
      applyQueued();
   }
}

void SimChip::applyQueued() {
   if (queue_.empty()) {
      return;
   }
   try {
      journal_->commit();
   } catch (const std::exception& e) {
      failure_ = e.what();
   }
   for (const QueuedWrite& w : queue_) {
      if (!failure_) {
         w.profile ? state_.profileRowIs(w.index, w.profileRow) : state_.decapRowIs(w.index, w.decap);
      }
      queuedRows(w.profile)[w.index] = false;
   }
   queue_.clear();
   if (!failure_) {
      journal_->applied();
   }
}

void SimChip::resetTouched() { std::fill(touched_.begin(), touched_.end(), untouched); }

}  // namespace Sim
