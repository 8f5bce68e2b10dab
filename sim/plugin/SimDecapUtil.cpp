// The chip plug-in for the simulated switch: the L3 IIF decap table's Util over the simulated
// chip that the agent opened. Loaded at run time from the plug-in search path; registers its Util
// for the table type when loaded.
#include "Asic/PluginLoader.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "sim/SimChip.h"

namespace Sim {
namespace {

using TalvikL3Decap::IngL3IifTable;
using TalvikL3Decap::L3TunnelIntfKey;
using Entry = IngL3IifTable::Entry;

DecapRow rowOf(const std::optional<Entry>& entry) {
   if (!entry) {
      return DecapRow{RowState::emptied};
   }
   return DecapRow{RowState::valued, entry->l3IifProfileIndex, entry->ipv4UcEnable,
                   entry->ipv6UcEnable, entry->trustDscp, entry->vrf};
}

std::optional<std::uint64_t> ownerOf(const std::optional<L3TunnelIntfKey>& key) {
   return key ? std::optional<std::uint64_t>(key->value()) : std::nullopt;
}

Entry entryOf(const DecapRow& row) {
   return Entry(nullptr, row.profileIndex, row.ipv4UcEnable, row.ipv6UcEnable, row.trustDscp,
                row.vrf);
}

class SimDecapUtil : public IngL3IifTable::Util, public WriteCompletions {
  public:
   explicit SimDecapUtil(SimChip& chip) : Util("SimDecapUtil"), chip_(chip) {
      // Handles carry their index, so the agent can tell other agents (and its next instance)
      // which row each key uses.
      publishHwIndexInHandleIs(true);
   }

   std::uint32_t minIndex() const override { return 0; }
   std::uint32_t maxIndex() const override { return chip_.state().decapRows() - 1; }

   // The key that owns the row goes with the write, so that the agent can record it before the
   // chip sees the row (RowJournal).
   void hwTableEntryIs(IngL3IifTable* table, Asic::Index index,
                       const std::optional<Entry>& entry) const override {
      const auto key = table->swKeyFromHwIndex(index);
      chip_.decapRowIs(index, rowOf(entry), ownerOf(key));
      table_ = table;
      if (key) {
         completions_.push(*key);
      }
   }

   void hwTableEntryDel(IngL3IifTable* table, Asic::Index index) const override {
      chip_.decapRowDel(index, ownerOf(table->swKeyFromHwIndex(index)));
   }

   void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Asic::Index index,
                                     Asic::IndexUserTracker::OpType op) const override {
      if (hwTable != nullptr && hwTable->indexUserTracker() != nullptr) {
         hwTable->indexUserTracker()->update(index, op);
      }
   }

   bool compareHwEntries(const IngL3IifTable* /*table*/, Asic::Index index,
                         const Entry& entry) const override {
      return chip_.decapRow(index) == rowOf(entry);
   }

   std::optional<Entry> hwTableEntry(const IngL3IifTable* /*table*/,
                                     Asic::Index index) const override {
      const DecapRow row = chip_.decapRow(index);
      return row.state == RowState::valued ? std::optional<Entry>(entryOf(row)) : std::nullopt;
   }

   // Reads every valued row back. The rows' indices are held back in the allocator until the
   // purge, and each counts one user on the index-user tracker, as before the restart.
   void syncEntries(const Asic::HwTable* hwTable,
                    const Fwk::Ptr<Asic::SwTable>& table) const override {
      auto& decap = static_cast<IngL3IifTable&>(*table);
      for (std::uint32_t i = 0; i < chip_.state().decapRows(); ++i) {
         const DecapRow row = chip_.decapRow(i);
         if (row.state != RowState::valued) {
            continue;
         }
         decap.syncedEntryIs(i, entryOf(row));
         if (hwTable != nullptr && hwTable->indexUserTracker() != nullptr) {
            hwTable->indexUserTracker()->recoveredIndexIs(i);
         }
      }
   }

   std::size_t pendingAcks() const override { return completions_.size(); }

   std::size_t deliverAcks(std::size_t limit, bool flush) override {
      if (completions_.ready(chip_.ackPolicy, flush)) {
         chip_.applyQueued();  // a chip acknowledges a write once it has done it
      }
      std::size_t delivered = 0;
      while (delivered < limit && table_ != nullptr) {
         const auto sm = table_->writeResponseSm();
         if (!sm) {
            break;  // the table takes write responses once its initialisation is complete
         }
         const auto key = completions_.take(chip_.ackPolicy, flush, chip_.rng());
         if (!key) {
            break;
         }
         sm->writeAcknowledged(&*key);
         ++delivered;
      }
      return delivered;
   }

  private:
   SimChip& chip_;
   mutable IngL3IifTable* table_ = nullptr;
   mutable CompletionQueue<L3TunnelIntfKey> completions_;
};

const bool registered = [] {
   Asic::UtilFactories::factoryIs(IngL3IifTable::kTypeName, []() -> Fwk::Ptr<Asic::SwTable::Util> {
      SimChip* chip = SimChip::current();
      return chip != nullptr ? Fwk::make<SimDecapUtil>(*chip) : nullptr;
   });
   return true;
}();

}  // namespace
}  // namespace Sim
