#include "support/TableFixture.h"

namespace Test {

void TableFixture::SetUp() {
   previousSink = Fwk::Trace::sinkIs(sink);
   Fwk::Trace::configure(std::string(IngL3IifTable::kTypeName) + "=0-31;SwTableStat=0");
}

void TableFixture::TearDown() {
   if (table) {
      table->cleanup();
      table = nullptr;
   }
   Fwk::Trace::configure("*=none");
   Fwk::Trace::sinkIs(previousSink);
}

void TableFixture::createTable(const TableOptions& opts) {
   options = opts;
   table = nullptr;
   table = TalvikL3Decap::ingL3IifTableFactory();
   hwTable = Fwk::make<Asic::HwTable>("IngL3IifDecap", options.size);
   auto profile = Fwk::make<Asic::ChipProfile>("test-chip");
   profile->featureIs(Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>(),
                      Fwk::make<TalvikL3Unicast::L3NextHopAttributes>(options.separateIndexSpace));
   util_ = options.withUtil ? Fwk::make<FakeChipUtil>(chip, options.size) : nullptr;
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

void TableFixture::restart() {
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

Entry TableFixture::e(const Fwk::Ptr<ProfileHandle>& profile, std::uint32_t vrf, bool v4, bool v6,
                      bool dscp) {
   return Entry(profile, 0, v4, v6, dscp, vrf);
}

Asic::Index TableFixture::indexOf(std::uint64_t key) {
   const L3TunnelIntfKey kk(key);
   return table->indexAllocator()->index(Fwk::typeOf<L3TunnelIntfKey>(), &kk);
}

std::vector<std::string> TableFixture::tracesContaining(const std::string& text) const {
   std::vector<std::string> out;
   for (auto& line : traces()) {
      if (line.find(text) != std::string::npos) {
         out.push_back(line);
      }
   }
   return out;
}

}  // namespace Test
