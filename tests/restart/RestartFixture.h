// Hitless-restart scenarios over every table kind, all in one shape: set the table up and commit a
// configuration, record what hardware holds and which index each key reported, restart (the new
// instance reads the rows back, keys are bound in advance), replay, finish initialisation, compare.
#pragma once

#include <gmock/gmock.h>

#include <map>
#include <set>
#include <string>

#include "support/Scenario.h"

namespace Test {

using R = Asic::SwTable;

// A configuration: key -> vrf; every entry needs the fixture's profile entry.
using Config = std::map<std::uint64_t, std::uint32_t>;
// Keys bound in advance with bindKeyToIndex: key -> index.
using Bindings = std::map<std::uint64_t, Asic::Index>;

template <class Kind>
class RestartFixture : public TableFixtureOf<Kind> {
 protected:
   using Row = typename FakeChip::Chip<typename Kind::Table>::Row;
   // What the previous instance leaves behind.
   struct Recorded {
      std::vector<Row> rows;  // the chip's rows
      Bindings reported;      // hwIndexOnlyForCrossAgentCommunication of every key
   };

   // A fresh table on a fresh chip (TableFixtureOf::freshTable) whose plug-in publishes written
   // indices in handles, so that keys can report them, holding every entry of `config` with the
   // ready profile, acknowledged.
   void startWith(const Config& config, const TableOptions& options = {});
   Recorded record(const Config& config);
   // The agent restarts: the new instance reads the rows back, then the keys are bound.
   void restartWith(const Bindings& bindings = {});
   // Commits every entry again, needing `needed` (default: the ready profile).
   void replay(const Config& config, const Fwk::Ptr<ProfileHandle>& needed = nullptr);
   // doInitComplete, purgeStaleEntries, then hardware acknowledges every write.
   void finishInit();

   // The row the chip holds, as its log shows it, for an entry of the ready profile with this vrf.
   static std::string rowFor(std::uint32_t vrf) {
      return "{p" + std::to_string(kProfileIndex) + " vrf" + std::to_string(vrf) + "}";
   }
   // Indices named by the Util calls since the restart that begin with `verb` ("write", ...).
   std::set<Asic::Index> indicesOf(const std::string& verb) const;
   std::size_t writesSinceRestart() const { return this->chip->writes - writesAtRestart_; }
   std::size_t deletesSinceRestart() const { return this->chip->deletes - deletesAtRestart_; }
   // Empty when the chip holds exactly the configuration's rows at its keys' indices; otherwise
   // the first difference.
   std::string hardwareDifference(const Config& config);
   std::uint64_t statistic(R::ReconciliationStatus s) const {
      return this->table->statistics().count(s);
   }
   bool available(Asic::Index index) const {
      return this->table->indexAllocator()->indexAvailable(index);
   }
   std::vector<std::string> statisticsLines() const { return this->sink->texts("SwTableStat"); }

   static constexpr Asic::Index kProfileIndex = 7;
   Fwk::Ptr<ProfileHandle> profile = ProfileHandle::make(S::success, kProfileIndex);

 private:
   std::size_t writesAtRestart_ = 0;
   std::size_t deletesAtRestart_ = 0;
};

extern template class RestartFixture<DecapKind>;
extern template class RestartFixture<WideKind>;

}  // namespace Test
