#include "Asic/HwTable.h"

namespace Asic {

const char* IndexUserTracker::opTypeName(OpType op) noexcept {
   switch (op) {
      case acquire: return "acquire";
      case refill: return "refill";
      case release: return "release";
      case empty: return "empty";
      case releaseEmpty: return "releaseEmpty";
   }
   return "invalid";
}

void IndexUserTracker::update(Index index, OpType op) {
   ++operations_.at(op);
   switch (op) {
      case acquire: ++users_[index]; break;
      case release:
      case releaseEmpty: {
         const auto it = users_.find(index);
         if (it == users_.end()) {
            ++underflows_;
         } else if (--it->second == 0) {
            users_.erase(it);
         }
         break;
      }
      case refill:
      case empty: break;
   }
}

std::uint32_t IndexUserTracker::users(Index index) const noexcept {
   const auto it = users_.find(index);
   return it == users_.end() ? 0 : it->second;
}

void IndexUserTracker::Stub::deleteTracker(HwTable* hwTable, int /*unit*/, bool /*force*/) {
   if (hwTable) {
      hwTable->tracker_ = nullptr;
      hwTable->notify("indexUserTracker");
   }
}

HwTable::HwTable(std::string name, std::uint32_t size)
    : name_(std::move(name)), size_(size), tracker_(Fwk::make<IndexUserTracker>()) {}

}  // namespace Asic
