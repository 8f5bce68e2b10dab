#include "support/TableFixture.h"

#include "Asic/ChipProfile.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"

namespace Test {

template <class Kind>
void TableFixtureOf<Kind>::SetUp() {
   previousSink = Fwk::Trace::sinkIs(sink);
   Fwk::Trace::configure(std::string(Table::kTypeName) + "=0-31;SwTableStat=0");
}

template <class Kind>
void TableFixtureOf<Kind>::TearDown() {
   if (table) {
      table->cleanup();
      table = nullptr;
   }
   Fwk::Trace::configure("*=none");
   Fwk::Trace::sinkIs(previousSink);
}

template <class Kind>
void TableFixtureOf<Kind>::createTable(const TableOptions& opts) {
   options = opts;
   table = nullptr;
   if (!chip) {
      chip = std::make_shared<Chip>(options.size);
   }
   table = Kind::make();
   hwTable = Fwk::make<Asic::HwTable>("hwTable", options.size);
   auto profile = Fwk::make<Asic::ChipProfile>("test-chip");
   profile->featureIs(Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>(),
                      Fwk::make<TalvikL3Unicast::L3NextHopAttributes>(options.separateIndexSpace));
   util_ = options.withUtil ? Fwk::make<Util>(chip, Util::Log::calls) : nullptr;
   table->hwTableIs(hwTable);
   table->activeChipProfileIs(profile);
   table->numEntriesIs(options.size);
   table->utilIs(util_);
   table->doCreateAllocator();
   if (options.replayComplete) {
      table->configReplayCompleteIs(true);
      table->writeResponseSmIs(table.get());
   }
}

template <class Kind>
void TableFixtureOf<Kind>::freshTable(const TableOptions& opts) {
   if (table) {
      table->cleanup();
   }
   chip = nullptr;
   createTable(opts);
   clearTraces();
}

template <class Kind>
void TableFixtureOf<Kind>::restart() {
   // The old agent dies: nothing it does on the way out reaches hardware.
   table->utilIs(nullptr);
   table->cleanup();
   table = nullptr;
   TableOptions next = options;
   next.replayComplete = false;
   createTable(next);
   table->syncEntries();
   util_->clearCalls();
}

template <class Kind>
std::vector<std::string> TableFixtureOf<Kind>::traces() const {
   std::vector<std::string> out;
   for (auto& line : sink->texts(Table::kTypeName)) {
      out.push_back(Kind::plainKeys(std::move(line)));
   }
   return out;
}

template <class Kind>
std::vector<std::string> TableFixtureOf<Kind>::tracesContaining(const std::string& text) const {
   std::vector<std::string> out;
   for (auto& line : traces()) {
      if (line.find(text) != std::string::npos) {
         out.push_back(line);
      }
   }
   return out;
}

template class TableFixtureOf<DecapKind>;
template class TableFixtureOf<WideKind>;

std::string WideKind::plainKeys(std::string line) {
   const std::string site = std::to_string(kSite) + "/";
   for (std::size_t at = line.find(site); at != std::string::npos; at = line.find(site, at)) {
      const bool partOfANumber = at > 0 && std::isdigit(static_cast<unsigned char>(line[at - 1]));
      if (partOfANumber) {
         at += site.size();
      } else {
         line.erase(at, site.size());
      }
   }
   return line;
}

}  // namespace Test
