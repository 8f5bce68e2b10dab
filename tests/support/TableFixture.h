// A table of a kind (Kinds.h) set up as the platform sets it up, over the fake chip (fakechip/),
// with every trace line captured. Normal operation by default (configuration replay complete,
// write responses on); `restart()` replaces the table by a new instance over the same chip, as an
// agent restart does. TableFixture is the decap table's.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "Fwk/Trace.h"
#include "support/Kinds.h"

namespace Test {

struct TableOptions {
   std::uint32_t size = 64;
   bool withUtil = true;
   bool replayComplete = true;
   bool separateIndexSpace = true;
};

template <class Kind>
class TableFixtureOf : public ::testing::Test {
 protected:
   using Table = typename Kind::Table;
   using Key = typename Table::Key;
   using Entry = typename Table::Entry;
   using Util = FakeChip::Util<Table>;
   using Chip = FakeChip::Chip<Table>;

   void SetUp() override;
   void TearDown() override;

   // Creates the table (the previous one, if any, is released first), over the chip of the
   // previous table if there was one.
   void createTable(const TableOptions& options = {});
   // A new table on a new chip, the previous table cleaned up, the traces cleared.
   void freshTable(const TableOptions& options = {});
   // An agent restart: the old instance goes without touching hardware; a new one is set up over
   // the same chip, in configuration replay, with its rows read back (syncEntries).
   void restart();

   Table& t() { return *table; }
   Util& util() { return *util_; }
   Fwk::Ptr<typename Table::EntryHandle> handle(std::uint64_t key) {
      return table->entryHandle(k(key));
   }
   static Key k(std::uint64_t key) { return Kind::key(key); }
   // A value needing `profile` (may be null), with the given VRF.
   static Entry e(const Fwk::Ptr<ProfileHandle>& profile, std::uint32_t vrf) {
      return Kind::value(profile, vrf);
   }
   // The index the allocator holds for a key (invalid when none).
   Asic::Index indexOf(std::uint64_t key) {
      return table->indexAllocator()->index(Asic::TableTraits<Table>::allocatorKey(k(key)));
   }
   // The row the chip holds at the index as the chip's log shows it, "none" for none.
   std::string rowAt(Asic::Index index) const { return chip->rowText(index); }
   // Trace texts of the engine's handle captured so far (keys shown as their number), and a
   // fresh start.
   std::vector<std::string> traces() const;
   std::vector<std::string> tracesContaining(const std::string& text) const;
   void clearTraces() { sink->clear(); }

   TableOptions options;
   std::shared_ptr<Chip> chip;
   Fwk::Ptr<Table> table;
   Fwk::Ptr<Asic::HwTable> hwTable;
   Fwk::Ptr<Util> util_;
   std::shared_ptr<Fwk::Trace::MemorySink> sink = std::make_shared<Fwk::Trace::MemorySink>();
   std::shared_ptr<Fwk::Trace::Sink> previousSink;
};

extern template class TableFixtureOf<DecapKind>;
extern template class TableFixtureOf<WideKind>;

using TableFixture = TableFixtureOf<DecapKind>;
using Entry = DecapKind::Table::Entry;
using TalvikL3Decap::IngL3IifTable;
using TalvikL3Decap::L3TunnelIntfKey;

// Every field of a decap entry, the dependent field included, for comparing entries field by field
// (their equality leaves the dependent field out).
inline auto fields(const Entry& e) {
   return std::tuple(e.l3IifProfileIndexHandle.get(), e.l3IifProfileIndex, e.ipv4UcEnable,
                     e.ipv6UcEnable, e.trustDscp, e.vrf);
}

}  // namespace Test
