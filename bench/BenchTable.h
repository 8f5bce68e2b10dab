// What the benchmarks run the table over: the fake chip (fakechip/), without its call log, whose
// Util publishes written indices in handles (so that keys can report them across a restart), a
// ready profile-table entry handle that every entry needs, and one table instance over a chip,
// set up as the platform sets it up.
#pragma once

#include <cstdint>
#include <memory>

#include "Asic/ChipProfile.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"
#include "sim/fake/DecapChip.h"

namespace Bench {

using TalvikL3Decap::IngL3IifTable;
using TalvikL3Decap::L3TunnelIntfKey;
using Entry = IngL3IifTable::Entry;
using Chip = FakeChip::DecapChip;
using ChipUtil = FakeChip::DecapUtil;
using Row = Chip::Row;
using FakeChip::ProfileHandle;

struct Instance {
   // Normal operation: configuration replay complete and write responses on. Otherwise the
   // instance is a restarted one, in configuration replay.
   Instance(std::shared_ptr<Chip> c, std::uint32_t size, bool normalOperation)
       : chip(std::move(c)) {
      table = TalvikL3Decap::ingL3IifTableFactory();
      auto profile = Fwk::make<Asic::ChipProfile>("bench-chip");
      profile->featureIs(Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>(),
                         Fwk::make<TalvikL3Unicast::L3NextHopAttributes>(true));
      table->setUp(Fwk::make<Asic::HwTable>("IngL3IifDecap", size), profile, size);
      util = Fwk::make<ChipUtil>(chip, ChipUtil::Log::off);
      util->publishHwIndexInHandleIs(true);
      table->utilIs(util);
      if (normalOperation) {
         table->configReplayCompleteIs(true);
         table->writeResponseSmIs(table.get());
      }
   }
   // The agent dies: nothing the old instance does on the way out reaches the chip.
   void dieQuietly() {
      if (table) {
         table->utilIs(nullptr);
         table->cleanup();
         table = nullptr;
      }
   }
   ~Instance() {
      if (table) {
         table->cleanup();
      }
   }
   Instance(const Instance&) = delete;
   Instance& operator=(const Instance&) = delete;

   std::shared_ptr<Chip> chip;
   Fwk::Ptr<IngL3IifTable> table;
   Fwk::Ptr<ChipUtil> util;
};

}  // namespace Bench
