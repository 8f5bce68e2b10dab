// A minimal chip plug-in for the decap table: the template for writing one.
//
// The table reaches hardware only through its Util. A plug-in is a shared object that derives the
// table's Util, implements its pure operations, and registers a factory for the table type when
// it is loaded. The library loads it at start-up from the plug-in search path under the name
// built from the table's loader: libAsicFeature-TalvikL3Decap-IngL3IifTable.so.
//
// The "chip" here is a map of rows in the plug-in's memory. It outlives the Util (a new table
// instance gets a new Util from the factory), as real hardware outlives an agent restart.
#include <cstdio>
#include <deque>
#include <map>
#include <optional>

#include "Asic/HwTable.h"
#include "Asic/PluginLoader.h"
#include "ExampleChip.h"

namespace {

using TalvikL3Decap::IngL3IifTable;
using TalvikL3Decap::L3TunnelIntfKey;
using Entry = IngL3IifTable::Entry;

// What the chip stores of an entry: plain fields. Never the entry itself, whose profile handle
// is a reference-counted object of the agent.
struct Row {
   std::uint8_t profileIndex = 0;
   bool ipv4UcEnable = false;
   bool ipv6UcEnable = false;
   bool trustDscp = false;
   std::uint32_t vrf = 0;

   static Row of(const Entry& e) {
      return Row{e.l3IifProfileIndex, e.ipv4UcEnable, e.ipv6UcEnable, e.trustDscp, e.vrf};
   }
   // A read-back entry: the profile index as hardware holds it, no handle.
   Entry entry() const {
      return Entry(nullptr, profileIndex, ipv4UcEnable, ipv6UcEnable, trustDscp, vrf);
   }
   bool operator==(const Row&) const = default;
};

// The hardware: a row written empty is kept as an empty optional until it is deleted.
struct Chip {
   std::map<Asic::Index, std::optional<Row>> rows;
   Example::ChipEvents::Counters counters;
};

Chip& chip() {
   static Chip c;
   return c;
}

constexpr std::uint32_t kRows = 16;

class ExampleChipUtil : public IngL3IifTable::Util, public Example::ChipEvents {
  public:
   ExampleChipUtil() : Util("ExampleChipUtil") {
      // Handles carry their row index, so the agent can remember which row each key used and
      // bind the key to it again after a restart.
      publishHwIndexInHandleIs(true);
   }

   // The table's index space.
   std::uint32_t minIndex() const override { return 0; }
   std::uint32_t maxIndex() const override { return kRows - 1; }

   // Writes a row. An empty entry writes an empty row (first step of a removal). The chip
   // answers later: the acknowledgement names the key whose row was written.
   void hwTableEntryIs(IngL3IifTable* table, Asic::Index index,
                       const std::optional<Entry>& entry) const override {
      chip().rows[index] = entry ? std::optional<Row>(Row::of(*entry)) : std::nullopt;
      ++chip().counters.writes;
      std::printf("  chip: write row %u %s\n", index, entry ? "with a value" : "empty");
      if (const std::optional<L3TunnelIntfKey> key = table->swKeyFromHwIndex(index)) {
         acks_.push_back(*key);
      }
   }

   // Deletes a row (second step of a removal, or a stale row after a restart). Not answered.
   void hwTableEntryDel(IngL3IifTable* /*table*/, Asic::Index index) const override {
      chip().rows.erase(index);
      ++chip().counters.deletes;
      std::printf("  chip: delete row %u\n", index);
   }

   // Keeps the hardware table's count of users per index in step with the engine's reports.
   void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Asic::Index index,
                                     Asic::IndexUserTracker::OpType op) const override {
      if (hwTable != nullptr && hwTable->indexUserTracker() != nullptr) {
         hwTable->indexUserTracker()->update(index, op);
      }
   }

   // Restart: does the row at `index` hold what the replayed entry would write?
   bool compareHwEntries(const IngL3IifTable* /*table*/, Asic::Index index,
                         const Entry& resolvedEntry) const override {
      const auto it = chip().rows.find(index);
      return it != chip().rows.end() && it->second == Row::of(resolvedEntry);
   }

   // The row as hardware holds it; empty for a free or emptied row.
   std::optional<Entry> hwTableEntry(const IngL3IifTable* /*table*/,
                                     Asic::Index index) const override {
      const auto it = chip().rows.find(index);
      return it != chip().rows.end() && it->second ? std::optional<Entry>(it->second->entry())
                                                   : std::nullopt;
   }

   // Restart: hands every row holding a value to the table, and counts it as one user of its
   // index, as it was before the restart.
   void syncEntries(const Asic::HwTable* hwTable,
                    const Fwk::Ptr<Asic::SwTable>& table) const override {
      auto& decap = static_cast<IngL3IifTable&>(*table);
      for (const auto& [index, row] : chip().rows) {
         if (!row) {
            continue;
         }
         decap.syncedEntryIs(index, row->entry());
         if (hwTable != nullptr && hwTable->indexUserTracker() != nullptr) {
            hwTable->indexUserTracker()->recoveredIndexIs(index);
         }
      }
   }

   // The table takes acknowledgements once its initialisation is complete (doInitComplete
   // creates its write-response state machine); until then they stay queued.
   std::size_t deliverWriteAcks(IngL3IifTable& table) const override {
      std::size_t taken = 0;
      while (!acks_.empty() && table.writeResponseSm()) {
         const L3TunnelIntfKey key = acks_.front();
         acks_.pop_front();
         std::printf("  chip: acknowledge the write for key %llu\n",
                     static_cast<unsigned long long>(key.value()));
         if (table.writeResponseSm()->writeAcknowledged(&key)) {
            ++taken;
         } else {
            std::printf("  chip: nobody waited for it\n");
         }
      }
      return taken;
   }

   Counters counters() const override { return chip().counters; }

  private:
   mutable std::deque<L3TunnelIntfKey> acks_;
};

// Load time: register the Util factory for the table type. SwTable::setUp calls it for every
// table instance the platform sets up.
const bool registered = [] {
   Asic::UtilFactories::factoryIs(IngL3IifTable::kTypeName,
                                  []() -> Fwk::Ptr<Asic::SwTable::Util> {
                                     return Fwk::make<ExampleChipUtil>();
                                  });
   return true;
}();

}  // namespace
