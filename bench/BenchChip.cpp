#include "BenchChip.h"

#include <algorithm>

#include "Asic/ChipProfile.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"

namespace Bench {

std::size_t Chip::validRows() const {
   return static_cast<std::size_t>(
       std::count_if(rows.begin(), rows.end(), [](const Row& r) { return r.valid; }));
}

Row rowOf(const Entry& e) noexcept {
   return Row{true, e.ipv4UcEnable, e.ipv6UcEnable, e.trustDscp, e.l3IifProfileIndex, e.vrf};
}

namespace {
Entry entryOf(const Row& r) {
   return Entry(nullptr, r.profileIndex, r.ipv4UcEnable, r.ipv6UcEnable, r.trustDscp, r.vrf);
}
}  // namespace

ChipUtil::ChipUtil(std::shared_ptr<Chip> chip, std::size_t completionCapacity)
    : Util("BenchChipUtil"), chip_(std::move(chip)) {
   publishHwIndexInHandleIs(true);
   completions_.reserve(completionCapacity);
}

void ChipUtil::complete(IngL3IifTable* table, Asic::Index index) const {
   // The chip answers by key; a plug-in learns the key of a row from the allocator.
   if (const auto key = table->swKeyFromHwIndex(index)) {
      completions_.push_back(*key);
   }
}

void ChipUtil::hwTableEntryIs(IngL3IifTable* table, Asic::Index index,
                              const std::optional<Entry>& entry) const {
   chip_->rows[index] = entry ? rowOf(*entry) : Row{};
   ++chip_->writes;
   complete(table, index);
}

void ChipUtil::hwTableEntryDel(IngL3IifTable* table, Asic::Index index) const {
   chip_->rows[index] = Row{};
   ++chip_->deletes;
   complete(table, index);
}

void ChipUtil::updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Asic::Index index,
                                            Asic::IndexUserTracker::OpType op) const {
   if (hwTable != nullptr && hwTable->indexUserTracker() != nullptr) {
      hwTable->indexUserTracker()->update(index, op);
   }
}

bool ChipUtil::compareHwEntries(const IngL3IifTable* /*table*/, Asic::Index index,
                                const Entry& entry) const {
   return index < chip_->rows.size() && chip_->rows[index] == rowOf(entry);
}

std::optional<Entry> ChipUtil::hwTableEntry(const IngL3IifTable* /*table*/,
                                            Asic::Index index) const {
   const Row& row = chip_->rows.at(index);
   return row.valid ? std::optional<Entry>(entryOf(row)) : std::nullopt;
}

void ChipUtil::syncEntries(const Asic::HwTable* hwTable,
                           const Fwk::Ptr<Asic::SwTable>& table) const {
   auto& decap = static_cast<IngL3IifTable&>(*table);
   for (std::uint32_t i = 0; i < chip_->rows.size(); ++i) {
      const Row& row = chip_->rows[i];
      if (!row.valid) {
         continue;
      }
      decap.syncedEntryIs(i, entryOf(row));
      if (hwTable != nullptr && hwTable->indexUserTracker() != nullptr) {
         hwTable->indexUserTracker()->recoveredIndexIs(i);
      }
   }
}

std::size_t ChipUtil::deliverCompletions(IngL3IifTable& table) {
   std::size_t taken = 0;
   // A delivery may cause further row operations (the delete dance): deliver until quiet.
   for (std::size_t i = 0; i < completions_.size(); ++i) {
      const L3TunnelIntfKey key = completions_[i];
      if (const auto& sm = table.writeResponseSm()) {
         taken += sm->writeAcknowledged(&key) ? 1 : 0;
      }
   }
   completions_.clear();
   return taken;
}

Fwk::Ptr<ProfileHandle> ProfileHandle::make(Asic::SwTableBase::EntryState state,
                                            Asic::Index index) {
   Fwk::Ptr<ProfileHandle> h(new ProfileHandle());
   h->hwIndexIs(index);
   h->entryStateIs(state);
   return h;
}

Instance::Instance(std::shared_ptr<Chip> c, std::uint32_t size, bool normalOperation)
    : chip(std::move(c)) {
   table = TalvikL3Decap::ingL3IifTableFactory();
   auto hwTable = Fwk::make<Asic::HwTable>("IngL3IifDecap", size);
   auto profile = Fwk::make<Asic::ChipProfile>("bench-chip");
   profile->featureIs(Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>(),
                      Fwk::make<TalvikL3Unicast::L3NextHopAttributes>(true));
   table->setUp(hwTable, profile, size);
   util = Fwk::make<ChipUtil>(chip, 16);
   table->utilIs(util);
   if (normalOperation) {
      table->configReplayCompleteIs(true);
      table->writeResponseSmIs(table.get());
   }
}

void Instance::dieQuietly() {
   if (table) {
      table->utilIs(nullptr);
      table->cleanup();
      table = nullptr;
   }
}

Instance::~Instance() {
   if (table) {
      table->cleanup();
      table = nullptr;
   }
}

}  // namespace Bench
