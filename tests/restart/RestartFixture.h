// Hitless-restart scenarios, all in one shape: set the table up and commit a configuration,
// record what hardware holds and which index each key reported, restart (the new instance reads
// the rows back, keys are bound in advance), replay, finish initialisation, compare.
#pragma once

#include <gmock/gmock.h>

#include <map>
#include <set>
#include <string>

#include "support/TableFixture.h"

namespace Test {

using S = Asic::SwTableBase;
using R = Asic::SwTable;
using Row = FakeChip::RowForm<IngL3IifTable>::Row;

// A configuration: key -> vrf; every entry needs the fixture's profile entry.
using Config = std::map<std::uint64_t, std::uint32_t>;
// Keys bound in advance with bindKeyToIndex: key -> index.
using Bindings = std::map<std::uint64_t, Asic::Index>;

// What the previous instance leaves behind.
struct Recorded {
   std::vector<Row> rows;  // the chip's rows
   Bindings reported;      // hwIndexOnlyForCrossAgentCommunication of every key
};

class RestartFixture : public TableFixture {
 protected:
   // The chip plug-in publishes written indices in handles, so that keys can report them.
   void setUpTable(const TableOptions& options = {});
   // Commits every entry with the ready profile and acknowledges the writes.
   void commitAll(const Config& config);
   Recorded record(const Config& config);
   // The agent restarts: the new instance reads the rows back, then the keys are bound.
   void restartWith(const Bindings& bindings = {});
   // Commits every entry again, needing `needed` (default: the ready profile).
   void replay(const Config& config, const Fwk::Ptr<ProfileHandle>& needed = nullptr);
   // doInitComplete, purgeStaleEntries, then hardware acknowledges every write.
   void finishInit();

   // The row the chip holds for an entry of the ready profile with this vrf.
   static Row rowFor(std::uint32_t vrf) {
      return Row{true, kProfileIndex, true, false, false, vrf};
   }
   // Indices named by the Util calls since the restart that begin with `verb` ("write", ...).
   std::set<Asic::Index> indicesOf(const std::string& verb) const;
   std::size_t writesSinceRestart() const { return chip->writes - writesAtRestart_; }
   std::size_t deletesSinceRestart() const { return chip->deletes - deletesAtRestart_; }
   // Empty when the chip holds exactly the configuration's rows at its keys' indices; otherwise
   // the first difference.
   std::string hardwareDifference(const Config& config);
   std::uint64_t statistic(R::ReconciliationStatus s) const { return table->statistics().count(s); }
   bool available(Asic::Index index) const {
      return table->indexAllocator()->indexAvailable(index);
   }
   std::vector<std::string> statisticsLines() const { return sink->texts("SwTableStat"); }

   static constexpr std::uint8_t kProfileIndex = 7;
   Fwk::Ptr<ProfileHandle> profile = ProfileHandle::make(S::success, kProfileIndex);

 private:
   std::size_t writesAtRestart_ = 0;
   std::size_t deletesAtRestart_ = 0;
};

}  // namespace Test
