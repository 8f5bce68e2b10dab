#include "Asic/SwTable.h"

#include <algorithm>

#include "Asic/ChipProfile.h"
#include "Asic/HwTable.h"
#include "Asic/PluginLoader.h"

namespace Asic {

const char* SwTable::reconciliationStatusName(ReconciliationStatus status) noexcept {
   switch (status) {
      case unreconciled: return "unreconciled";
      case reconciledMatch: return "reconciledMatch";
      case reconciledMismatch: return "reconciledMismatch";
      case noSyncedEntry: return "noSyncedEntry";
      case hwEntryDeleted: return "hwEntryDeleted";
   }
   return "invalid";
}

std::ostream& operator<<(std::ostream& os, SwTable::ReconciliationStatus status) {
   return os << SwTable::reconciliationStatusName(status);
}

std::ostream& operator<<(std::ostream& os, const SwTable::Statistics& statistics) {
   using S = SwTable;
   const char* sep = "";
   for (auto s : {S::reconciledMatch, S::reconciledMismatch, S::noSyncedEntry, S::hwEntryDeleted}) {
      os << sep << S::reconciliationStatusName(s) << ':' << statistics.count(s);
      sep = " ";
   }
   return os;
}

SwTable::SwTable(std::string name) : name_(std::move(name)) {}

SwTable::~SwTable() = default;

void SwTable::setUp(const Fwk::Ptr<HwTable>& hwTable, const Fwk::Ptr<const ChipProfile>& profile,
                    std::uint32_t numEntries) {
   hwTableIs(hwTable);
   activeChipProfileIs(profile);
   numEntriesIs(numEntries);
   const UtilFactories::Factory factory = UtilFactories::factory(typeData().name());
   utilIs(factory ? factory() : nullptr);
   doCreateAllocator();
}

void SwTable::utilIs(const Fwk::Ptr<Util>& util) {
   if (util == util_) {
      return;
   }
   util_ = util;
   notify("util");
}

void SwTable::hwTableIs(const Fwk::Ptr<HwTable>& hwTable) {
   if (hwTable == hwTable_) {
      return;
   }
   hwTable_ = hwTable;
   notify("hwTable");
}

void SwTable::activeChipProfileIs(const Fwk::Ptr<const ChipProfile>& profile) {
   chipProfile_ = profile;
}

void SwTable::configReplayCompleteIs(bool complete) {
   if (complete == configReplayComplete_) {
      return;
   }
   configReplayComplete_ = complete;
   notify("configReplayComplete");
}

void SwTable::EntryHandle::resolvedEntryStateIs(EntryState state) {
   if (state == resolvedEntryState()) {
      return;
   }
   resolvedEntryStateSet(state);
   notify("resolvedEntryState");
   handleResolvedEntryState();
}

bool SwTable::UnresolvedEntry::publishHwIndexInHandle() const {
   const Util* util = swTable_->util();
   return util != nullptr && util->publishHwIndexInHandle();
}

bool SwTable::IndexHelper::has(Index i) const noexcept {
   return std::find(indices_.begin(), indices_.end(), i) != indices_.end();
}

void SwTable::IndexHelper::indexIs(Index i) {
   if (!has(i)) {
      indices_.push_back(i);
   }
}

void SwTable::IndexHelper::indexDel(Index i) noexcept { std::erase(indices_, i); }

}  // namespace Asic
