// The ingress L3 incoming-interface table consulted by decapsulated tunnel packets.
//
// The table is the generic table model (Asic::TableModel, AsicSwTable/TableModel.h: collections,
// entry handles, unresolved and synced entries, and every operation with its contract) over the
// tunnel key and this table's entry record (IngL3IifDecapEntry.h). Here are what is this table's
// own: its names and constants, its traits, its Util (whose chip-specific operations a plug-in
// supplies), the loader of that plug-in, and its choice of allocator (the user file). Behaviour
// lives in the generic engine (Asic::SwTable::Accessor, AsicSwTable/).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Asic/PluginLoader.h"
#include "AsicSwTable/TableModel.h"
#include "AsicSwTable/TableTraits.h"
#include "AsicSwTable/TableUtil.h"
#include "TalvikL3Common/L3TunnelIntfKey.h"
#include "TalvikL3Decap/IngL3IifDecapEntry.h"
#include "TalvikL3Decap/PendingEntryQueue.h"

namespace TalvikL3Decap {

using TalvikL3Common::L3TunnelIntfKey;
class IngL3IifTable;

}  // namespace TalvikL3Decap

// All the engine knows of the table's key and entry, and the names of its model's types.
template <>
struct Asic::TableTraits<TalvikL3Decap::IngL3IifTable>
    : Asic::KeyTraits<TalvikL3Common::L3TunnelIntfKey>,
      Asic::NeededEntryField<&TalvikL3Decap::IngL3IifEntry::l3IifProfileIndexHandle,
                             &TalvikL3Decap::IngL3IifEntry::l3IifProfileIndex> {
   static constexpr std::string_view kEntryHandleTypeName =
       "TalvikL3Decap::IngL3IifTable::EntryHandle";
   static constexpr std::string_view kUnresolvedEntryTypeName =
       "TalvikL3Decap::IngL3IifTable::UnresolvedEntry";
};

namespace TalvikL3Decap {

class IngL3IifTable : public Asic::TableModel<IngL3IifTable> {
 public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable";
   static constexpr std::string_view kShortName = "IngL3IifTable";

   class Util;
   class UtilLoader;

   // Type-level constants of the table.
   static constexpr std::uint64_t setResolvedEntryBlockMetaDataDefinedByUser = 0;
   static constexpr std::uint64_t setResolvedEntryMetaDataDefinedByUser = 0;
   static constexpr bool readAccess = false;
   static constexpr bool writeAccess = true;

   // A table without hardware table, Util or allocator (SwTable::setUp gives it those), in
   // configuration replay until doInitComplete. Made through ingL3IifTableFactory().
   IngL3IifTable() = default;
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<IngL3IifTable>(); }

   // The Util from the chip plug-in (SwTable::setUp), or null: the table then touches no
   // hardware.
   const Util* util() const noexcept;

   // The user file's choice of allocator: an own one when the chip profile's
   // L3NextHopAttributes give tunnel interfaces an index space of their own, else the one shared
   // with the L3 interface table; sized to numEntries(). Fatal without those attributes.
   void doInitAllocator();

 protected:
   ~IngL3IifTable() override { tearDown(); }
};

// A new table, held by the returned pointer.
Fwk::Ptr<IngL3IifTable> ingL3IifTableFactory();

// A row read back from hardware, its index and entry (a gap it left has `present` false).
using VekSyncedEntry = Asic::SyncedRow<IngL3IifEntry>;

// The table's utility object: the chip-specific plug-in implements the pure operations.
class IngL3IifTable::Util : public Asic::TableUtil<IngL3IifTable> {
 public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable::Util";
   // `name` names the chip-specific Util (its feature name).
   explicit Util(const std::string& name) : TableUtil(name) {}
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<Util>(); }

 protected:
   ~Util() override = default;
};

// Loads the chip-specific plug-in that supplies the table's Util.
class IngL3IifTable::UtilLoader : public Asic::LoaderSingleton {
 public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable::UtilLoader";
   static constexpr std::string_view kSingletonName = "TalvikL3Decap::IngL3IifTable::UtilLoader";

   explicit UtilLoader(const std::string& name) : LoaderSingleton(name) {}
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<UtilLoader>(); }
   // The plug-in's file: libAsicFeature-TalvikL3Decap-IngL3IifTable.so (Asic/PluginLoader.h).
   std::string prefixPath() const override { return "AsicFeature"; }
   std::string suffixPath() const override { return "TalvikL3Decap::IngL3IifTable"; }

   // The process's loader, created and run once (thread-safe) on first use. The library uses it
   // when it is loaded, so the plug-in is loaded, and L3DECAP_PLUGIN_PATH read, before main().
   static Fwk::Ptr<UtilLoader> loaderSingletonIs();
};

inline const IngL3IifTable::Util* IngL3IifTable::util() const noexcept {
   return static_cast<const Util*>(Asic::SwTable::util());
}

}  // namespace TalvikL3Decap

#include "AsicSwTable/SwTableAccessor.h"

// The engine and the table model are instantiated once, in the table's translation unit.
extern template class Asic::TableModel<TalvikL3Decap::IngL3IifTable>;
extern template class Asic::TableEntryHandle<TalvikL3Decap::IngL3IifTable>;
extern template class Asic::TableUnresolvedEntry<TalvikL3Decap::IngL3IifTable>;
extern template class Asic::SwTable::Accessor<TalvikL3Decap::IngL3IifTable>;
extern template class Asic::SwTable::EntryIteratorConst<TalvikL3Decap::IngL3IifTable>;
