// A tiny chip plug-in: rows live in the plug-in's memory, and its Util registers itself for the
// table type when the plug-in is loaded.
#include <map>

#include "Asic/PluginLoader.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"

namespace {

using TalvikL3Decap::IngL3IifTable;
using Entry = IngL3IifTable::Entry;

class TinyChipUtil : public IngL3IifTable::Util {
  public:
   TinyChipUtil() : Util("TinyChipUtil") {}
   // Named from the plug-in's own code, for the check that the plug-in and the library share
   // one descriptor per type.
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<Util>(); }
   std::uint32_t minIndex() const override { return 0; }
   std::uint32_t maxIndex() const override { return 1023; }
   void hwTableEntryIs(IngL3IifTable* /*table*/, Asic::Index key,
                       const std::optional<Entry>& entry) const override {
      rows_[key] = entry;
   }
   void hwTableEntryDel(IngL3IifTable* /*table*/, Asic::Index key) const override {
      rows_.erase(key);
   }
   void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Asic::Index key,
                                     Asic::IndexUserTracker::OpType op) const override {
      if (hwTable && hwTable->indexUserTracker()) {
         hwTable->indexUserTracker()->update(key, op);
      }
   }
   bool compareHwEntries(const IngL3IifTable* table, Asic::Index key,
                         const Entry& entry) const override {
      const auto row = hwTableEntry(table, key);
      return row && row->l3IifProfileIndex == entry.l3IifProfileIndex &&
             row->ipv4UcEnable == entry.ipv4UcEnable && row->ipv6UcEnable == entry.ipv6UcEnable &&
             row->trustDscp == entry.trustDscp && row->vrf == entry.vrf;
   }
   std::optional<Entry> hwTableEntry(const IngL3IifTable* /*table*/,
                                     Asic::Index key) const override {
      const auto it = rows_.find(key);
      return it == rows_.end() ? std::nullopt : it->second;
   }
   void syncEntries(const Asic::HwTable* /*hwTable*/,
                    const Fwk::Ptr<Asic::SwTable>& table) const override {
      for (const auto& [index, row] : rows_) {
         if (row) {
            static_cast<IngL3IifTable&>(*table).syncedEntryIs(index, *row);
         }
      }
   }

  private:
   mutable std::map<Asic::Index, std::optional<Entry>> rows_;
};

const bool registered = [] {
   Asic::UtilFactories::factoryIs(IngL3IifTable::kTypeName,
                                  []() -> Fwk::Ptr<Asic::SwTable::Util> {
                                     return Fwk::make<TinyChipUtil>();
                                  });
   return true;
}();

}  // namespace
