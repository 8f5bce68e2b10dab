#include "sim/SimChip.h"

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

void SimChip::decapRowIs(std::uint32_t index, const DecapRow& row) {
   state_.decapRowIs(index, row);
   ++counters_.decapWrites;
   touched_.at(index) |= written;
}

void SimChip::decapRowDel(std::uint32_t index) {
   state_.decapRowIs(index, DecapRow{});
   ++counters_.decapDeletes;
   touched_.at(index) |= deleted;
}

void SimChip::profileRowIs(std::uint32_t index, const ProfileRow& row) {
   state_.profileRowIs(index, row);
   ++counters_.profileWrites;
}

void SimChip::profileRowDel(std::uint32_t index) {
   state_.profileRowIs(index, ProfileRow{});
   ++counters_.profileDeletes;
}

void SimChip::resetTouched() { std::fill(touched_.begin(), touched_.end(), untouched); }

}  // namespace Sim
