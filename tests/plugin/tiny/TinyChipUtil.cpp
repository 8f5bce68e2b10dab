// A tiny chip plug-in: the fake chip (fakechip/) of 1024 rows in the plug-in's memory, whose Util
// registers itself for the table type when the plug-in is loaded.
#include "Asic/PluginLoader.h"
#include "sim/fake/DecapChip.h"

namespace {

const bool registered = [] {
   Asic::UtilFactories::factoryIs(
       TalvikL3Decap::IngL3IifTable::kTypeName, []() -> Fwk::Ptr<Asic::SwTable::Util> {
          return Fwk::make<FakeChip::DecapUtil>(std::make_shared<FakeChip::DecapChip>(1024),
                                                FakeChip::DecapUtil::Log::off);
       });
   return true;
}();

}  // namespace
