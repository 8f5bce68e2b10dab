#include "sim/ProfileTable.h"

#include "Fwk/Assert.h"
#include "Fwk/Directory.h"

namespace Sim {

using S = Asic::SwTableBase;

ProfileTable::Handle::Handle(ProfileTable* table, std::uint32_t profileId)
    : table_(table), profileId_(profileId) {}

ProfileTable::Handle::~Handle() { underDestructionIs(); }

std::string ProfileTable::Handle::entityText() const {
   return "profile:" + std::to_string(profileId_);
}

void ProfileTable::Handle::handleIndexSuggestions(const Asic::IndexSet& suggestions) const {
   if (table_ == nullptr) {
      return;
   }
   for (const Asic::Index index : suggestions) {
      if (entryState() != S::unresolved) {
         return;
      }
      table_->suggestion(*this, index);
   }
}

ProfileTable::ProfileTable(SimChip& chip) : chip_(chip), used_(ChipState::kProfileRows, false) {
   for (std::uint32_t i = 0; i < ChipState::kProfileRows; ++i) {
      used_[i] = chip_.profileRow(i).state == RowState::valued;
   }
}

ProfileTable::~ProfileTable() {
   for (auto& [id, handle] : handles_) {
      handle->table_ = nullptr;
      Fwk::Directory::objectDel(handle->entityText());
   }
}

void ProfileTable::readBack() {
   replay_ = true;
   for (std::uint32_t i = 0; i < ChipState::kProfileRows; ++i) {
      const ProfileRow row = chip_.profileRow(i);
      if (row.state == RowState::valued) {
         readBack_.emplace(i, row.profileId);
      }
   }
}

Fwk::Ptr<ProfileTable::Handle> ProfileTable::profileCommit(std::uint32_t profileId) {
   if (auto existing = profile(profileId)) {
      return existing;
   }
   auto handle = Fwk::make<Handle>(this, profileId);
   handles_.emplace(profileId, handle);
   Fwk::Directory::objectIs(handle->entityText(), handle.get());
   if (replay_ && readBackRowOf(profileId)) {
      return handle;  // waits for a suggestion or the end of initialisation
   }
   program(*handle);
   return handle;
}

bool ProfileTable::profileRemove(std::uint32_t profileId) {
   const auto it = handles_.find(profileId);
   if (it == handles_.end()) {
      return true;
   }
   if (it->second->refCount() > 1) {
      return false;
   }
   const Asic::Index index = it->second->hwIndex();
   if (index != Asic::kInvalidIndex) {
      chip_.profileRowDel(index);
      used_[index] = false;
      ++statistics_.removed;
   }
   it->second->table_ = nullptr;
   Fwk::Directory::objectDel(it->second->entityText());
   handles_.erase(it);
   return true;
}

Fwk::Ptr<ProfileTable::Handle> ProfileTable::profile(std::uint32_t profileId) const {
   const auto it = handles_.find(profileId);
   return it == handles_.end() ? nullptr : it->second;
}

std::optional<Asic::Index> ProfileTable::readBackRowOf(std::uint32_t profileId) const {
   for (const auto& [index, id] : readBack_) {
      if (id == profileId) {
         return index;
      }
   }
   return std::nullopt;
}

Asic::Index ProfileTable::freeRow() const {
   for (std::uint32_t i = 0; i < ChipState::kProfileRows; ++i) {
      if (!used_[i]) {
         return i;
      }
   }
   return Asic::kInvalidIndex;
}

void ProfileTable::program(Handle& handle) {
   const Asic::Index index = freeRow();
   if (index == Asic::kInvalidIndex) {
      handle.entryStateIs(S::hwIndexExhausted);
      return;
   }
   used_[index] = true;
   chip_.profileRowIs(index, ProfileRow{RowState::valued, handle.profileId()});
   ++statistics_.written;
   completions_.push(handle.profileId());
   handle.entryStateIs(S::inProgress);
   handle.hwIndexIs(index);
}

void ProfileTable::adopt(Handle& handle, Asic::Index index) {
   readBack_.erase(index);
   handle.hwIndexIs(index);
   handle.entryStateIs(S::indexReconciled);
   ++statistics_.adopted;
}

void ProfileTable::suggestion(const Handle& handle, Asic::Index index) {
   const auto it = readBack_.find(index);
   if (!replay_ || it == readBack_.end() || it->second != handle.profileId()) {
      return;  // only a row that held this very profile is adopted
   }
   // Only a connected handle suggests, and the connected handles are the table's own.
   const Fwk::Ptr<Handle> own = profile(handle.profileId());
   FWK_ASSERT(own, "profile(handle.profileId())");
   adopt(*own, index);
}

void ProfileTable::initComplete() {
   for (auto& [id, handle] : handles_) {
      if (handle->entryState() != S::unresolved || handle->hwIndex() != Asic::kInvalidIndex) {
         continue;
      }
      if (const auto index = readBackRowOf(id)) {
         adopt(*handle, *index);
      } else {
         program(*handle);
      }
   }
   replay_ = false;
}

void ProfileTable::purgeStale() {
   for (const auto& [index, id] : readBack_) {
      chip_.profileRowDel(index);
      used_[index] = false;
      ++statistics_.purged;
   }
   readBack_.clear();
}

std::size_t ProfileTable::deliverAcks(std::size_t limit, bool flush) {
   if (completions_.ready(chip_.ackPolicy, flush)) {
      chip_.applyQueued();  // a chip acknowledges a write once it has done it
   }
   std::size_t delivered = 0;
   while (delivered < limit) {
      const auto id = completions_.take(chip_.ackPolicy, flush, chip_.rng());
      if (!id) {
         break;
      }
      if (const auto handle = profile(*id); handle && handle->entryState() == S::inProgress) {
         handle->entryStateIs(S::success);
      }
      ++delivered;
   }
   return delivered;
}

}  // namespace Sim
