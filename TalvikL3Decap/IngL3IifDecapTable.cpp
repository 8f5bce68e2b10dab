#include "TalvikL3Decap/IngL3IifDecapTable.h"

#include "AsicSwTable/SwTableAccessorImpl.h"
#include "AsicSwTable/TableModelImpl.h"
#include "Fwk/Singleton.h"

template class Asic::TableModel<TalvikL3Decap::IngL3IifTable>;
template class Asic::TableEntryHandle<TalvikL3Decap::IngL3IifTable>;
template class Asic::TableUnresolvedEntry<TalvikL3Decap::IngL3IifTable>;
template class Asic::SwTable::Accessor<TalvikL3Decap::IngL3IifTable>;
template class Asic::SwTable::EntryIteratorConst<TalvikL3Decap::IngL3IifTable>;
template void Asic::SwTable::Accessor<TalvikL3Decap::IngL3IifTable>::initAllocator<
    Asic::FirstFreeIndexAllocator>();

namespace TalvikL3Decap {

namespace {
// Load time: the chip plug-in through the loader singleton, kept until the process exits.
const Fwk::Ptr<IngL3IifTable::UtilLoader> loadTimeUtilLoader =
    IngL3IifTable::UtilLoader::loaderSingletonIs();
}  // namespace

Fwk::Ptr<IngL3IifTable> ingL3IifTableFactory() {
   return Fwk::make<IngL3IifTable>();
}

Fwk::Ptr<IngL3IifTable::UtilLoader> IngL3IifTable::UtilLoader::loaderSingletonIs() {
   static const Fwk::Ptr<UtilLoader> loader = [] {
      auto l = Fwk::singletonIs<UtilLoader>(kSingletonName);
      if (l->loadStatus() == LoadStatus::notLoaded) {
         Asic::PluginLoader::load(*l);
      }
      return l;
   }();
   return loader;
}

}  // namespace TalvikL3Decap
