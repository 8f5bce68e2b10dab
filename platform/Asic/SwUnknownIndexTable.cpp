#include "Asic/SwUnknownIndexTable.h"

namespace Asic {

Fwk::Ptr<SwTable::IndexHelper> SwUnknownIndexTable::indexHelperIs(
    const SwTableBase::EntryHandle* handle) {
   auto& helper = helpers_[handle];
   if (!helper) {
      helper = Fwk::make<IndexHelper>();
   }
   return helper;
}

Fwk::Ptr<SwTable::IndexHelper> SwUnknownIndexTable::indexHelper(
    const SwTableBase::EntryHandle* handle) const {
   const auto it = helpers_.find(handle);
   return it == helpers_.end() ? nullptr : it->second;
}

Fwk::Ptr<SwTable::IndexHelper> SwUnknownIndexTable::indexHelperDel(
    const SwTableBase::EntryHandle* handle) {
   const auto it = helpers_.find(handle);
   if (it == helpers_.end()) {
      return nullptr;
   }
   Fwk::Ptr<IndexHelper> helper = std::move(it->second);
   helpers_.erase(it);
   return helper;
}

}  // namespace Asic
