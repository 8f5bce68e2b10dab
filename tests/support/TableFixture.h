// A table set up as the platform sets it up, over the fake chip, with every trace line captured.
// Normal operation by default (configuration replay complete, write responses on); `restart()`
// replaces the table by a new instance over the same chip, as an agent restart does.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Asic/ChipProfile.h"
#include "Fwk/Trace.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"
#include "support/FakeChip.h"

namespace Test {

struct TableOptions {
   std::uint32_t size = 64;
   bool withUtil = true;
   bool replayComplete = true;
   bool separateIndexSpace = true;
};

class TableFixture : public ::testing::Test {
  protected:
   void SetUp() override;
   void TearDown() override;

   // Creates the table (the previous one, if any, is released first).
   void createTable(const TableOptions& options = {});
   // An agent restart: the old instance goes without touching hardware; a new one is set up over
   // the same chip, in configuration replay, with its rows read back (syncEntries).
   void restart();

   IngL3IifTable& t() { return *table; }
   FakeChipUtil& util() { return *util_; }
   Fwk::Ptr<IngL3IifTable::EntryHandle> handle(std::uint64_t key) {
      return table->entryHandle(L3TunnelIntfKey(key));
   }
   static L3TunnelIntfKey k(std::uint64_t key) { return L3TunnelIntfKey(key); }
   // An entry needing `profile` (may be null), with the given vrf and flags.
   static Entry e(const Fwk::Ptr<ProfileHandle>& profile, std::uint32_t vrf, bool v4 = true,
                  bool v6 = false, bool dscp = false);
   // The index the allocator holds for a key (invalid when none).
   Asic::Index indexOf(std::uint64_t key);
   // Trace texts of the engine's handle captured so far, and a fresh start.
   std::vector<std::string> traces() const { return sink->texts(IngL3IifTable::kTypeName); }
   std::vector<std::string> tracesContaining(const std::string& text) const;
   void clearTraces() { sink->clear(); }

   TableOptions options;
   std::shared_ptr<FakeChip> chip = std::make_shared<FakeChip>();
   Fwk::Ptr<IngL3IifTable> table;
   Fwk::Ptr<Asic::HwTable> hwTable;
   Fwk::Ptr<FakeChipUtil> util_;
   std::shared_ptr<Fwk::Trace::MemorySink> sink = std::make_shared<Fwk::Trace::MemorySink>();
   std::shared_ptr<Fwk::Trace::Sink> previousSink;
};

}  // namespace Test
