// A consumer of the installed library: two lives of an agent over one chip.
//
// Life 1, a cold start: set the table up, commit two entries, finish initialisation, take the
// chip's acknowledgements, then remove one entry (the delete dance: its row is written empty,
// acknowledged, then deleted). Life 2, a hitless restart with the same entry: a new table
// instance reads the rows back, binds the key to the row it used, replays the entry, finishes
// initialisation and purges; the row is adopted as it is, and nothing is written.
//
// Run it with L3DECAP_PLUGIN_PATH naming the directory of this example's plug-in.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Asic/ChipProfile.h"
#include "Asic/HwTable.h"
#include "ExampleChip.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"

namespace {

using TalvikL3Decap::IngL3IifTable;
using TalvikL3Decap::L3TunnelIntfKey;
using Entry = IngL3IifTable::Entry;
using State = Asic::SwTableBase::EntryState;

constexpr std::uint32_t kRows = 16;

void check(bool ok, const std::string& what) {
   if (!ok) {
      std::fprintf(stderr, "consumer: error: %s\n", what.c_str());
      std::exit(1);
   }
}

// A tunnel interface with no needed entry: the profile index is given as it is. (With a profile
// table's entry handle instead of nullptr, the entry would wait until that handle has an index.)
Entry tunnel(std::uint32_t vrf) { return Entry(nullptr, 3, true, false, false, vrf); }

// What the platform does for each table instance: a hardware table, the chip profile in force
// (tunnel interfaces get an index space of their own), the size, the Util from the loaded
// plug-in, the allocator.
Fwk::Ptr<IngL3IifTable> newTable() {
   auto profile = Fwk::make<Asic::ChipProfile>("example-chip");
   profile->featureIs(Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>(),
                      Fwk::make<TalvikL3Unicast::L3NextHopAttributes>(true));
   Fwk::Ptr<IngL3IifTable> table = TalvikL3Decap::ingL3IifTableFactory();
   table->setUp(Fwk::make<Asic::HwTable>("IngL3IifDecap", kRows), profile, kRows);
   const auto* chip = dynamic_cast<const Example::ChipEvents*>(table->util());
   check(chip != nullptr,
         "the table has no Util of this example (L3DECAP_PLUGIN_PATH must name the directory "
         "of its plug-in); plug-in: " +
             IngL3IifTable::UtilLoader::loaderSingletonIs()->loadMessage());
   return table;
}

const Example::ChipEvents& chipOf(const IngL3IifTable& table) {
   return dynamic_cast<const Example::ChipEvents&>(*table.util());
}

// An agent ends as a process does: nothing it does on the way out reaches the chip.
void agentEnds(Fwk::Ptr<IngL3IifTable>& table) {
   table->utilIs(nullptr);
   table->cleanup();
   table = nullptr;
}

void report(const IngL3IifTable& table, const L3TunnelIntfKey& key,
            const Fwk::Ptr<const Asic::SwTableBase::EntryHandle>& handle) {
   std::printf("  key %llu: row %u, %s\n", static_cast<unsigned long long>(key.value()),
               handle->hwIndex(), Asic::SwTableBase::entryStateName(handle->resolvedEntryState()));
   check(table.entryInHwTable(key), "key " + std::to_string(key.value()) + " is not in hardware");
}

}  // namespace

int main() {
   const L3TunnelIntfKey kept(1001);
   const L3TunnelIntfKey removed(1002);

   std::printf("life 1: cold start\n");
   Fwk::Ptr<IngL3IifTable> table = newTable();
   std::printf("  plug-in: %s\n", IngL3IifTable::UtilLoader::loaderSingletonIs()->pluginFile().c_str());
   const Example::ChipEvents* chip = &chipOf(*table);

   std::printf("  commit keys %llu and %llu\n", static_cast<unsigned long long>(kept.value()),
               static_cast<unsigned long long>(removed.value()));
   auto keptHandle = table->entryCommit(kept, tunnel(10));
   auto removedHandle = table->entryCommit(removed, tunnel(20));
   // End of initialisation: from now on the table takes the chip's acknowledgements.
   table->doInitComplete();
   chip->deliverWriteAcks(*table);
   check(keptHandle->resolvedEntryState() == State::success &&
             removedHandle->resolvedEntryState() == State::success,
         "committed entries were not acknowledged");
   report(*table, kept, keptHandle);
   report(*table, removed, removedHandle);

   const Asic::Index removedRow = removedHandle->hwIndex();
   std::printf("  remove key %llu and let go of its handle\n",
               static_cast<unsigned long long>(removed.value()));
   table->entryRemove(removed);  // the entry is now only referenced, by our handle
   removedHandle = nullptr;      // the last reference: the row is written empty
   chip->deliverWriteAcks(*table);  // the acknowledgement deletes the row
   check(!table->entryHas(removed) && !table->entryHandleHas(removed),
         "the removed key is still in the table");
   check(!table->util()->hwTableEntry(table.get(), removedRow).has_value(),
         "the removed key's row is still in the chip");

   // What the agent keeps for its next life: the row each key used.
   const Asic::Index keptRow = table->hwIndexOnlyForCrossAgentCommunication(kept);
   const Example::ChipEvents::Counters life1 = chip->counters();
   keptHandle = nullptr;
   agentEnds(table);

   std::printf("life 2: restart with the same entry\n");
   table = newTable();
   chip = &chipOf(*table);
   table->syncEntries();  // the rows read back; their indices are held back until the purge
   std::printf("  read back %u row(s); bind key %llu to row %u and replay it\n",
               table->syncedEntrys(), static_cast<unsigned long long>(kept.value()), keptRow);
   table->bindKeyToIndex(kept, keptRow);
   keptHandle = table->entryCommit(kept, tunnel(10));
   table->doInitComplete();
   chip->deliverWriteAcks(*table);
   table->purgeStaleEntries();
   report(*table, kept, keptHandle);

   const Example::ChipEvents::Counters life2 = chip->counters();
   check(life2.writes == life1.writes && life2.deletes == life1.deletes,
         "the unchanged restart wrote or deleted a row");
   check(table->statistics().count(Asic::SwTable::reconciledMatch) == 1 &&
             keptHandle->hwIndex() == keptRow,
         "the restart did not adopt the row as the chip held it");
   std::printf("  adopted row %u without writing it\n", keptRow);
   keptHandle = nullptr;
   agentEnds(table);

   std::printf("consumer: done: life 1 wrote %zu row(s) and deleted %zu; life 2 wrote %zu and "
               "deleted %zu\n",
               life1.writes, life1.deletes, life2.writes - life1.writes,
               life2.deletes - life1.deletes);
   return 0;
}
